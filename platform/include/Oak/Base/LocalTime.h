#ifndef OAK_BASE_LOCALTIME_H
#define OAK_BASE_LOCALTIME_H

#include <cstdint>
#include <ctime>

namespace Oak::Base {

/// Civil time in the time zone of the process of an instant, in seconds since 1970-01-01 00:00:00
/// UTC. False, with `civil` unspecified, when the platform has no civil time for it. Any thread may
/// call it. The zone is the one that the C runtime has in use: the library never reads the
/// environment again, so a host that changes TZ calls tzset() itself.
bool LocalTime(std::int64_t seconds, std::tm& civil) noexcept;

}  // namespace Oak::Base

#endif
