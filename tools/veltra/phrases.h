#pragma once

#include <cstdint>
#include <istream>
#include <string>
#include <unordered_set>
#include <vector>

namespace tool {

/// The lines that aren't blank, without the end of line that Windows writes.
std::vector<std::string> readPhrases(std::istream& lines);

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
