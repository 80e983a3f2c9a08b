// Converting time expressions beside the same steps with a regular expression compiled each time.

#include "common_func.h"
#include "support/allocation_count.h"
#include "support/in_turn.h"

#include <Oak/Base/LocalTime.h>
#include <Veltra/TimeConversion.h>
#include <secfn/QPR_Sscanf_s.h>

#include <array>
#include <cstdint>
#include <ctime>
#include <regex>
#include <stdexcept>
#include <string>
#include <vector>

namespace {

using Veltra::TimeConvertr;
using Veltra::TimeTerm;

constexpr std::int64_t now = 1710498030;  // 2024-03-15 10:20:30 UTC
constexpr bool startOfDay = false;

const std::array<std::string, 5> expressions{"-1d", "+0w", "~0m", "-30min", "-1dT08:30:15"};

bool IsLast(std::size_t position, const std::string& text) {
    return position != std::string::npos && position + 1 == text.size();
}

/// Gives `base` its clock time and cuts an explicit one off.
void SetClock(std::string& text, std::tm& base) {
    if (IsLast(text.find('h'), text) || IsLast(text.find('M'), text) ||
        IsLast(text.find('s'), text))
        return;
    base.tm_hour = startOfDay ? 0 : 23;
    base.tm_min = base.tm_sec = startOfDay ? 0 : 59;
    const std::size_t day = text.find('d');
    if (day == std::string::npos || day + 1 == text.size()) return;
    const std::string clock = text.substr(day + 1);
    base.tm_sec = 0;
    const int fields =
        clock.size() == 8
            ? QPR_Sscanf_s(clock.c_str(), "%d:%d:%d", &base.tm_hour, &base.tm_min, &base.tm_sec)
            : QPR_Sscanf_s(clock.c_str(), "%d:%d", &base.tm_hour, &base.tm_min);
    if (fields < 2) throw std::invalid_argument("Time format error");
    text.erase(day + 1);
}

std::vector<TimeTerm> ParseWithRegex(std::string text) {
    const std::regex pattern("(~)?([+-]?)(\\d+)([yYmMdDwWhHsS])");
    std::vector<TimeTerm> terms;
    std::smatch match;
    while (std::regex_search(text, match, pattern)) {
        TimeTerm term;
        term.tilde = match[1].matched;
        term.sign = match[2].length() > 0 ? match[2].str()[0] : '\0';
        term.value = std::stoi(match[3].str());
        term.unit = match[4].str()[0];
        terms.push_back(term);
        text = match.suffix().str();
    }
    if (!text.empty()) throw std::invalid_argument("text after the last term");
    return terms;
}

/// The conversion as one writes it down. The calendar is the library's own in both.
std::string ConvertPlainly(const std::string& expression) {
    std::string text = expression;
    const std::size_t minutes = text.find("min");
    if (minutes != std::string::npos) text.replace(minutes, 3, "M");
    std::erase(text, 'T');
    std::tm base{};
    Oak::Base::LocalTime(now, base);
    base.tm_isdst = 0;
    SetClock(text, base);
    const std::tm time = TimeConvertr::GetInstance().apply_terms(base, ParseWithRegex(text));
    char formatted[32];
    const std::size_t length =
        std::strftime(formatted, sizeof formatted, "%Y-%m-%d %H:%M:%S", &time);
    return {formatted, length};
}

std::string Convert(const std::string& expression) {
    std::string result;
    if (!Veltra::ConvertTime(expression, result, now, startOfDay))
        throw std::runtime_error("not converted: " + expression);
    return result;
}

/// One call converts all five.
void ConvertingTime(benchmark::State& state) {
    for (const std::string& expression : expressions) {
        if (Convert(expression) != ConvertPlainly(expression))
            return state.SkipWithError(("results differ for " + expression).c_str());
    }
    bench::InTurn(
        state, 1, bench::Sample::eachCall,
        [] {
            for (const std::string& expression : expressions)
                benchmark::DoNotOptimize(Convert(expression));
        },
        [] {
            for (const std::string& expression : expressions)
                benchmark::DoNotOptimize(ConvertPlainly(expression));
        });
    const std::uint64_t before = bench::Allocations();
    for (const std::string& expression : expressions)
        benchmark::DoNotOptimize(Convert(expression));
    state.counters["allocations"] =
        static_cast<double>(bench::Allocations() - before) / double{expressions.size()};
}
BENCHMARK(ConvertingTime)->UseManualTime();

}  // namespace
