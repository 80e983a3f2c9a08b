#include "phrases.h"

#include "files.h"
#include "output.h"

#include <Veltra/PhraseKey.h>

#include <algorithm>
#include <cstddef>
#include <fstream>
#include <sstream>
#include <vector>

namespace tool {

namespace {

constexpr const char* kSentenceDelimiters = "-;|?.!,:()<>[]{}\"";

std::vector<std::string> splitWords(const std::string& phrase) {
    std::vector<std::string> words;
    std::istringstream stream(phrase);
    for (std::string word; std::getline(stream, word, ' ');)
        if (!word.empty()) words.push_back(word);
    return words;
}

std::string joinWords(const std::vector<std::string>& words) {
    std::string text;
    for (const auto& word : words)
        text += (text.empty() ? "" : " ") + word;
    return text;
}

}  // namespace

std::optional<std::string> nextPhrase(std::istream& lines) {
    for (std::string line; std::getline(lines, line);) {
        if (!line.empty() && line.back() == '\r') line.pop_back();
        if (line.find_first_not_of(' ') != line.npos) return line;
    }
    return std::nullopt;
}

EscapedPhrase::EscapedPhrase(const std::string& phrase)
    : text(jsonEscaped(phrase, "a phrase")), beforeQuote(text + '\\') {}

void PhraseList::add(const std::string& phrase) {
    const auto words = splitWords(phrase);
    mostWords = std::max(mostWords, static_cast<std::uint32_t>(words.size()));
    // The layer screens values as they are sent, escaped. So phrases are escaped alike.
    const EscapedPhrase escaped(joinWords(words));
    keys.insert(Veltra::PhraseKey(escaped.text));
    keys.insert(Veltra::PhraseKey(escaped.beforeQuote));
}

PhraseList loadPhraseFile(const std::string& file) {
    std::ifstream stream(pathOf(file), std::ios::binary);
    if (!stream) throw UsageError("cannot read " + file);
    PhraseList list;
    std::size_t neverFound = 0;
    while (const auto phrase = nextPhrase(stream)) {
        list.add(*phrase);
        if (phrase->find_first_of(kSentenceDelimiters) != phrase->npos) ++neverFound;
    }
    if (neverFound > 0)
        complain(
            "warning: " + file + ": phrases with one of " + kSentenceDelimiters +
            " in them are never found, since it ends a sentence: " + std::to_string(neverFound));
    return list;
}

}  // namespace tool
