#pragma once

#include <cstdint>
#include <istream>
#include <optional>
#include <string>
#include <unordered_set>

namespace tool {

/// The next line that isn't blank, without the end of line that Windows writes; nothing at the end.
std::optional<std::string> nextPhrase(std::istream& lines);

/// A phrase as it stands in texts that were escaped.
struct EscapedPhrase {
    explicit EscapedPhrase(const std::string& phrase);
    std::string text;
    std::string beforeQuote;  ///< a quote ends a sentence and leaves its backslash on the last word
};

/// A list of sensitive phrases as the layer takes it.
struct PhraseList {
    std::unordered_set<std::string> keys;
    std::uint32_t mostWords = 0;  ///< of the longest phrase

    /// Words may be parted by any number of spaces.
    void add(const std::string& phrase);
};

/// Reads a file with a phrase on each line; a phrase that can't be found in any text costs a
/// warning. Throws UsageError.
PhraseList loadPhraseFile(const std::string& file);

}  // namespace tool
