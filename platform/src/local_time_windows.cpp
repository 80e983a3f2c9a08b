#include <Oak/Base/LocalTime.h>

#include <time.h>

namespace Oak::Base {

// The C runtime's own function knows the zone and its daylight saving rules; it takes no instant
// before 1970.
bool LocalTime(std::int64_t seconds, std::tm& civil) noexcept {
    const __time64_t instant = seconds;
    return _localtime64_s(&civil, &instant) == 0;
}

}  // namespace Oak::Base
