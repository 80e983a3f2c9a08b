#include <Oak/Base/StandardStreams.h>

#include <windows.h>

#include <algorithm>
#include <cstddef>

namespace Oak::Base {
namespace {

// Past the C runtime: its text mode would change what is written, and its own lock may be one of
// the host's. A program without a console has no handle here, and nothing is written.
void Write(DWORD stream, std::string_view text) noexcept {
    const DWORD errorBefore = GetLastError();
    auto* const handle = GetStdHandle(stream);
    constexpr std::size_t most = std::size_t{1} << 30;
    while (handle != nullptr && handle != INVALID_HANDLE_VALUE && !text.empty()) {
        DWORD written = 0;
        const auto size = static_cast<DWORD>(std::min(text.size(), most));
        if (WriteFile(handle, text.data(), size, &written, nullptr) == 0 || written == 0) break;
        text.remove_prefix(written);
    }
    SetLastError(errorBefore);
}

}  // namespace

void WriteStandardOutput(std::string_view text) noexcept {
    Write(STD_OUTPUT_HANDLE, text);
}

void WriteStandardError(std::string_view text) noexcept {
    Write(STD_ERROR_HANDLE, text);
}

}  // namespace Oak::Base
