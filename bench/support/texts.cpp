#include "support/texts.h"

#include <Veltra/PhraseKey.h>

#include <array>
#include <random>
#include <string_view>

namespace bench {
namespace {

constexpr std::array<std::string_view, 96> commonWords{
    "the",     "of",      "and",    "a",        "to",      "in",        "is",      "you",
    "that",    "it",      "he",     "was",      "for",     "on",        "are",     "as",
    "with",    "his",     "they",   "I",        "at",      "be",        "this",    "have",
    "from",    "or",      "one",    "had",      "by",      "word",      "but",     "not",
    "what",    "all",     "were",   "we",       "when",    "your",      "can",     "said",
    "there",   "use",     "an",     "each",     "which",   "she",       "do",      "how",
    "their",   "if",      "will",   "up",       "other",   "about",     "out",     "many",
    "then",    "them",    "these",  "so",       "some",    "her",       "would",   "make",
    "like",    "him",     "into",   "time",     "has",     "look",      "two",     "more",
    "write",   "go",      "see",    "number",   "no",      "way",       "could",   "people",
    "water",   "than",    "first",  "been",     "call",    "who",       "oil",     "its",
    "through", "because", "answer", "question", "between", "important", "another", "government"};

}  // namespace

std::string EnglishText(std::size_t bytes) {
    std::mt19937 engine(1);  // NOLINT(cert-msc51-cpp): the same text on every run
    std::string text;
    while (text.size() < bytes) {
        const auto words = 6 + engine() % 14;
        for (std::size_t word = 0; word < words; ++word) {
            if (word > 0) text += ' ';
            text += commonWords[engine() % commonWords.size()];
            if (word + 1 < words && engine() % 10 == 0) text += ',';
        }
        text += ". ";
    }
    text.resize(bytes);
    return text;
}

std::unordered_set<std::string> PhraseKeys(std::size_t count) {
    std::unordered_set<std::string> keys;
    for (std::size_t number = 0; keys.size() < count; ++number) {
        std::string phrase = "secret" + std::to_string(number);
        for (std::size_t more = number % 3; more > 0; --more)
            phrase += " project";
        keys.insert(Veltra::PhraseKey(phrase));
    }
    return keys;
}

std::map<std::string, std::string> EightElements() {
    constexpr std::size_t bodyBytes = 1024;
    constexpr std::size_t count = 8;
    std::map<std::string, std::string> elements;
    for (std::size_t number = 0; number < count; ++number)
        elements["element" + std::to_string(number)];
    const std::size_t room = bodyBytes - QueryBodyOf(elements).size();
    std::size_t number = 0;
    for (auto& element : elements) {
        element.second = EnglishText(room / count + (number < room % count ? 1 : 0));
        ++number;
    }
    return elements;
}

std::string QueryBodyOf(const std::map<std::string, std::string>& elements) {
    std::string body = std::string(R"({"traceId":")") + sessionId + R"(","promptKey":")" +
                       promptKey + R"(","replaceElements":{)";
    bool first = true;
    for (const auto& [name, value] : elements) {
        if (!first) body += ',';
        first = false;
        body += '"' + name + "\":\"" + value + '"';
    }
    return body + R"(},"sensitiveContentCfg":{"inputWords":[],"filterTags":[]}})";
}

}  // namespace bench
