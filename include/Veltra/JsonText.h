#ifndef VELTRA_JSONTEXT_H
#define VELTRA_JSONTEXT_H

/// @file
/// Escaping texts for requests.

#include <cstddef>
#include <string>

namespace Veltra {

/// For `EscapeJson` only. Not part of the interface: it may change at any time.
namespace JsonTextDetail {

/// Whether a byte lies in a range.
/// @param text   any bytes
/// @param at     the position of the byte; beyond the end there is none
/// @param first  the smallest value accepted
/// @param last   the largest value accepted
/// @return whether there is such a byte
inline bool IsByteAt(const std::string& text, std::size_t at, unsigned first, unsigned last) {
    if (at >= text.size()) return false;
    const unsigned byte = static_cast<unsigned char>(text[at]);
    return first <= byte && byte <= last;
}

/// Measures a UTF-8 character. Overlong forms, surrogates and code points above U+10FFFF are not
/// well-formed.
/// @param text  any bytes
/// @param at    the position where the character begins, before the end
/// @return the number of its bytes; 0 if they are not well-formed UTF-8
inline std::size_t CharacterLength(const std::string& text, std::size_t at) {
    const unsigned lead = static_cast<unsigned char>(text[at]);
    if (lead < 0x80) return 1;
    if (lead < 0xC2 || lead > 0xF4) return 0;
    const unsigned first = lead == 0xE0 ? 0xA0U : lead == 0xF0 ? 0x90U : 0x80U;
    const unsigned last = lead == 0xED ? 0x9FU : lead == 0xF4 ? 0x8FU : 0xBFU;
    if (!IsByteAt(text, at + 1, first, last)) return 0;
    const std::size_t length = lead < 0xE0 ? 2 : lead < 0xF0 ? 3 : 4;
    for (std::size_t i = 2; i < length; ++i)
        if (!IsByteAt(text, at + i, 0x80, 0xBF)) return 0;
    return length;
}

/// Appends an ASCII character in the shortest form that JSON allows.
/// @param escaped  what is appended to
/// @param c        the character
inline void AppendEscaped(std::string& escaped, char c) {
    const unsigned byte = static_cast<unsigned char>(c);
    // The letter after the backslash for each byte below U+0020; u: there is no short form.
    static const char letters[] = "uuuuuuuubtnufruuuuuuuuuuuuuuuuuu";
    if (c == '"' || c == '\\') {
        escaped += '\\';
        escaped += c;
    } else if (byte >= 0x20) {
        escaped += c;
    } else if (letters[byte] != 'u') {
        escaped += '\\';
        escaped += letters[byte];
    } else {
        escaped += "\\u00";
        escaped += "0123456789abcdef"[byte >> 4];
        escaped += "0123456789abcdef"[byte & 0xF];
    }
}

}  // namespace JsonTextDetail

/// Escapes a text for use between the quotes of a JSON string. The library puts texts into requests
/// unchanged, so pass every text through here that isn't known to be plain, users' texts above all.
///
/// The double quote, the backslash and the control characters below U+0020 are escaped, each in its
/// shortest form; everything else, UTF-8 included, stays as it is. JSON asks for no more than that,
/// and escaping more would hide words from the phrase list, which is compared with values as they
/// are sent.
///
/// A byte that isn't part of well-formed UTF-8 becomes U+FFFD. Bytes in another encoding would make
/// a gateway refuse the whole request, or make a lenient one read past the closing quote. A host
/// that would rather reject such a text checks it first.
///
/// The result is fit for a request whatever the input, but a text that is already escaped is
/// escaped twice. Header-only. Any thread may call it at any time. It doesn't block, and throws
/// only when memory can't be allocated.
///
/// @param text  any bytes, meant to be UTF-8
/// @return the escaped text, without quotes around it
inline std::string EscapeJson(const std::string& text) {
    std::string escaped;
    escaped.reserve(text.size());
    for (std::size_t at = 0; at < text.size();) {
        const std::size_t length = JsonTextDetail::CharacterLength(text, at);
        if (length == 1)
            JsonTextDetail::AppendEscaped(escaped, text[at]);
        else if (length == 0)
            escaped += "\xEF\xBF\xBD";  // U+FFFD
        else
            escaped.append(text, at, length);
        at += length == 0 ? 1 : length;
    }
    return escaped;
}

}  // namespace Veltra

#endif
