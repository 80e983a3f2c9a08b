#include "hex.h"

#include <openssl/rand.h>

#include <array>
#include <stdexcept>
#include <string_view>

namespace gateway {

std::string toHex(std::span<const unsigned char> bytes) {
    constexpr std::string_view kDigits = "0123456789abcdef";
    std::string text;
    text.reserve(2 * bytes.size());
    for (const auto byte : bytes)
        text += {kDigits[byte >> 4], kDigits[byte & 0xF]};
    return text;
}

std::string randomHex() {
    std::array<unsigned char, 24> bytes{};
    if (RAND_bytes(bytes.data(), static_cast<int>(bytes.size())) != 1)
        throw std::runtime_error("no random bytes");
    return toHex(bytes);
}

}  // namespace gateway
