#ifndef VELTRA_BASE64_H
#define VELTRA_BASE64_H

#include <cstddef>
#include <string>

namespace Veltra {

/// Encodes bytes as base64 with the standard alphabet, padding and no line breaks, the form in
/// which `LLMComment::SetPictures` takes pictures.
///
/// Header-only. Any thread may call it at any time. It doesn't block, and throws only when memory
/// can't be allocated: the text takes a third more than the bytes.
///
/// @param bytes  the first byte; may be null if `size` is 0
/// @param size   the number of bytes
/// @return the text; empty if `size` is 0
inline std::string EncodeBase64(const void* bytes, std::size_t size) {
    static const char alphabet[] =
        "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    const unsigned char* const input = static_cast<const unsigned char*>(bytes);
    std::string text;
    text.reserve((size / 3 + 1) * 4);
    for (std::size_t at = 0; at < size; at += 3) {
        const std::size_t left = size - at;
        const unsigned second = left > 1 ? input[at + 1] : 0U;
        const unsigned third = left > 2 ? input[at + 2] : 0U;
        text += alphabet[input[at] >> 2];
        text += alphabet[(input[at] & 0x3U) << 4 | second >> 4];
        text += left > 1 ? alphabet[(second & 0xFU) << 2 | third >> 6] : '=';
        text += left > 2 ? alphabet[third & 0x3FU] : '=';
    }
    return text;
}

}  // namespace Veltra

#endif
