#include <Oak/Base/LocalTime.h>

#include <time.h>

#include <utility>

namespace Oak::Base {

bool LocalTime(std::int64_t seconds, std::tm& civil) noexcept {
    // A time_t of 32 bits would fold later instants into the last century.
    if (!std::in_range<std::time_t>(seconds)) return false;
    const auto instant = static_cast<std::time_t>(seconds);
    return localtime_r(&instant, &civil) != nullptr;
}

}  // namespace Oak::Base
