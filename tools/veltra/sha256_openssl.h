#pragma once

#include <string>
#include <string_view>

namespace tool {

/// The bytes' SHA-256 in lower-case hexadecimal digits.
std::string sha256(std::string_view bytes);

}  // namespace tool
