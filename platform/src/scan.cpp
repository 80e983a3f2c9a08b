#include <secfn/QPR_Sscanf_s.h>

#include <cstdarg>
#include <cstdio>

// NOLINTBEGIN(cert-dcl50-cpp): the interface is scanf's.
// NOLINTBEGIN(clang-analyzer-valist.Uninitialized): the analyser doesn't see va_start.
std::int32_t QPR_Sscanf_s(const char* text, const char* format, ...) {
    std::va_list fields;
    va_start(fields, format);
    const int assigned = std::vsscanf(text, format, fields);
    va_end(fields);
    return assigned == EOF ? -1 : assigned;
}
// NOLINTEND(clang-analyzer-valist.Uninitialized)
// NOLINTEND(cert-dcl50-cpp)
