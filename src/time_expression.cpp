#include "time_expression.h"

#include <algorithm>
#include <string>

namespace Veltra {
namespace {

bool IsDigit(char c) {
    return c >= '0' && c <= '9';
}

bool IsSign(char c) {
    return c == '+' || c == '-';
}

bool IsUnit(char c) {
    return std::string_view("yYmMdDwWhHsS").find(c) != std::string_view::npos;
}

/// Builds the term whose digits and unit have been found; `before` is all that stands in front of
/// the digits. A sign or tilde belongs to the term only when nothing comes between.
TimeTerm MakeTerm(std::string_view before, std::string_view digits, char unit) {
    TimeTerm term;
    if (!before.empty() && IsSign(before.back())) {
        term.sign = before.back();
        before.remove_suffix(1);
    }
    term.tilde = !before.empty() && before.back() == '~';
    static_assert(sizeof(int) == sizeof(term.value), "std::stoi checks the range of the value");
    term.value = std::stoi(std::string(digits));
    term.unit = unit;
    return term;
}

}  // namespace

std::optional<TimeTerm> TakeTerm(std::string_view& rest) {
    const auto end = rest.end();
    auto position = rest.begin();
    while (true) {
        const auto digits = std::find_if(position, end, IsDigit);
        // A unit is no digit, so only a whole run of digits can be followed by one: a run without a
        // unit is left behind at once, and no byte is looked at twice.
        const auto unit = std::find_if_not(digits, end, IsDigit);
        if (unit == end) return std::nullopt;
        if (IsUnit(*unit)) {
            const TimeTerm term = MakeTerm({rest.begin(), digits}, {digits, unit}, *unit);
            rest = {unit + 1, end};
            return term;
        }
        position = unit;
    }
}

}  // namespace Veltra
