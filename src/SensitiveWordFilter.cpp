#include "SensitiveWordFilter.h"

#include <Veltra/PhraseKey.h>

#include <boost/container/small_vector.hpp>
#include <boost/thread/lock_types.hpp>
#include <boost/tokenizer.hpp>

#include <algorithm>
#include <array>
#include <bit>
#include <charconv>
#include <cstddef>
#include <optional>
#include <string_view>
#include <system_error>

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

using ByteSet = std::array<bool, 256>;

constexpr ByteSet Bytes(std::string_view text) {
    ByteSet set{};
    for (const char byte : text)
        set[static_cast<unsigned char>(byte)] = true;
    return set;
}

constexpr ByteSet kSentenceDelimiters = Bytes("-;|?.!,:()...<>[]{}\"");
constexpr ByteSet kWordDelimiter = Bytes(" ");

/// Tells the tokenizer that any run of delimiters parts two tokens and none is empty. Each byte
/// costs a look into a table, and the tokenizer's many copies of this cost nothing.
template <const ByteSet& delimiters>
struct PartedBy {
    static bool IsDelimiter(char byte) { return delimiters[static_cast<unsigned char>(byte)]; }

    void reset() {}

    template <class Token>
    bool operator()(const char*& next, const char* end, Token& token) const {
        const char* const begin = std::find_if_not(next, end, IsDelimiter);
        next = std::find_if(begin, end, IsDelimiter);
        token.assign(begin, next);
        return begin != end;
    }
};

using Sentences = boost::tokenizer<PartedBy<kSentenceDelimiters>, const char*, Slice>;
using SentenceWords = boost::tokenizer<PartedBy<kWordDelimiter>, const char*, Slice>;

/// The number that a key stands for, if it is written as PhraseKey writes it.
std::optional<std::uint64_t> KeyNumber(std::string_view key) {
    std::uint64_t number = 0;
    const char* end = key.data() + key.size();
    const auto [stop, error] = std::from_chars(key.data(), end, number);
    const bool leadingZero = key.size() > 1 && key.front() == '0';
    if (error != std::errc() || stop != end || leadingZero) return std::nullopt;
    return number;
}

void AddWord(PhraseHash& hash, const Slice& word) {
    for (const char* byte = word.first; byte != word.last; ++byte)
        hash.Add(*byte);
}

/// The phrases of a sentence that end with the word taken last. Their hashes go on with the next
/// word, so no phrase is hashed from its beginning twice.
class LastPhrases {
 public:
    /// `limit`: the most words of a phrase, 1 at least.
    explicit LastPhrases(std::uint32_t limit) : limit_(limit) {}

    void BeginSentence() { hashes_.clear(); }

    void Take(const Slice& word) {
        if (hashes_.size() == limit_) hashes_.erase(hashes_.begin());
        for (PhraseHash& hash : hashes_) {
            hash.Add(' ');
            AddWord(hash, word);
        }
        AddWord(hashes_.emplace_back(), word);
    }

    auto begin() const { return hashes_.begin(); }
    auto end() const { return hashes_.end(); }

 private:
    const std::uint32_t limit_;
    boost::container::small_vector<PhraseHash, 8> hashes_;  // longest first
};

}  // namespace

SensitiveWordFilter::WordList::WordList(std::uint32_t mostWords,
                                        const std::unordered_set<std::string>& texts)
    : limit(mostWords) {
    keys.reserve(texts.size());
    for (const std::string& text : texts) {
        if (const auto number = KeyNumber(text)) keys.insert(*number);
    }
    marks.resize(std::bit_ceil(keys.size() * 16 + 1));
    for (const std::uint64_t key : keys)
        marks[key & (marks.size() - 1)] = true;
}

SensitiveWordFilter::SensitiveWordFilter()
    : words_(std::make_shared<WordList>(3, std::unordered_set<std::string>())) {}

void SensitiveWordFilter::SetWords(const std::unordered_set<std::string>& keys,
                                   const std::uint32_t& limit) {
    std::shared_ptr<const WordList> next = std::make_shared<WordList>(limit, keys);
    const boost::unique_lock<boost::shared_mutex> lock(mutex_);
    anyPhrase_.store(limit != 0 && !next->keys.empty());
    words_.swap(next);  // the list before is freed after the lock: `next` was made before it
}

std::shared_ptr<const SensitiveWordFilter::WordList> SensitiveWordFilter::Words() const {
    const boost::shared_lock<boost::shared_mutex> lock(mutex_);
    return words_;
}

bool SensitiveWordFilter::HasSensitiveWords(const std::string& text) const {
    if (!anyPhrase_.load()) return false;
    const std::shared_ptr<const WordList> list = Words();
    if (list->keys.empty() || list->limit == 0) return false;  // replaced meanwhile

    const auto isListed = [&list](const PhraseHash& hash) { return list->Contains(hash.Value()); };
    const char* const begin = text.data();
    LastPhrases phrases(list->limit);
    for (const Slice& sentence : Sentences(begin, begin + text.size(), {})) {
        phrases.BeginSentence();
        for (const Slice& word : SentenceWords(sentence.first, sentence.last, {})) {
            phrases.Take(word);
            if (std::any_of(phrases.begin(), phrases.end(), isListed)) return true;
        }
    }
    return false;
}

}  // namespace Veltra
