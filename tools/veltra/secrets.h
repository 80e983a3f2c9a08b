#pragma once

#include <string>

/// Secret keys that the program was given: whatever it shows, they are blotted out, should a gateway
/// send one back.

namespace tool {

/// Before the first call of the library.
void keepSecret(const std::string& secret);

std::string withoutSecrets(std::string text);

}  // namespace tool
