#ifndef VELTRA_PHRASEKEY_H
#define VELTRA_PHRASEKEY_H

#include <Veltra/JsonText.h>

#include <cstdint>
#include <string>
#include <unordered_set>

namespace Veltra {

/// The 64-bit hash of a phrase, built byte by byte, so that the hash of a text goes on from the
/// hash of any text that it begins with. It is the 64-bit hash-combine in the manner of
/// MurmurHash2 over the bytes as signed characters. A plain value: one thread at a time may change
/// it, and nothing here throws or blocks.
class PhraseHash {
 public:
    /// Goes on with one byte.
    /// @param byte  any byte
    void Add(char byte) {
        // Bytes from 0x80 on are sign-extended, whatever the platform's plain char is.
        std::uint64_t k =
            static_cast<std::uint64_t>(static_cast<std::int64_t>(static_cast<signed char>(byte)));
        k *= kMultiplier;
        k ^= k >> 47;
        k *= kMultiplier;
        value_ ^= k;
        value_ *= kMultiplier;
        value_ += 0xE6546B64U;
    }

    /// Looks at the hash, which may go on afterwards.
    /// @return the hash of the bytes added so far; 0 without any
    std::uint64_t Value() const { return value_; }

 private:
    static constexpr std::uint64_t kMultiplier = 0xC6A4A7935BD1E995U;
    std::uint64_t value_ = 0;
};

/// The key of a phrase for `Veltra_SetsitiveWords`.
///
/// The text is hashed as given: it is not escaped, checked, trimmed, brought to one case or into
/// one Unicode form. Queries are screened in the form that the host hands in, which is escaped for
/// JSON: `AddPhraseKeys` gives all keys that a phrase needs. docs/screening.md shows why.
///
/// Header-only, so that a tool can compute keys without the library. Any thread may call it at any
/// time. It doesn't block, and throws only when memory can't be allocated.
///
/// @param phrase  the phrase as it stands in a text: words joined by single spaces, UTF-8, in the
///                very case and form that is to be found. One with a sentence delimiter (any of
///                `- ; | ? . ! , : ( ) < > [ ] { }` and the double quote), or with more spaces,
///                gets a key that no text matches
/// @return the hash of the bytes, in decimal
inline std::string PhraseKey(const std::string& phrase) {
    PhraseHash hash;
    for (const char byte : phrase)
        hash.Add(byte);
    return std::to_string(hash.Value());
}

/// Adds all keys under which a phrase is found, for `Veltra_SetsitiveWords`: of the phrase as it
/// stands in a plain value, as it stands in a value that `EscapeJson` escaped, and as it stands
/// there before a closing double quote, whose backslash stays on the last word. Up to three keys; a
/// phrase that needs no escaping has two. A plain value with a backslash behind the phrase is refused
/// as well: from here it can't be told from an escaped one.
///
/// A phrase that no text can hold adds nothing: one without a word, and one with a sentence
/// delimiter (see `PhraseKey`). A phrase of more words than the limit that is handed in with the
/// keys is never found either.
///
/// Header-only. Any thread may call it at any time, with a set of its own. It doesn't block, and
/// throws only when memory can't be allocated.
///
/// @param keys    the set that the keys join
/// @param phrase  the phrase, not escaped: words parted by any number of spaces, UTF-8, in the very
///                case and form that is to be found
inline void AddPhraseKeys(std::unordered_set<std::string>& keys, const std::string& phrase) {
    std::string plain;  // its words with single spaces between them, as the layer compares them
    for (const char byte : phrase)
        if (byte != ' ' || (!plain.empty() && plain.back() != ' ')) plain += byte;
    if (!plain.empty() && plain.back() == ' ') plain.pop_back();
    if (plain.empty() || plain.find_first_of("-;|?.!,:()<>[]{}\"") != std::string::npos) return;

    const std::string escaped = EscapeJson(plain);
    keys.insert(PhraseKey(plain));
    keys.insert(PhraseKey(escaped));
    keys.insert(PhraseKey(escaped + '\\'));
}

}  // namespace Veltra

#endif
