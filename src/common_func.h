#ifndef VELTRA_SRC_COMMON_FUNC_H
#define VELTRA_SRC_COMMON_FUNC_H

#include "time_expression.h"

#include <Oak/Base/Noncopyable.h>

#include <atomic>
#include <cstdint>
#include <ctime>
#include <string>
#include <vector>

namespace Veltra {

/// Converts relative time expressions to absolute local times, and does the calendar arithmetic for
/// that. The calendar is the Gregorian one without beginning or end, on wall-clock fields: no time
/// zone, no daylight saving, no lock. Its only state is the first day of the week; any thread may
/// call anything at any time.
///
/// Times are passed as std::tm, whose fields may lie outside their ranges until `normalise`.
/// Operations that change a time throw std::overflow_error when a field would not fit its 32 bits.
class TimeConvertr : private Oak::Base::CNoncopyable {
 public:
    /// The one instance of the process. It is there before any code runs and nothing destroys it,
    /// so threads may convert while the process ends.
    static TimeConvertr& GetInstance() noexcept;

    constexpr TimeConvertr() = default;

    /// `day`: 0 (Sunday) to 6, not checked here.
    void set_first_day_of_week(std::int32_t day) noexcept;

    /// The whole of ConvertTime, logging included. `result` is written on success only.
    bool RelativeToAbsolute(const std::string& expression, std::string* result, std::int64_t now,
                            bool startOfDay) const;

    /// Splits `text` into terms. False, logged and with `terms` as it was, when text follows the
    /// last one; std::out_of_range when the digits of one don't fit its value.
    static bool parse_time_string(const std::string& text, std::vector<TimeTerm>& terms);

    /// A copy of `base`, whose weekday must be right, with the terms applied in their order.
    std::tm apply_terms(const std::tm& base, const std::vector<TimeTerm>& terms) const;

    /// Moves `time` to the end of its minute, hour, month, week or year; the units y m d w h M.
    static void to_period_end(std::tm& time, char unit);

    /// "YYYY-MM-DD HH:MM:SS", or, logged, the empty text when `time` is not valid or its year has
    /// no four digits.
    static std::string format_time(const std::tm& time);

    /// Whether every field but the year lies in its range and the day exists in its month.
    static bool is_valid_time(const std::tm& time) noexcept;

    /// `year` is counted from 1900 in both.
    static bool is_leap_year(std::int32_t year) noexcept;
    /// `month`: 0 to 11, nothing else.
    static std::int32_t days_in_month(std::int32_t month, std::int32_t year) noexcept;

    /// Folds every field outside its range into the next larger one, computes weekday and day of
    /// the year, and clears the daylight-saving flag.
    static void normalise(std::tm& time);

 private:
    std::atomic<std::int32_t> firstDayOfWeek_{0};
};

}  // namespace Veltra

#endif
