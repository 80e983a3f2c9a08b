#pragma once

#include <span>
#include <string>

namespace gateway {

/// Two lower-case digits a byte.
std::string toHex(std::span<const unsigned char> bytes);
/// 48 digits that nobody can guess. Throws std::runtime_error when there is no randomness.
std::string randomHex();

}  // namespace gateway
