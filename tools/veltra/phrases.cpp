#include "phrases.h"

#include "output.h"

#include <Veltra/PhraseKey.h>

#include <algorithm>
#include <fstream>
#include <sstream>

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

std::vector<std::string> readPhrases(std::istream& lines) {
    std::vector<std::string> phrases;
    for (std::string line; std::getline(lines, line);) {
        if (!line.empty() && line.back() == '\r') line.pop_back();
        if (line.find_first_not_of(' ') != line.npos) phrases.push_back(line);
    }
    return phrases;
}

void PhraseList::add(const std::string& phrase) {
    const auto words = splitWords(phrase);
    mostWords = std::max(mostWords, static_cast<std::uint32_t>(words.size()));
    // The layer screens values as they are sent, escaped. So phrases are escaped alike, and the
    // word before a quote, which ends a sentence, has the quote's backslash at its end.
    const std::string escaped = jsonEscaped(joinWords(words), "a phrase");
    keys.insert(Veltra::PhraseKey(escaped));
    keys.insert(Veltra::PhraseKey(escaped + '\\'));
}

PhraseList loadPhraseFile(const std::string& file) {
    std::ifstream stream(file, std::ios::binary);
    if (!stream) throw UsageError("cannot read " + file);
    PhraseList list;
    std::size_t neverFound = 0;
    for (const auto& phrase : readPhrases(stream)) {
        list.add(phrase);
        if (phrase.find_first_of(kSentenceDelimiters) != phrase.npos) ++neverFound;
    }
    if (neverFound > 0)
        complain(
            "warning: " + file + ": phrases with one of " + kSentenceDelimiters +
            " in them are never found, since it ends a sentence: " + std::to_string(neverFound));
    return list;
}

}  // namespace tool
