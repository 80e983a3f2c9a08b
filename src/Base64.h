#ifndef VELTRA_SRC_BASE64_H
#define VELTRA_SRC_BASE64_H

#include <string>
#include <vector>

namespace Veltra {

/// The bytes of a base64 text in the standard alphabet, without line breaks. Empty, and logged,
/// when the text is empty or the decoder fails; where the text stops being base64 the bytes stop,
/// and nothing is logged. Any thread may call it.
std::vector<unsigned char> base64_decode(const std::string& text);

}  // namespace Veltra

#endif
