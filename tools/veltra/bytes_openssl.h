#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace tool {

/// The most bytes that encodeBase64() takes.
inline constexpr std::size_t kMostEncodedBytes = std::size_t{1} << 30;

/// The bytes as base64 text: standard alphabet, padded, without line breaks.
std::string encodeBase64(std::string_view bytes);

/// The bytes' SHA-256 in lower-case hexadecimal digits.
std::string sha256(std::string_view bytes);

}  // namespace tool
