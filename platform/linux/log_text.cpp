// SPDX-License-Identifier: Apache-2.0
#include "platform/linux/log_text.h"

#include <array>

#include "util/harmless_text.h"

namespace bootweave {
namespace {

constexpr std::size_t kMaxKernelRecord = 900;
constexpr std::string_view kCutMark = "...";
constexpr std::array kMonths = {"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};
static_assert(kMonths.size() == 12);

bool IsHexDigit(char byte) {
    return (byte >= '0' && byte <= '9') || (byte >= 'a' && byte <= 'f');
}

bool BeginsWithEscape(std::string_view text) {
    return text.size() >= 4 && text.starts_with("\\x") && IsHexDigit(text[2]) && IsHexDigit(text[3]);
}

/// A time of day and its date, by calendar arithmetic: gmtime_r and localtime_r take the time-zone lock.
struct Calendar {
    explicit Calendar(std::chrono::sys_seconds seconds)
        : day(std::chrono::floor<std::chrono::days>(seconds)), date(day), time(seconds - day) {}

    std::chrono::sys_days day;
    std::chrono::year_month_day date;
    std::chrono::hh_mm_ss<std::chrono::seconds> time;

    [[nodiscard]] unsigned year() const { return static_cast<unsigned>(static_cast<int>(date.year())); }
    [[nodiscard]] unsigned month() const { return static_cast<unsigned>(date.month()); }
    [[nodiscard]] unsigned day_of_month() const { return static_cast<unsigned>(date.day()); }
    [[nodiscard]] unsigned hour() const { return static_cast<unsigned>(time.hours().count()); }
    [[nodiscard]] unsigned minute() const { return static_cast<unsigned>(time.minutes().count()); }
    [[nodiscard]] unsigned second() const { return static_cast<unsigned>(time.seconds().count()); }
};

void AppendTimeOfDay(LineBuffer& line, const Calendar& calendar) {
    line.AppendNumber(calendar.hour(), 2);
    line.Append(":");
    line.AppendNumber(calendar.minute(), 2);
    line.Append(":");
    line.AppendNumber(calendar.second(), 2);
}

}  // namespace

std::string_view WithoutTrailingNewlines(std::string_view text) {
    while (text.ends_with('\n')) {
        text.remove_suffix(1);
    }
    return text;
}

void AppendUtcStamp(LineBuffer& line, std::chrono::system_clock::time_point now, bool milliseconds) {
    const auto seconds = std::chrono::floor<std::chrono::seconds>(now);
    const Calendar calendar(seconds);
    line.AppendNumber(calendar.year(), 4);
    line.Append("-");
    line.AppendNumber(calendar.month(), 2);
    line.Append("-");
    line.AppendNumber(calendar.day_of_month(), 2);
    line.Append("T");
    AppendTimeOfDay(line, calendar);
    if (milliseconds) {
        const auto fraction = std::chrono::floor<std::chrono::milliseconds>(now - seconds);
        line.Append(".");
        line.AppendNumber(static_cast<unsigned>(fraction.count()), 3);
    }
    line.Append("Z");
}

void AppendSyslogStamp(LineBuffer& line, std::chrono::system_clock::time_point now,
                       std::chrono::seconds utc_offset) {
    const Calendar calendar(std::chrono::floor<std::chrono::seconds>(now) + utc_offset);
    line.Append(kMonths[calendar.month() - 1]);
    line.Append(" ");
    line.AppendNumber(calendar.day_of_month(), 2, ' ');
    line.Append(" ");
    AppendTimeOfDay(line, calendar);
}

std::size_t CutLength(std::string_view text, std::size_t limit) {
    if (text.size() <= limit) {
        return text.size();
    }
    constexpr std::size_t kLongestUnit = 4;
    for (std::size_t back = 1; back < kLongestUnit && back <= limit; ++back) {
        const std::string_view unit = text.substr(limit - back);
        if (Utf8SequenceLength(unit) > back || BeginsWithEscape(unit)) {
            return limit - back;
        }
    }
    return limit;
}

void AppendKernelRecord(LineBuffer& record, int priority, std::string_view text) {
    record.Append("<");
    record.AppendNumber(static_cast<unsigned>(priority));
    record.Append(">bootweave: ");
    AppendHarmless(record, WithoutTrailingNewlines(text));
    if (record.view().size() + 1 > kMaxKernelRecord) {
        record.Truncate(CutLength(record.view(), kMaxKernelRecord - kCutMark.size() - 1));
        record.Append(kCutMark);
    }
    record.End('\n');
}

}  // namespace bootweave
