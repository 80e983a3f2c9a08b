#include "Log.h"
#include "common_func.h"

#include <Oak/Base/Process.h>
#include <Veltra/TimeConversion.h>

namespace Veltra {

bool ConvertTime(const std::string& expression, std::string& result, std::int64_t now,
                 bool startOfDay) {
    if (Oak::Base::OtherThreadsGone()) return false;
    return TimeConvertr::GetInstance().RelativeToAbsolute(expression, &result, now, startOfDay);
}

bool SetFirstDayOfWeek(FirstDayOfWeek day) {
    VELTRA_OPERATION(operation);
    if (Oak::Base::OtherThreadsGone()) return false;
    const auto number = static_cast<std::int32_t>(day);
    if (number < 0 || number > 6) return false;
    TimeConvertr::GetInstance().set_first_day_of_week(number);
    VELTRA_LOG(operation, 3, "Set first day of week is %d", number);
    return true;
}

}  // namespace Veltra
