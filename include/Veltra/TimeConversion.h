#ifndef VELTRA_TIMECONVERSION_H
#define VELTRA_TIMECONVERSION_H

#include <Veltra/Export.h>

#include <cstdint>
#include <string>

namespace Veltra {

/// A day of the week, numbered as `tm_wday` is.
enum class FirstDayOfWeek : std::int32_t {
    Sunday = 0,     ///< Sunday (the initial setting)
    Monday = 1,     ///< Monday
    Tuesday = 2,    ///< Tuesday
    Wednesday = 3,  ///< Wednesday
    Thursday = 4,   ///< Thursday
    Friday = 5,     ///< Friday
    Saturday = 6    ///< Saturday
};

/// Converts a relative time expression, such as "-1d", "+0w", "~0m" or "-1d08:30", to a local date
/// and time in the form "YYYY-MM-DD HH:MM:SS". docs/time-expressions.md describes the language,
/// with an example for each kind of term.
///
/// @param expression  the expression; any bytes are safe, and the time taken grows with their
///                    number
/// @param result      receives the text; unchanged when the function returns false. It may be the
///                    same object as `expression`.
/// @param now         the instant that the expression is relative to: seconds since 1970-01-01
///                    00:00:00 UTC, from 0 to 32535215999 (the end of the year 3000). It is
///                    converted to local time in the process's time zone; from there on every day
///                    has 24 hours.
/// @param startOfDay  the clock time of a result whose expression names a day but no clock time:
///                    00:00:00 if true, 23:59:59 if false
///
/// @return true if `result` was written. It is empty if the terms lead to a date that doesn't exist
///         ("-1m" on 31 March leads to 31 February) or to a year outside 0 to 9999. False for an
///         empty expression, `now` outside its range, text after the last term, a clock time that
///         can't be read or doesn't exist, or an intermediate number that doesn't fit into 32 bits.
///         The reason is logged, except for a clock time that doesn't exist.
///
/// Works whether or not the layer is enabled; needs no login and no network. Any thread may call it
/// at any time. It takes no lock of this library and doesn't block; it throws only when memory
/// can't be allocated. In a forked child of a process that has used the library it returns false.
VELTRA_API bool ConvertTime(const std::string& expression, std::string& result, std::int64_t now,
                            bool startOfDay);

/// Sets the first day of the week for every later conversion in the process; initially Sunday. It
/// affects terms such as "+0w" and "-1w"; "~0w" ends on a Saturday whatever is set.
///
/// Any thread may call it at any time; a conversion that runs at the same time uses the old or the
/// new day. It neither blocks nor throws.
///
/// @param day  one of the seven values
/// @return true; false, with the setting unchanged, if `day` is none of the seven values, or in a
///         forked child of a process that has used the library
VELTRA_API bool SetFirstDayOfWeek(FirstDayOfWeek day);

}  // namespace Veltra

#endif
