#pragma once

#include <cstddef>
#include <cstdint>
#include <istream>
#include <optional>
#include <string>
#include <unordered_set>
#include <vector>

namespace tool {

/// Hands out the phrases of a text that has one on each line.
class PhraseLines {
 public:
    explicit PhraseLines(std::istream& lines) : lines_(lines) {}

    /// The next line that isn't blank, without what Windows adds, a mark at the beginning and an
    /// end of line of its own; nothing at the end.
    std::optional<std::string> next();
    /// Where it stands, from 1 on.
    std::size_t line() const { return line_; }

 private:
    std::istream& lines_;
    std::size_t line_ = 0;
};

/// Gathers phrases that no text can match, for one warning about all of them.
class NeverFound {
 public:
    /// `where`: what is counted, such as "line" or "phrases.txt, line"; `why` for the user.
    NeverFound(std::string where, std::string why);

    void add(std::size_t place);
    /// Nothing when there are none.
    void warn() const;

 private:
    std::string places() const;

    const std::string where_;
    const std::string why_;
    std::size_t count_ = 0;
    std::vector<std::size_t> first_;  ///< a list for a person: the rest is counted
};

/// Why a phrase with one of the marks is never found.
inline constexpr const char* kEndsASentence =
    "a phrase must contain none of -;|?.!,:()<>[]{}\", which end a sentence";

/// A list of sensitive phrases as the layer takes it.
struct PhraseList {
    std::unordered_set<std::string> keys;
    std::uint32_t mostWords = 0;  ///< of the longest phrase

    /// Words may be parted by any number of spaces. False, with nothing added, for a phrase that no
    /// text can hold.
    bool add(const std::string& phrase);
};

/// Reads a file with a phrase on each line. Warns of phrases that are never found, be it since they
/// have more words than `limit`. Throws UsageError.
PhraseList loadPhraseFile(const std::string& file, std::optional<std::uint32_t> limit);

}  // namespace tool
