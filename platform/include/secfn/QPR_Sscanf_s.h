#ifndef SECFN_QPR_SSCANF_S_H
#define SECFN_QPR_SSCANF_S_H

#include <cstdint>

#if defined(__GNUC__)
#define SECFN_SCANF_CHECK(text, first) __attribute__((format(scanf, text, first)))
#else
#define SECFN_SCANF_CHECK(text, first)
#endif

/// Scans `text` like the standard sscanf_s and returns the number of fields assigned, or -1 if the
/// text ends before the first. One pointer per field.
std::int32_t QPR_Sscanf_s(const char* text, const char* format, ...) SECFN_SCANF_CHECK(2, 3);

#endif
