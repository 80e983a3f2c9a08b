#include <Veltra/TimeConversion.h>
#include <qlog/qlog.h>

#include <gtest/gtest.h>

#include <cstdint>
#include <cstdlib>
#include <ctime>
#include <iomanip>
#include <limits>
#include <sstream>
#include <string>
#include <string_view>
#include <vector>

namespace Veltra {
namespace {

using namespace std::string_view_literals;

const char* const newYork = "EST5EDT,M3.2.0,M11.1.0";
const char* const friday = "2024-03-15 10:20:30";

/// The zone of the process, and every record the library writes, for the time of one test.
class TimeConversion : public testing::Test {
 protected:
    TimeConversion() {
        SetZone(newYork);
        SetFirstDayOfWeek(FirstDayOfWeek::Sunday);
        qlog_set_handler(&Keep, this, 2);
    }
    ~TimeConversion() override { qlog_set_handler(nullptr, nullptr, 4); }

    static void SetZone(const char* zone) {
#ifdef _WIN32
        _putenv_s("TZ", zone);
        _tzset();
#else
        setenv("TZ", zone, 1);
        tzset();
#endif
    }

    static std::int64_t InstantOf(const char* local) {
        std::tm time{};
        std::istringstream(local) >> std::get_time(&time, "%Y-%m-%d %H:%M:%S");
        time.tm_isdst = -1;
        return std::mktime(&time);
    }

    /// The messages at level 5, without the name in front and the place in the source behind.
    std::string Failures() const {
        std::string failures;
        for (const std::string& record : records_) {
            if (record[0] != '5') continue;
            const std::size_t begin = record.find(']') + 1;
            failures += record.substr(begin, record.rfind('[') - begin);
        }
        return failures;
    }

    std::vector<std::string> records_;

