#ifndef VELTRA_TESTS_SUPPORT_SYSTEM_H
#define VELTRA_TESTS_SUPPORT_SYSTEM_H

#include <cstdint>
#include <ctime>

namespace support {

/// For a test that has no meaning on Windows: it says why it is skipped there.
#if defined(_WIN32)
inline constexpr bool onWindows = true;
#else
inline constexpr bool onWindows = false;
#endif

/// Sets the zone of the process by a text that every C runtime reads: "EST5EDT", "JST-9".
void SetTimeZone(const char* zone);

/// Normalises `utc` as the C library does; the instant.
std::int64_t UtcInstantOf(std::tm& utc);

}  // namespace support

#endif
