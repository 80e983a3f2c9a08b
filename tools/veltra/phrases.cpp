#include "phrases.h"

#include "files.h"
#include "output.h"

#include <Veltra/PhraseKey.h>

#include <algorithm>
#include <fstream>
#include <utility>

namespace tool {

namespace {

std::uint32_t wordsOf(const std::string& phrase) {
    std::uint32_t words = 0;
    for (std::size_t i = 0; i < phrase.size(); ++i)
        if (phrase[i] != ' ' && (i == 0 || phrase[i - 1] == ' ')) ++words;
    return words;
}

}  // namespace

std::optional<std::string> PhraseLines::next() {
    for (std::string line; std::getline(lines_, line);) {
        if (++line_ == 1) line.erase(0, byteOrderMarkOf(line).size());
        if (!line.empty() && line.back() == '\r') line.pop_back();
        if (line.find_first_not_of(' ') != line.npos) return line;
    }
    return std::nullopt;
}

NeverFound::NeverFound(std::string where, std::string why)
    : where_(std::move(where)), why_(std::move(why)) {}

void NeverFound::add(std::size_t place) {
    constexpr std::size_t kMostShown = 10;
    ++count_;
    if (first_.size() < kMostShown) first_.push_back(place);
}

std::string NeverFound::places() const {
    std::string text;
    for (const auto place : first_)
        text += (text.empty() ? "" : ", ") + std::to_string(place);
    if (count_ > first_.size()) text += " and " + std::to_string(count_ - first_.size()) + " more";
    return text;
}

void NeverFound::warn() const {
    if (count_ == 0) return;
    complain("warning: " + where_ + (count_ == 1 ? " " : "s ") + places() +
             ": never found: " + why_);
}

bool PhraseList::add(const std::string& phrase) {
    std::unordered_set<std::string> found;
    Veltra::AddPhraseKeys(found, phrase);
    if (found.empty()) return false;
    keys.merge(found);
    mostWords = std::max(mostWords, wordsOf(phrase));
    return true;
}

PhraseList loadPhraseFile(const std::string& file, std::optional<std::uint32_t> limit) {
    std::ifstream stream(pathOf(file), std::ios::binary);
    if (!stream) throw UsageError("cannot read " + file);
    PhraseLines lines(stream);
    PhraseList list;
    NeverFound marked(file + ", line", kEndsASentence);
    NeverFound tooLong(file + ", line", "more words than --phrase-limit allows");
    while (const auto phrase = lines.next()) {
        requireUtf8(*phrase, file + ", line " + std::to_string(lines.line()));
        if (!list.add(*phrase))
            marked.add(lines.line());
        else if (limit && wordsOf(*phrase) > *limit)
            tooLong.add(lines.line());
    }
    // A truncated list would let through what it was meant to stop.
    if (stream.bad()) throw UsageError("cannot read " + file);
    marked.warn();
    tooLong.warn();
    return list;
}

}  // namespace tool
