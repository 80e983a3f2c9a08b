// The sensitive-phrase filter. Input: the limit in the first line; in the second the list, parted
// by "|", a phrase or, after "#", a key as it stands; then the text to check.
//
// Oracle: the rules written down plainly, with every phrase as a text of its own and its key looked
// up in the set of keys as the host gave it.

#include "SensitiveWordFilter.h"
#include "support/fuzz_support.h"

#include <Veltra/PhraseKey.h>

#include <vector>

namespace {

using Keys = std::unordered_set<std::string>;

/// The runs of characters that are not among `delimiters`.
std::vector<std::string> Parts(std::string_view text, std::string_view delimiters) {
    std::vector<std::string> parts;
    while (true) {
        text.remove_prefix(std::min(text.find_first_not_of(delimiters), text.size()));
        if (text.empty()) return parts;
        const std::size_t length = std::min(text.find_first_of(delimiters), text.size());
        parts.emplace_back(text.substr(0, length));
        text.remove_prefix(length);
    }
}

bool PlainlySensitive(std::string_view text, const Keys& keys, std::uint32_t limit) {
    for (const std::string& sentence : Parts(text, "-;|?.!,:()<>[]{}\"")) {
        const std::vector<std::string> words = Parts(sentence, " ");
        for (std::size_t count = 1; count <= limit && count <= words.size(); ++count) {
            for (std::size_t start = 0; start + count <= words.size(); ++start) {
                std::string phrase = words[start];
                for (std::size_t i = 1; i < count; ++i)
                    phrase += ' ' + words[start + i];
                if (keys.count(Veltra::PhraseKey(phrase)) != 0) return true;
            }
        }
    }
    return false;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    std::string_view text = fuzz::Input(data, size);
    const std::string number(fuzz::TakeLine(text));
    const auto limit = static_cast<std::uint32_t>(std::strtoul(number.c_str(), nullptr, 10));
    std::string_view list = fuzz::TakeLine(text);
    Keys keys;
    while (!list.empty()) {
        const std::string item(fuzz::TakeUntil(list, "|"));
        keys.insert(item.starts_with('#') ? item.substr(1) : Veltra::PhraseKey(item));
    }
    Veltra::SensitiveWordFilter filter;
    fuzz::Require(!filter.HasSensitiveWords(std::string(text)), "without a list all passes");
    filter.SetWords(keys, limit);
    fuzz::Require(
        filter.HasSensitiveWords(std::string(text)) == PlainlySensitive(text, keys, limit),
        "the same texts are sensitive");
    return 0;
}
