// The conversion of relative times. Input: in the first line the instant, the first day of the week
// as a number, and "s" for the start of a day; then the expression.
//
// Oracle: the rules written down plainly, over a regular expression and the C library's calendar:
// the same expressions convert, to the same text; a failure leaves the result alone.

#include "support/fuzz_support.h"

#include <Veltra/TimeConversion.h>

#include <time.h>

#include <array>
#include <cerrno>
#include <ctime>
#include <limits>
#include <optional>
#include <regex>
#include <sstream>
#include <stdexcept>
#include <utility>

namespace {

struct Case {
    std::int64_t now = 0;
    int firstDay = 0;
    bool startOfDay = false;
    std::string expression;
};

Case ReadCase(std::string_view input) {
    Case read;
    std::istringstream line{std::string(fuzz::TakeLine(input))};
    std::string start;
    line >> read.now >> read.firstDay >> start;
    read.startOfDay = start == "s";
    read.expression = input;
    return read;
}

struct Failed {};

/// Fields of std::tm, wide enough for any sum.
struct Time {
    std::int64_t year, month, day, hour, minute, second, weekday;
};

Time FromTm(const std::tm& time) {
    return {time.tm_year, time.tm_mon, time.tm_mday, time.tm_hour,
            time.tm_min,  time.tm_sec, time.tm_wday};
}

void Normalise(Time& time) {
    for (const std::int64_t field :
         {time.year, time.month, time.day, time.hour, time.minute, time.second})
        if (!std::in_range<int>(field)) throw Failed();
    std::tm fields{};
    fields.tm_year = static_cast<int>(time.year);
    fields.tm_mon = static_cast<int>(time.month);
    fields.tm_mday = static_cast<int>(time.day);
    fields.tm_hour = static_cast<int>(time.hour);
    fields.tm_min = static_cast<int>(time.minute);
    fields.tm_sec = static_cast<int>(time.second);
    errno = 0;
    if (timegm(&fields) == -1 && errno == EOVERFLOW) throw Failed();
    time = FromTm(fields);
}

std::int64_t DaysInMonth(const Time& time) {
    const std::int64_t year = time.year + 1900;
    const bool leap = year % 4 == 0 && (year % 100 != 0 || year % 400 == 0);
    constexpr std::array<int, 12> days{31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
    return days[static_cast<std::size_t>(time.month)] + (time.month == 1 && leap ? 1 : 0);
}

void ToPeriodEnd(Time& time, char unit) {
    if (unit == 'h') time.minute = 59;
    if (unit == 'h' || unit == 'M') time.second = 59;
    if (unit == 'd' || unit == 'm') {
        ++time.month;
        time.day = 0;
    }
    if (unit == 'w') time.day += 6 - time.weekday;
    if (unit == 'y') {
        time.month = 11;
        time.day = 31;
    }
    if (std::string_view("dmwy").find(unit) != std::string_view::npos) Normalise(time);
}

std::int64_t* FieldOf(Time& time, char unit) {
    const std::array<std::int64_t*, 6> fields{&time.year, &time.month,  &time.day,
                                              &time.hour, &time.minute, &time.second};
    const std::size_t position = std::string_view("ymdhMs").find(unit);
    return position < fields.size() ? fields[position] : nullptr;
}

void Apply(Time& time, const std::smatch& term, int firstDay, bool& weekMode) {
    const bool tilde = term[1].matched;
    const bool sign = term[2].length() != 0;
    const std::int64_t value = std::stoi(term[3].str());
    const std::int64_t n = term[2] == "-" ? -value : value;
    const char unit = *term[4].first;
    if (tilde) ToPeriodEnd(time, unit);
    std::int64_t* const field = FieldOf(time, unit);
    if (unit == 'w' && tilde) {
        time.day += 7 * n;
    } else if (unit == 'w' && sign) {
        time.day += 7 * n - (time.weekday - firstDay + 7) % 7;
        weekMode = true;
    } else if (field != nullptr && (tilde || sign)) {
        *field += n;
    } else if (unit == 'd' && weekMode) {
        time.day += value - 1;
    } else if (field != nullptr) {
        *field = value - (unit == 'y' ? 1900 : unit == 'm' ? 1 : 0);
    }
    const bool stray =
        unit == 'm' && time.month >= 1 && time.month <= 10 && time.day > DaysInMonth(time);
    if (!stray) Normalise(time);
}

/// Sets the clock unless the expression is about hours, minutes or seconds, and cuts one off that
/// the expression names.
void ApplyClockRule(std::string& text, bool startOfDay, Time& time) {
    if (text.empty()) return;
    for (const char unit : {'h', 'M', 's'})
        if (text.find(unit) == text.size() - 1) return;
    int hour = startOfDay ? 0 : 23;
    int minute = startOfDay ? 0 : 59;
    int second = minute;
    const std::size_t day = text.find('d');
    if (day != std::string::npos && day != text.size() - 1) {
        const std::string clock = text.substr(day + 1);
        second = 0;
        // NOLINTBEGIN(cert-err34-c): the same scan is what defines the clock
        if (clock.size() == 8) {
            if (std::sscanf(clock.c_str(), "%d:%d:%d", &hour, &minute, &second) < 3) throw Failed();
        } else if (clock.size() != 5 || std::sscanf(clock.c_str(), "%d:%d", &hour, &minute) < 2) {
            throw Failed();
        }
        // NOLINTEND(cert-err34-c)
        if (hour < 0 || hour > 23 || minute < 0 || minute > 59 || second < 0 || second > 59)
            throw Failed();
        text.resize(day + 1);
    }
    time.hour = hour;
    time.minute = minute;
    time.second = second;
}

std::string Formatted(const Time& time) {
    const std::int64_t year = time.year + 1900;
    if (time.day > DaysInMonth(time) || year < 0 || year > 9999) return "";
    std::array<char, 32> text{};
    static_cast<void>(std::snprintf(text.data(), text.size(), "%04d-%02d-%02d %02d:%02d:%02d",
                                    static_cast<int>(year), static_cast<int>(time.month + 1),
                                    static_cast<int>(time.day), static_cast<int>(time.hour),
                                    static_cast<int>(time.minute), static_cast<int>(time.second)));
    return text.data();
}

std::string PlainlyConverted(const Case& input) {
    static const std::regex pattern("(~)?([+-]?)(\\d+)([yYmMdDwWhHsS])");
    constexpr std::int64_t endOfYear3000 = 32535215999;
    if (input.expression.empty() || input.now < 0 || input.now > endOfYear3000) throw Failed();
    std::string text = input.expression;
    if (const auto minutes = text.find("min"); minutes != std::string::npos)
        text.replace(minutes, 3, "M");
    std::erase(text, 'T');
    const std::time_t now = input.now;
    std::tm local{};
    localtime_r(&now, &local);
    Time time = FromTm(local);
    ApplyClockRule(text, input.startOfDay, time);
    bool weekMode = false;
    std::smatch term;
    while (std::regex_search(text, term, pattern)) {
        Apply(time, term, input.firstDay, weekMode);
        text = term.suffix();
    }
    if (!text.empty()) throw Failed();
    return Formatted(time);
}

std::optional<std::string> Expected(const Case& input) {
    try {
        return PlainlyConverted(input);
    } catch (const Failed&) {
        return std::nullopt;
    } catch (const std::out_of_range&) {  // digits that don't fit 32 bits
        return std::nullopt;
    }
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int* /*count*/, char*** /*arguments*/) {
    setenv("TZ", "EST5EDT,M3.2.0,M11.1.0", 1);
    tzset();
    fuzz::DropRecords();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    Case input = ReadCase(fuzz::Input(data, size));
    Veltra::SetFirstDayOfWeek(Veltra::FirstDayOfWeek::Sunday);
    const bool isDay = input.firstDay >= 0 && input.firstDay <= 6;
    fuzz::Require(
        Veltra::SetFirstDayOfWeek(static_cast<Veltra::FirstDayOfWeek>(input.firstDay)) == isDay,
        "the first day is one of seven");
    if (!isDay) input.firstDay = 0;

    std::string result = "before";
    const bool converted =
        Veltra::ConvertTime(input.expression, result, input.now, input.startOfDay);
    const std::optional<std::string> expected = Expected(input);
    fuzz::Require(converted == expected.has_value(), "the same expressions convert");
    fuzz::Require(result == expected.value_or("before"), "to the same text");
    return 0;
}
