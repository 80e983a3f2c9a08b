#ifndef VELTRA_SRC_TIME_EXPRESSION_H
#define VELTRA_SRC_TIME_EXPRESSION_H

#include <cstdint>
#include <optional>
#include <string_view>

namespace Veltra {

/// One piece of a time expression, as written: "~-3m" is {true, '-', 3, 'm'}.
struct TimeTerm {
    bool tilde = false;      ///< it began with "~"
    char sign = 0;           ///< '+' or '-', or 0 for none
    std::int32_t value = 0;  ///< the digits, without the sign
    char unit = 0;           ///< one of yYmMdDwWhHsS

    friend bool operator==(const TimeTerm&, const TimeTerm&) = default;
};

/// Takes the first term out of `rest`: what a leftmost search for the regular expression
/// (~)?([+-]?)(\d+)([yYmMdDwWhHsS]) finds. `rest` becomes the text after it; what stood before it
/// is skipped. Empty, with `rest` as it was, when no term occurs. Throws std::out_of_range when the
/// digits don't fit the value. Linear in the bytes consumed, or in `rest` when nothing is found.
std::optional<TimeTerm> TakeTerm(std::string_view& rest);

}  // namespace Veltra

#endif
