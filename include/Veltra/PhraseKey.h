#ifndef VELTRA_PHRASEKEY_H
#define VELTRA_PHRASEKEY_H

#include <Veltra/JsonText.h>

#include <cstdint>
#include <string>
#include <unordered_set>

namespace Veltra {

/// The 64-bit hash of a phrase, built byte by byte: the hash of a text continues from the hash of
/// any of its prefixes. It is a 64-bit hash-combine in the style of MurmurHash2, over the bytes as
/// signed characters. A plain value: one thread at a time may change it, and nothing here throws or
/// blocks.
class PhraseHash {
 public:
    /// Adds one byte.
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

    /// Returns the hash; more bytes may be added afterwards.
    /// @return the hash of the bytes added so far; 0 if there are none
    std::uint64_t Value() const { return value_; }

 private:
    static constexpr std::uint64_t kMultiplier = 0xC6A4A7935BD1E995U;
    std::uint64_t value_ = 0;
};

/// The key of a phrase for `Veltra_SetsitiveWords`.
///
/// The text is hashed as given: it is not escaped, checked, trimmed, case-folded or
/// Unicode-normalised. Queries are screened in the form that the host passes in, which is escaped
/// for JSON: `AddPhraseKeys` adds all the keys that a phrase needs. docs/screening.md shows why.
///
/// Header-only, so that a tool can compute keys without the library. Any thread may call it at any
/// time. It doesn't block, and throws only when memory can't be allocated.
///
/// @param phrase  the phrase as it appears in a text: UTF-8 words joined by single spaces, in
///                exactly the case and form to be found. A phrase with a sentence delimiter (any of
///                `- ; | ? . ! , : ( ) < > [ ] { }` and the double quote), or with more spaces,
///                gets a key that no text matches
/// @return the hash of the bytes, in decimal
inline std::string PhraseKey(const std::string& phrase) {
    PhraseHash hash;
    for (const char byte : phrase)
        hash.Add(byte);
    return std::to_string(hash.Value());
}

/// Adds all keys under which a phrase is found, for `Veltra_SetsitiveWords`: for the phrase in a
/// plain value, in a value that `EscapeJson` escaped, and in an escaped value before a closing
/// double quote, whose backslash stays on the last word. These are up to three keys; a phrase that
/// needs no escaping has two. A plain value with a backslash after the phrase is refused as well,
/// since it can't be told from an escaped one.
///
/// Nothing is added for a phrase that no text can contain: one without words, or with a sentence
/// delimiter (see `PhraseKey`). A phrase with more words than the limit that is passed with the
/// keys is never found either.
///
/// Header-only. Any thread may call it at any time, with a set of its own. It doesn't block, and
/// throws only when memory can't be allocated.
///
/// @param keys    the set to add to
/// @param phrase  the phrase, unescaped: UTF-8 words separated by any number of spaces, in exactly
///                the case and form to be found
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
