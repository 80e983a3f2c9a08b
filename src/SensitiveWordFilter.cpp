#include "SensitiveWordFilter.h"

#include <Veltra/PhraseKey.h>

#include <boost/thread/lock_types.hpp>
#include <boost/tokenizer.hpp>

#include <charconv>
#include <optional>
#include <string_view>
#include <vector>

namespace Veltra {

namespace {

/// Part of a text, not owned; what the tokenizer hands out, so that no word is copied.
struct Slice {
    const char* first = nullptr;
    const char* last = nullptr;

    void assign(const char* begin, const char* end) {
        first = begin;
        last = end;
    }
};

using Separator = boost::char_separator<char>;
using Tokenizer = boost::tokenizer<Separator, const char*, Slice>;

constexpr const char* kSentenceDelimiters = "-;|?.!,:()...<>[]{}\"";
constexpr const char* kWordDelimiter = " ";

/// The number that a key stands for, if it is written as PhraseKey writes it.
std::optional<std::uint64_t> KeyNumber(std::string_view key) {
    std::uint64_t number = 0;
    const char* end = key.data() + key.size();
    const auto [stop, error] = std::from_chars(key.data(), end, number);
    const bool leadingZero = key.size() > 1 && key.front() == '0';
    if (error != std::errc() || stop != end || leadingZero) return std::nullopt;
    return number;
}

void AddBytes(PhraseHash& hash, const Slice& word) {
    for (const char* byte = word.first; byte != word.last; ++byte)
        hash.Add(*byte);
}

}  // namespace

SensitiveWordFilter::SensitiveWordFilter() : words_(std::make_shared<WordList>()) {}

void SensitiveWordFilter::SetWords(const std::unordered_set<std::string>& keys,
                                   const std::uint32_t& limit) {
    auto words = std::make_shared<WordList>();
    words->limit = limit;
    words->keys.reserve(keys.size());
    for (const std::string& key : keys) {
        if (const auto number = KeyNumber(key)) words->keys.insert(*number);
    }
    std::shared_ptr<const WordList> next = std::move(words);
    const boost::unique_lock<boost::shared_mutex> lock(mutex_);
    words_.swap(next);  // the list before is freed after the lock: `next` was made before it
}

std::shared_ptr<const SensitiveWordFilter::WordList> SensitiveWordFilter::Words() const {
    const boost::shared_lock<boost::shared_mutex> lock(mutex_);
    return words_;
}

bool SensitiveWordFilter::HasSensitiveWords(const std::string& text) const {
    const std::shared_ptr<const WordList> list = Words();
    if (list->keys.empty()) return false;

    // The hash of a phrase goes on from that of the phrase one word shorter, so each start of a
    // sentence is hashed once, up to the limit, instead of once for every length.
    const auto startsPhrase = [&list](const std::vector<Slice>& words, std::size_t start) {
        PhraseHash hash;
        const std::size_t most = std::min<std::size_t>(list->limit, words.size() - start);
        for (std::size_t count = 0; count < most; ++count) {
            if (count > 0) hash.Add(' ');
            AddBytes(hash, words[start + count]);
            if (list->keys.contains(hash.Value())) return true;
        }
        return false;
    };

    const char* const begin = text.data();
    const Separator sentenceSeparator(kSentenceDelimiters);
    const Separator wordSeparator(kWordDelimiter);
    std::vector<Slice> words;
    for (const Slice& sentence : Tokenizer(begin, begin + text.size(), sentenceSeparator)) {
        words.clear();
        for (const Slice& word : Tokenizer(sentence.first, sentence.last, wordSeparator)) {
            words.push_back(word);
        }
        for (std::size_t start = 0; start < words.size(); ++start) {
            if (startsPhrase(words, start)) return true;
        }
    }
    return false;
}

}  // namespace Veltra
