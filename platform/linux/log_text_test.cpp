// SPDX-License-Identifier: Apache-2.0
#include "platform/linux/log_text.h"

#include <string>

#include "gmock/gmock.h"

namespace bootweave {
namespace {

using std::chrono::hours;
using std::chrono::milliseconds;
using std::chrono::minutes;
using std::chrono::seconds;
using std::chrono::sys_days;
using std::chrono::year;

std::string Record(int priority, std::string_view text) {
    LineBuffer record;
    AppendKernelRecord(record, priority, text);
    return std::string(record.view());
}

std::string Utc(std::chrono::system_clock::time_point time, bool with_milliseconds) {
    LineBuffer line;
    AppendUtcStamp(line, time, with_milliseconds);
    return std::string(line.view());
}

std::string Syslog(std::chrono::system_clock::time_point time, seconds offset) {
    LineBuffer line;
    AppendSyslogStamp(line, time, offset);
    return std::string(line.view());
}

TEST(LogTextTest, OnlyTheNewlinesAtTheEndAreTakenOff) {
    EXPECT_EQ("", WithoutTrailingNewlines(""));
    EXPECT_EQ("", WithoutTrailingNewlines("\n\n"));
    EXPECT_EQ("a", WithoutTrailingNewlines("a"));
    EXPECT_EQ("a", WithoutTrailingNewlines("a\n\n"));
    EXPECT_EQ("\na\n ", WithoutTrailingNewlines("\na\n "));
    EXPECT_EQ("a\r", WithoutTrailingNewlines("a\r\n"));
}

TEST(LogTextTest, UtcStampsAreTheCalendarOfTheTime) {
    const auto time =
        sys_days(year(2026) / 11 / 15) + hours(15) + minutes(4) + seconds(56) + milliseconds(123);
    EXPECT_EQ("2026-11-15T15:04:56.123Z", Utc(time, true));
    EXPECT_EQ("2026-11-15T15:04:56Z", Utc(time, false));
    EXPECT_EQ("2026-11-15T15:04:56.123Z", Utc(time + std::chrono::microseconds(999), true));
    EXPECT_EQ("1970-01-01T00:00:00.000Z", Utc({}, true));
    EXPECT_EQ("1969-12-31T23:59:59.999Z",
              Utc(std::chrono::system_clock::time_point() - milliseconds(1), true));
    EXPECT_EQ("2024-02-29T00:00:00.007Z", Utc(sys_days(year(2024) / 2 / 29) + milliseconds(7), true));
    EXPECT_EQ("2100-03-01T00:00:00Z", Utc(sys_days(year(2100) / 2 / 28) + hours(24), false));
}

TEST(LogTextTest, SyslogStampsHaveThePaddedDayAndTheLocalTime) {
    const auto time = sys_days(year(2026) / 11 / 5) + hours(5) + minutes(4) + seconds(6);
    EXPECT_EQ("Nov  5 05:04:06", Syslog(time, seconds(0)));
    EXPECT_EQ("Nov  5 10:34:06", Syslog(time, hours(5) + minutes(30)));
    EXPECT_EQ("Nov  4 21:04:06", Syslog(time, hours(-8)));
    EXPECT_EQ("Jan  1 00:00:00", Syslog(sys_days(year(2026) / 12 / 31) + hours(23), hours(1)));
    EXPECT_EQ("Dec 31 23:59:59", Syslog(sys_days(year(2027) / 1 / 1), seconds(-1)));
}

TEST(LogTextTest, EveryMonthHasItsName) {
    const char* const names[] = {"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                 "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};
    for (unsigned month = 1; month <= 12; ++month) {
        const auto time = sys_days(year(2026) / std::chrono::month(month) / 28);
        EXPECT_EQ(std::string(names[month - 1]) + " 28 00:00:00", Syslog(time, seconds(0)));
    }
}

TEST(LogTextTest, ACutNeverBreaksACharacterOrAnEscape) {
    const struct {
        std::string_view text;
        std::size_t limit;
        std::size_t length;
    } table[] = {
        {"abc", 3, 3},
        {"abc", 4, 3},
        {"abc", 2, 2},
        {"abc", 0, 0},
        {"", 0, 0},
        {"a\xC3\xA9", 2, 1},
        {"a\xC3\xA9z", 3, 3},
        {"a\xE2\x82\xACz", 2, 1},
        {"a\xE2\x82\xACz", 3, 1},
        {"a\xE2\x82\xACz", 4, 4},
        {"\xF0\x9F\x98\x80z", 1, 0},
        {"\xF0\x9F\x98\x80z", 2, 0},
        {"\xF0\x9F\x98\x80z", 3, 0},
        {"\xF0\x9F\x98\x80z", 4, 4},
        {"a\\x0az", 2, 1},
        {"a\\x0az", 3, 1},
        {"a\\x0az", 4, 1},
        {"a\\x0az", 5, 5},
        {"a\\xyzz", 3, 3},
        {"\xBF\xBF\xBF\xBF\xBF", 3, 3},
    };
    for (const auto& row : table) {
        EXPECT_EQ(row.length, CutLength(row.text, row.limit))
            << testing::PrintToString(row.text) << " at " << row.limit;
    }
}

TEST(LogTextTest, AKernelRecordHasItsPriorityAndOneNewline) {
    EXPECT_EQ("<5>bootweave: Activating\n", Record(5, "Activating"));
    EXPECT_EQ("<1>bootweave: a\\x0ab\n", Record(1, "a\nb\n\n"));
    EXPECT_EQ("<5>bootweave: \n", Record(5, ""));
    EXPECT_EQ("<5>bootweave: x\\x0a<0>forged\n", Record(5, "x\n<0>forged\n"));
}

TEST(LogTextTest, AKernelRecordOf900BytesIsWholeAndALongerOneIsCut) {
    const std::string prefix = "<5>bootweave: ";
    const std::string fits(900 - prefix.size() - 1, 'x');
    EXPECT_EQ(prefix + fits + "\n", Record(5, fits));
    EXPECT_EQ(prefix + fits.substr(0, fits.size() - 3) + "...\n", Record(5, fits + "x"));
    EXPECT_EQ(900U, Record(5, std::string(100'000, 'x')).size());
}

TEST(LogTextTest, AKernelRecordIsCutBetweenCharacters) {
    const std::string prefix = "<5>bootweave: ";
    const std::size_t room = 900 - prefix.size() - 4;  // 882
    std::string euros;
    std::string kept;
    while (euros.size() < 1000) {
        euros += "\xE2\x82\xAC";
        kept = euros.size() <= room ? euros : kept;
    }
    EXPECT_EQ(prefix + kept + "...\n", Record(5, euros));
    EXPECT_EQ(prefix + "y" + kept.substr(0, kept.size() - 3) + "...\n", Record(5, "y" + euros));

    const std::string before(room - 3, 'x');
    EXPECT_EQ(prefix + before + "...\n", Record(5, before + "\n" + euros));
}

}  // namespace
}  // namespace bootweave
