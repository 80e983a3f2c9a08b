#ifndef OAK_BASE_LOCALTIME_H
#define OAK_BASE_LOCALTIME_H

#include <cstdint>
#include <ctime>

namespace Oak::Base {

/// Converts an instant, in seconds since 1970-01-01 00:00:00 UTC, to civil time in the process's
/// time zone. Returns false, with `civil` unspecified, if the platform has no civil time for it.
/// Any thread may call it. The zone is the one that the C runtime is using: the library never
/// rereads the environment, so a host that changes TZ calls tzset() itself.
bool LocalTime(std::int64_t seconds, std::tm& civil) noexcept;

}  // namespace Oak::Base

#endif