 private:
    static void Keep(int level, const char* tag, const char* message, void* context) {
        EXPECT_EQ(tag, "Veltra"sv);
        static_cast<TimeConversion*>(context)->records_.push_back(std::to_string(level) + message);
    }
};

enum class Start { day, end, either };

struct Row {
    const char* now;
    const char* expression;
    Start start;
    int firstDay;
    const char* result;    // null: the conversion fails
    const char* failures;  // what is logged at level 5
};

const char* const strayDay = "Invalid time format";

/// One of each kind; all that the language can say: see the fuzzer.
const Row rows[] = {
    // Days, with and without a clock time of their own.
    {friday, "-1d", Start::day, 0, "2024-03-14 00:00:00", ""},
    {friday, "0d", Start::day, 0, "2024-02-29 00:00:00", ""},
    {friday, "-1dT08:30:15", Start::either, 0, "2024-03-14 08:30:15", ""},
    {friday, "-1d24:00:00", Start::either, 0, nullptr, ""},
    {friday, "-1d1:00", Start::either, 0, nullptr, "Ivalid time format"},
    // Hours, minutes and seconds keep the clock, but only at the end of the expression.
    {friday, "-1d-31s", Start::either, 0, "2024-03-14 10:19:59", ""},
    {friday, "-1min~0h", Start::either, 0, "2024-03-15 10:59:59", ""},
    {friday, "-1min-1min", Start::end, 0, nullptr, "Invalid format:in"},
    // Weeks.
    {friday, "+0w", Start::day, 6, "2024-03-09 00:00:00", ""},
    {friday, "+0w7d", Start::end, 1, "2024-03-17 23:59:59", ""},
    {"2024-03-16 10:20:30", "~0w", Start::end, 3, "2024-03-16 23:59:59", ""},
    // Months and years, and the days that they leave astray.
    {friday, "~0m", Start::end, 0, "2024-03-31 23:59:59", ""},
    {friday, "5S~0y-1d", Start::end, 0, "2024-12-30 23:59:59", ""},
    {friday, "~-1m", Start::end, 0, "", strayDay},
    {"2024-03-31 10:20:30", "-1m", Start::either, 0, "", strayDay},
    {"2024-03-31 10:20:30", "-1m~0d", Start::end, 0, "2024-02-29 23:59:59", ""},
    // What surrounds terms.
    {friday, "-2hxyz", Start::either, 0, nullptr, "Invalid format:xyz"},
    {friday, "", Start::either, 0, nullptr, "Param error"},
    // The hour that spring leaves out is an hour like any other.
    {"2024-03-10 03:30:00", "-1h", Start::either, 0, "2024-03-10 02:30:00", ""},
    // Years that four digits can't show, on the way and at the end.
    {friday, "999y", Start::day, 0, "0999-03-15 00:00:00", ""},
    {friday, "9999y~0y+1d", Start::end, 0, "", strayDay},
    {friday, "-2000000000h+2000000000h", Start::day, 0, "2024-03-15 00:00:00", ""},
    {friday, "+400000000w", Start::day, 0, nullptr, "Exception :time field out of range"},
    {friday, "2147483647y+10000m+2147483647m", Start::day, 0, nullptr,
     "Exception :time field out of range"},
};

TEST_F(TimeConversion, TableInEveryZone) {
    for (const char* zone :
         {newYork, "UTC0", "JST-9", "<+0545>-5:45", "NZST-12NZDT,M9.5.0,M4.1.0/3"}) {
        SetZone(zone);
        for (const Row& row : rows) {
            for (const bool startOfDay : {true, false}) {
                if (row.start == (startOfDay ? Start::end : Start::day)) continue;
                SCOPED_TRACE(testing::Message() << row.expression << " at " << row.now << " in "
                                                << zone << ", start of day " << startOfDay);
                ASSERT_TRUE(SetFirstDayOfWeek(static_cast<FirstDayOfWeek>(row.firstDay)));
                records_.clear();
                std::string result = "before";
                EXPECT_EQ(ConvertTime(row.expression, result, InstantOf(row.now), startOfDay),
                          row.result != nullptr);
                EXPECT_EQ(result, row.result != nullptr ? row.result : "before");
                EXPECT_EQ(Failures(), row.failures);
            }
        }
    }
}

TEST_F(TimeConversion, RecordsNameTheOperationAndThePlace) {
    std::string text = "-1d";
    EXPECT_TRUE(ConvertTime(text, text, 5000000000, true));  // the result may be the expression
    EXPECT_FALSE(ConvertTime("x", text, 0, true));
    EXPECT_TRUE(SetFirstDayOfWeek(FirstDayOfWeek::Monday));
    EXPECT_FALSE(SetFirstDayOfWeek(static_cast<FirstDayOfWeek>(-1)));  // without a record
    EXPECT_FALSE(SetFirstDayOfWeek(static_cast<FirstDayOfWeek>(7)));
    const char* const expected[] = {
        "3[Veltra::TimeConvertr::RelativeToAbsolute]Deal Time input:-1d,now:705032704[src/common_f",
        "2[Veltra::TimeConvertr::RelativeToAbsolute]output:2128-06-10 00:00:00[src/common_func",
        "3[Veltra::TimeConvertr::RelativeToAbsolute]Deal Time input:x,now:0[src/common_func.cpp(",
        "5[Veltra::TimeConvertr::parse_time_string]Invalid format:x[src/common_func.cpp(",
        "3[Veltra::SetFirstDayOfWeek]Set first day of week is 1[src/TimeConversion.cpp(",
    };
    ASSERT_EQ(records_.size(), std::size(expected));
    for (std::size_t i = 0; i < records_.size(); ++i)
        EXPECT_EQ(records_[i].rfind(expected[i], 0), 0U)
            << records_[i] << " is not " << expected[i];
}

TEST_F(TimeConversion, RefusesInstantsOutOfRange) {
    using Limits = std::numeric_limits<std::int64_t>;
    std::string result = "before";
    for (const std::int64_t now : {Limits::min(), std::int64_t{-1}, 32535216000, Limits::max()}) {
        EXPECT_FALSE(ConvertTime("+0s", result, now, true)) << now;
        EXPECT_EQ(records_.back()[0], '5') << now;
    }
    EXPECT_EQ(result, "before");
    EXPECT_TRUE(ConvertTime("+0s", result, 0, true));
    EXPECT_EQ(result, "1969-12-31 19:00:00");
    EXPECT_TRUE(ConvertTime("+0s", result, 1720000000, true));
    EXPECT_EQ(result, "2024-07-03 05:46:40") << "in summer time";
    EXPECT_TRUE(ConvertTime("+0s", result, 32535215999, true));
    EXPECT_EQ(result, "3000-12-31 18:59:59");
}

TEST_F(TimeConversion, HostileTexts) {
    const struct {
        std::string_view piece, end;
        bool converted;
    } cases[] = {{"9", "d", false},   {"9x", "", false},    {"+", "0m", true},
                 {"miTn", "", false}, {"+1s-1s", "", true}, {"\0"sv, "-1d", true}};
    for (const auto& row : cases) {
        std::string text;
        while (text.size() < std::size_t{1} << 20)
            text += row.piece;
        std::string result = "before";
        EXPECT_EQ(ConvertTime(text.append(row.end), result, 0, true), row.converted)
            << testing::PrintToString(row.piece) << testing::PrintToString(row.end);
        EXPECT_EQ(result != "before", row.converted);
    }
}

}  // namespace
}  // namespace Veltra
