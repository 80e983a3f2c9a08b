#include "sha256_openssl.h"

#include <openssl/evp.h>

#include <array>
#include <stdexcept>

namespace tool {

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
