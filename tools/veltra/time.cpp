#include "commands.h"
#include "common_options.h"
#include "output.h"
#include "records.h"

#include <Veltra/Veltra.h>

#include <charconv>
#include <chrono>
#include <cstdint>
#include <ctime>
#include <iomanip>
#include <locale>
#include <memory>
#include <optional>
#include <sstream>
#include <string>
#include <system_error>

namespace tool {

namespace {

constexpr const char* kTimeEnd =
    "Needs no keys and no network. The expression is a sequence of terms, such as -1d, +0w1d,\n"
    "~0m, 2024y3m15d or -1dT08:30; the units are y m w d h M (or min) s. If it names no clock\n"
    "time, hours, minutes or seconds, the result is the end of the day, or its start with\n"
    "--start-of-day.\n"
    "\nExamples:\n"
    "  veltra time -1dT08:30\n"
    "  veltra time +0w --first-day 1 --start-of-day --now \"2024-03-15 10:20:30\"\n"
    "\nJSON: {\"ok\":true,\"time\":\"..\"}, or {\"ok\":false,\"code\":0,\"message\":\"..\"}\n"
    "\nExit status: 0 a time was printed, 1 the expression has no result, 2 wrong usage.";

constexpr const char* kForm = "%Y-%m-%d %H:%M:%S";

struct TimeOptions {
    std::string expression;
    std::string now;
    bool startOfDay = false;
    std::int32_t firstDay = 0;
    CommonOptions common;
};

std::optional<std::int64_t> secondsOf(const std::string& text) {
    std::int64_t seconds = 0;
    const char* const end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, seconds);
    if (error != std::errc() || stop != end) return std::nullopt;
    return seconds;
}

/// The instant that a local date-time names; nothing when there is no such date-time.
std::optional<std::int64_t> instantOf(const std::string& text) {
    std::tm local{};
    std::istringstream in(text);
    in.imbue(std::locale::classic());
    in >> std::get_time(&local, kForm);
    if (in.fail() || in.peek() != std::istringstream::traits_type::eof()) return std::nullopt;
    std::tm normal = local;
    normal.tm_isdst = -1;
    normal.tm_wday = -1;
    const std::time_t instant = std::mktime(&normal);
    // mktime turns 31 February into a day in March; such a date is refused instead.
    // If it leaves the weekday alone it has failed: its result -1 may be an instant, too.
    const bool exists =
        normal.tm_wday != -1 && normal.tm_mday == local.tm_mday && normal.tm_mon == local.tm_mon;
    if (!exists) return std::nullopt;
    return instant;
}

std::int64_t nowOf(const TimeOptions& options) {
    if (options.now.empty()) {
        return std::chrono::system_clock::to_time_t(std::chrono::system_clock::now());
    }
    if (const auto seconds = secondsOf(options.now)) return *seconds;
    if (const auto instant = instantOf(options.now)) return *instant;
    throw UsageError("--now takes seconds since 1970, or a local \"YYYY-MM-DD HH:MM:SS\"");
}

int convert(const TimeOptions& options) {
    const std::int64_t now = nowOf(options);
    // The library's own log record says what is wrong, if there is one.
    const Records records(options.common.logLevel, {});
    Veltra::SetFirstDayOfWeek(static_cast<Veltra::FirstDayOfWeek>(options.firstDay));
    std::string result;
    if (!Veltra::ConvertTime(options.expression, result, now, options.startOfDay)) {
        reportFailure(options.common.json, Failure("the expression can't be converted: a term, a "
                                                   "clock time or the reference is malformed or "
                                                   "out of range"));
        return kFailure;
    }
    if (result.empty()) {
        reportFailure(options.common.json, Failure("the expression leads to a date that doesn't "
                                                   "exist or has no four-digit year"));
        return kFailure;
    }
    if (options.common.json) {
        printJson(true, [&](JsonWriter& writer) { writer.member("time", result); });
    } else {
        printLine(result);
    }
    return kSuccess;
}

}  // namespace

void addTime(CLI::App& app, Command& chosen) {
    auto* command =
        app.add_subcommand("time", "Convert a relative time expression to a local time");
    const auto options = std::make_shared<TimeOptions>();
    command->footer(kTimeEnd);
    command->add_option("EXPRESSION", options->expression, "The expression to convert")->required();
    command
        ->add_option("--now", options->now,
                     "The reference time: seconds since 1970, or a local \"YYYY-MM-DD HH:MM:SS\" "
                     "(default: now)")
        ->option_text("TIME");
    command->add_flag("--start-of-day", options->startOfDay,
                      "Return the first second of a day, not the last");
    command
        ->add_option("--first-day", options->firstDay,
                     "First day of the week: 0 Sunday to 6 (default: 0)")
        ->option_text("N")
        ->check(CLI::Range(0, 6));
    addLogLevel(*command, options->common);
    addJson(*command, options->common);
    command->callback([options, &chosen] { chosen = [options] { return convert(*options); }; });
}

}  // namespace tool
