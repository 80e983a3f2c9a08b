#include "bytes_openssl.h"

#include <openssl/evp.h>

#include <array>
#include <stdexcept>

namespace tool {

std::string encodeBase64(std::string_view bytes) {
    // The encoder counts input and output in ints: 4/3 of 1 GiB still fit.
    if (bytes.size() > kMostEncodedBytes) throw std::length_error("too long for base64");
    constexpr std::size_t kEndMark = 1;  // it writes a NUL behind the text
    std::string text((bytes.size() + 2) / 3 * 4 + kEndMark, '\0');
    const int written = EVP_EncodeBlock(reinterpret_cast<unsigned char*>(text.data()),
                                        reinterpret_cast<const unsigned char*>(bytes.data()),
                                        static_cast<int>(bytes.size()));
    text.resize(static_cast<std::size_t>(written));
    return text;
}

std::string sha256(std::string_view bytes) {
    std::array<unsigned char, 32> digest{};
    if (EVP_Digest(bytes.data(), bytes.size(), digest.data(), nullptr, EVP_sha256(), nullptr) != 1)
        throw std::runtime_error("SHA-256 is not to be had");
    constexpr std::string_view kDigits = "0123456789abcdef";
    std::string text;
    for (const auto byte : digest)
        text += {kDigits[byte >> 4], kDigits[byte & 0xF]};
    return text;
}

}  // namespace tool
