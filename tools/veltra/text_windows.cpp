#include "text_windows.h"

#include "system_windows.h"

#include <cstddef>

namespace tool {

std::wstring wideText(std::string_view utf8) {
    const int size = static_cast<int>(utf8.size());
    const int wideSize = MultiByteToWideChar(CP_UTF8, 0, utf8.data(), size, nullptr, 0);
    std::wstring wide(static_cast<std::size_t>(wideSize), L'\0');
    MultiByteToWideChar(CP_UTF8, 0, utf8.data(), size, wide.data(), wideSize);
    return wide;
}

std::string utf8Text(std::wstring_view wide) {
    const int size = static_cast<int>(wide.size());
    const int utf8Size =
        WideCharToMultiByte(CP_UTF8, 0, wide.data(), size, nullptr, 0, nullptr, nullptr);
    std::string utf8(static_cast<std::size_t>(utf8Size), '\0');
    WideCharToMultiByte(CP_UTF8, 0, wide.data(), size, utf8.data(), utf8Size, nullptr, nullptr);
    return utf8;
}

}  // namespace tool
