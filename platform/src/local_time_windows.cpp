#include <Oak/Base/LocalTime.h>

#include <time.h>

#include <utility>

namespace Oak::Base {

// The C runtime's own function knows the zone and its daylight saving rules; it takes no instant
// before 1970.
bool LocalTime(std::int64_t seconds, std::tm& civil) noexcept {
    return std::in_range<__time64_t>(seconds) && _localtime64_s(&civil, &seconds) == 0;
}

}  // namespace Oak::Base
