#include "system_winhttp.h"

namespace Oak::Net {

bool OnWindowsItself() noexcept {
    static const bool windows =
        GetProcAddress(GetModuleHandleW(L"ntdll.dll"), "wine_get_version") == nullptr;
    return windows;
}

}  // namespace Oak::Net
