#pragma once

#include <cstddef>
#include <string>
#include <unordered_set>
#include <vector>

namespace tool {

/// The gateway takes no more with one feedback.
inline constexpr std::size_t kMostPictures = 4;

/// Reads picture files, each into base64 text, as the layer takes them; tells a person who watches
/// of each. A file that doesn't begin as a JPEG does costs a warning. Throws UsageError.
std::unordered_set<std::string> loadPictures(const std::vector<std::string>& files);

}  // namespace tool
