#pragma once

#include <string>
#include <string_view>

namespace tool {

/// Texts on their way to and from Windows. What is malformed comes out as U+FFFD.
std::wstring wideText(std::string_view utf8);
std::string utf8Text(std::wstring_view wide);

}  // namespace tool
