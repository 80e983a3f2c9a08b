#include "common_func.h"

#include "Log.h"

#include <Oak/Base/LocalTime.h>
#include <secfn/QPR_Sscanf_s.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstddef>
#include <exception>
#include <stdexcept>
#include <string_view>
#include <type_traits>
#include <utility>

namespace Veltra {
namespace {

static_assert(sizeof(int) == sizeof(std::int32_t), "the fields of std::tm are 32 bits wide");

constexpr std::int64_t endOfYear3000 = 32535215999;  // 3000-12-31 23:59:59 UTC
constexpr int tmEpoch = 1900;                        // tm_year counts from here

struct Clock {
    int hour;
    int minute;
    int second;
};

constexpr Clock firstSecond{0, 0, 0};
constexpr Clock lastSecond{23, 59, 59};

bool Within(int value, int low, int high) {
    return low <= value && value <= high;
}

bool IsOnTheDial(const Clock& clock) {
    return Within(clock.hour, 0, 23) && Within(clock.minute, 0, 59) && Within(clock.second, 0, 59);
}

void SetClock(std::tm& time, const Clock& clock) {
    time.tm_hour = clock.hour;
    time.tm_min = clock.minute;
    time.tm_sec = clock.second;
}

/// Minutes may be written "min", once; "T" may stand anywhere for the eye.
std::string WithoutSpellings(std::string text) {
    const std::size_t minutes = text.find("min");
    if (minutes != std::string::npos) {
        text[minutes] = 'M';
        text.erase(minutes + 1, 2);
    }
    std::erase(text, 'T');
    return text;
}

std::tm WallClock(std::int64_t now) {
    std::tm local{};
    if (now > endOfYear3000 || !Oak::Base::LocalTime(now, local)) {
        throw std::out_of_range("now has no local time");
    }
    local.tm_isdst = 0;
    return local;
}

/// Whether the expression is about hours, minutes or seconds, judged by its last character.
bool KeepsClock(std::string_view text) {
    if (text.empty()) return true;
    const std::size_t last = text.size() - 1;
    return text.find('h') == last || text.find('M') == last || text.find('s') == last;
}

constexpr std::size_t hourMinuteLength = 5;
constexpr std::size_t hourMinuteSecondLength = 8;

Clock ReadClock(const char* text, std::size_t length) {
    Clock clock{};
    const bool complete =
        length == hourMinuteSecondLength
            ? QPR_Sscanf_s(text, "%d:%d:%d", &clock.hour, &clock.minute, &clock.second) >= 3
            : QPR_Sscanf_s(text, "%d:%d", &clock.hour, &clock.minute) >= 2;
    if (!complete) throw std::invalid_argument("Time format error");
    return clock;
}

enum class ClockRule { applied, badLength, offTheDial };

/// Gives `base` the clock time that `text` asks for, and cuts an explicit one off `text`.
ClockRule ApplyClockRule(std::string& text, bool startOfDay, std::tm& base) {
    if (KeepsClock(text)) return ClockRule::applied;
    Clock clock = startOfDay ? firstSecond : lastSecond;
    const std::size_t day = text.find('d');
    if (day != std::string::npos && day + 1 < text.size()) {
        const std::size_t length = text.size() - day - 1;
        if (length != hourMinuteLength && length != hourMinuteSecondLength) {
            return ClockRule::badLength;
        }
        clock = ReadClock(text.c_str() + day + 1, length);
        if (!IsOnTheDial(clock)) return ClockRule::offTheDial;
        text.resize(day + 1);
    }
    SetClock(base, clock);
    return ClockRule::applied;
}

int Checked(std::int64_t value) {
    if (!std::in_range<int>(value)) throw std::overflow_error("time field out of range");
    return static_cast<int>(value);
}

/// `amount`: at most 7 * 2^31 either way, so that the sum stays far inside 64 bits.
void Add(int& field, std::int64_t amount) {
    field = Checked(field + amount);
}

struct Folded {
    std::int64_t carry;
    int rest;  // 0 to size - 1
};

Folded Fold(std::int64_t value, int size) {
    const auto rest = static_cast<int>(value % size);
    return rest < 0 ? Folded{value / size - 1, rest + size} : Folded{value / size, rest};
}

struct CivilDate {
    std::int64_t year;
    int month;  // 0 to 11
    int day;
    int weekday;  // 0 is Sunday
    int dayOfYear;
};

/// The date so many days, which may be below 0, after the first of a month. The calendar, weekdays
/// included, repeats after 400 years of 146097 days, so the date is worked out in the cycle that
/// begins with 2000, or the one after, where std::chrono has its years.
CivilDate DateAfter(std::int64_t year, int month, std::int64_t days) {
    const auto [cyclesOfYears, yearOfCycle] = Fold(year, 400);
    const auto [cyclesOfDays, dayOfCycle] = Fold(days, 146097);
    const std::chrono::year_month_day firstOfMonth{
        std::chrono::year(2000 + yearOfCycle), std::chrono::month(static_cast<unsigned>(month) + 1),
        std::chrono::day(1)};
    const std::chrono::sys_days day =
        std::chrono::sys_days(firstOfMonth) + std::chrono::days(dayOfCycle);
    const std::chrono::year_month_day date(day);
    const std::chrono::sys_days newYear(date.year() / std::chrono::January / 1);
    return {int{date.year()} - 2000 + 400 * (cyclesOfYears + cyclesOfDays),
            static_cast<int>(unsigned{date.month()}) - 1, static_cast<int>(unsigned{date.day()}),
            static_cast<int>(std::chrono::weekday(day).c_encoding()),
            static_cast<int>((day - newYear).count())};
}

/// The field that a unit names; null for weeks and for the units that change nothing.
int* FieldOf(std::tm& time, char unit) {
    switch (unit) {
        case 'y':
            return &time.tm_year;
        case 'm':
            return &time.tm_mon;
        case 'd':
            return &time.tm_mday;
        case 'h':
            return &time.tm_hour;
        case 'M':
            return &time.tm_min;
        case 's':
            return &time.tm_sec;
        default:
            return nullptr;
    }
}

void AddTerm(std::tm& time, const TimeTerm& term, int firstDayOfWeek) {
    const std::int64_t amount = term.sign == '-' ? -std::int64_t{term.value} : term.value;
    if (term.unit == 'w') {
        const int daysIntoWeek = term.tilde ? 0 : (time.tm_wday - firstDayOfWeek + 7) % 7;
        Add(time.tm_mday, 7 * amount - daysIntoWeek);
    } else if (int* field = FieldOf(time, term.unit)) {
        Add(*field, amount);
    }
}

void SetTerm(std::tm& time, const TimeTerm& term, bool weekMode) {
    if (term.unit == 'd' && weekMode) {
        Add(time.tm_mday, std::int64_t{term.value} - 1);
    } else if (int* field = FieldOf(time, term.unit)) {
        const int first = term.unit == 'y' ? tmEpoch : term.unit == 'm' ? 1 : 0;
        *field = term.value - first;
    }
}

/// A month term between February and November leaves a day that the new month doesn't have for the
/// next term to deal with; around the turn of the year such a day folds over like any other.
bool LeavesStrayDay(const std::tm& time, char unit) {
    return unit == 'm' && Within(time.tm_mon, 1, 10) &&
           time.tm_mday > TimeConvertr::days_in_month(time.tm_mon, time.tm_year);
}

/// The low `width` digits of a number that isn't negative.
void AppendDigits(std::string& text, int number, std::size_t width) {
    text.append(width, '0');
    for (auto digit = text.rbegin(); number != 0 && width != 0; ++digit, --width, number /= 10) {
        *digit = static_cast<char>('0' + number % 10);
    }
}

}  // namespace

TimeConvertr& TimeConvertr::GetInstance() noexcept {
    static_assert(std::is_trivially_destructible_v<TimeConvertr>);
    static constinit TimeConvertr instance;
    return instance;
}

void TimeConvertr::set_first_day_of_week(std::int32_t day) noexcept {
    firstDayOfWeek_.store(day, std::memory_order_relaxed);
}

bool TimeConvertr::RelativeToAbsolute(const std::string& expression, std::string* result,
                                      std::int64_t now, bool startOfDay) const {
    VELTRA_OPERATION(operation);
    VELTRA_LOG(operation, 3, "Deal Time input:%s,now:%d", expression.c_str(),
               static_cast<std::int32_t>(now));
    if (expression.empty() || now < 0) {
        VELTRA_LOG(operation, 5, "Param error");
        return false;
    }
    try {
        std::string text = WithoutSpellings(expression);
        std::tm base = WallClock(now);
        const ClockRule rule = ApplyClockRule(text, startOfDay, base);
        if (rule == ClockRule::badLength) {
            VELTRA_LOG(operation, 5, "Ivalid time format");
        }
        if (rule != ClockRule::applied) return false;
        std::vector<TimeTerm> terms;
        if (!parse_time_string(text, terms)) return false;
        *result = format_time(apply_terms(base, terms));
        VELTRA_LOG(operation, 2, "output:%s", result->c_str());
        return true;
    } catch (const std::exception& error) {
        VELTRA_LOG(operation, 5, "Exception :%s", error.what());
        return false;
    }
}

bool TimeConvertr::parse_time_string(const std::string& text, std::vector<TimeTerm>& terms) {
    VELTRA_OPERATION(operation);
    std::vector<TimeTerm> found;
    // A term has two characters at least: one allocation for any expression that people write.
    found.reserve(std::min<std::size_t>(text.size() / 2, 8));
    std::string_view rest = text;
    while (const auto term = TakeTerm(rest))
        found.push_back(*term);
    if (!rest.empty()) {
        // The rest is the tail of a zero-terminated text.
        VELTRA_LOG(operation, 5, "Invalid format:%s", rest.data());
        return false;
    }
    terms = std::move(found);
    return true;
}

std::tm TimeConvertr::apply_terms(const std::tm& base, const std::vector<TimeTerm>& terms) const {
    const int firstDayOfWeek = firstDayOfWeek_.load(std::memory_order_relaxed);
    std::tm time = base;
    bool weekMode = false;
    for (const TimeTerm& term : terms) {
        const bool relative = term.sign != 0 && !term.tilde;
        if (term.tilde) to_period_end(time, term.unit);
        if (term.tilde || relative) {
            AddTerm(time, term, firstDayOfWeek);
        } else {
            SetTerm(time, term, weekMode);
        }
        if (relative && term.unit == 'w') weekMode = true;
        if (!LeavesStrayDay(time, term.unit)) normalise(time);
    }
    return time;
}

void TimeConvertr::to_period_end(std::tm& time, char unit) {
    switch (unit) {
        case 'h':
            time.tm_min = 59;
            [[fallthrough]];
        case 'M':
            time.tm_sec = 59;
            return;
        case 'd':
        case 'm':
            Add(time.tm_mon, 1);
            time.tm_mday = 0;
            return normalise(time);
        case 'w':
            Add(time.tm_mday, 6 - time.tm_wday);
            return normalise(time);
        case 'y':
            time.tm_mon = 11;
            time.tm_mday = 31;
            return normalise(time);
        default:
            return;
    }
}

std::string TimeConvertr::format_time(const std::tm& time) {
    VELTRA_OPERATION(operation);
    const std::int64_t year = std::int64_t{time.tm_year} + tmEpoch;
    if (!is_valid_time(time) || year < 0 || year > 9999) {
        VELTRA_LOG(operation, 5, "Invalid time format");
        return {};
    }
    std::string text;
    text.reserve(std::string_view("YYYY-MM-DD HH:MM:SS").size());
    AppendDigits(text, static_cast<int>(year), 4);
    const std::array<std::pair<char, int>, 5> fields{{{'-', time.tm_mon + 1},
                                                      {'-', time.tm_mday},
                                                      {' ', time.tm_hour},
                                                      {':', time.tm_min},
                                                      {':', time.tm_sec}}};
    for (const auto& [separator, value] : fields) {
        text += separator;
        AppendDigits(text, value, 2);
    }
    return text;
}

bool TimeConvertr::is_valid_time(const std::tm& time) noexcept {
    return Within(time.tm_sec, 0, 60) && Within(time.tm_min, 0, 59) &&
           Within(time.tm_hour, 0, 23) && Within(time.tm_mon, 0, 11) &&
           Within(time.tm_wday, 0, 6) && Within(time.tm_yday, 0, 365) &&
           Within(time.tm_isdst, -1, 1) &&
           Within(time.tm_mday, 1, days_in_month(time.tm_mon, time.tm_year));
}

bool TimeConvertr::is_leap_year(std::int32_t year) noexcept {
    const std::int64_t calendarYear = std::int64_t{year} + tmEpoch;
    return calendarYear % 4 == 0 && (calendarYear % 100 != 0 || calendarYear % 400 == 0);
}

std::int32_t TimeConvertr::days_in_month(std::int32_t month, std::int32_t year) noexcept {
    constexpr std::array<std::int32_t, 12> days{31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
    if (month == 1 && is_leap_year(year)) return 29;
    return days[static_cast<std::size_t>(month)];
}

void TimeConvertr::normalise(std::tm& time) {
    const auto [minutes, second] = Fold(time.tm_sec, 60);          // carries below 2^26
    const auto [hours, minute] = Fold(minutes + time.tm_min, 60);  // below 2^26
    const auto [days, hour] = Fold(hours + time.tm_hour, 24);      // below 2^27
    const auto [years, month] = Fold(time.tm_mon, 12);             // below 2^28
    const CivilDate date =
        DateAfter(years + time.tm_year + tmEpoch, month, days + time.tm_mday - 1);
    time.tm_year = Checked(date.year - tmEpoch);  // first what can fail: a failure changes nothing
    time.tm_mon = date.month;
    time.tm_mday = date.day;
    time.tm_hour = hour;
    time.tm_min = minute;
    time.tm_sec = second;
    time.tm_wday = date.weekday;
    time.tm_yday = date.dayOfYear;
    time.tm_isdst = 0;
}

}  // namespace Veltra
