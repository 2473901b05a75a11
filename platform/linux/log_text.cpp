// SPDX-License-Identifier: Apache-2.0
#include "platform/linux/log_text.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <new>
#include <utility>

namespace bootweave {
namespace {

constexpr std::size_t kMaxKernelRecord = 900;
constexpr std::string_view kCutMark = "...";
constexpr std::array kMonths = {"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};
static_assert(kMonths.size() == 12);

unsigned char ByteAt(std::string_view text, std::size_t index) {
    return index < text.size() ? static_cast<unsigned char>(text[index]) : 0;
}

bool IsContinuation(unsigned char byte) {
    return (byte & 0xC0) == 0x80;
}

/// The length of the well-formed UTF-8 sequence of two bytes or more that `text` begins with; 0 is none.
std::size_t SequenceLength(std::string_view text) {
    const unsigned char first = ByteAt(text, 0);
    // What the second byte must lie between rules out overlong forms, surrogates and what is beyond Unicode.
    unsigned char low = 0x80;
    unsigned char high = 0xBF;
    std::size_t length = 0;
    if (first >= 0xC2 && first <= 0xDF) {
        length = 2;
    } else if (first >= 0xE0 && first <= 0xEF) {
        length = 3;
        low = first == 0xE0 ? 0xA0 : low;
        high = first == 0xED ? 0x9F : high;
    } else if (first >= 0xF0 && first <= 0xF4) {
        length = 4;
        low = first == 0xF0 ? 0x90 : low;
        high = first == 0xF4 ? 0x8F : high;
    }
    if (length == 0 || ByteAt(text, 1) < low || ByteAt(text, 1) > high) {
        return 0;
    }
    for (std::size_t index = 2; index < length; ++index) {
        if (!IsContinuation(ByteAt(text, index))) {
            return 0;
        }
    }
    return length;
}

/// One character as a terminal or a log reader may take it.
struct Unit {
    std::size_t length;
    bool control;
};

Unit NextUnit(std::string_view text) {
    const unsigned char first = ByteAt(text, 0);
    if (first < 0x80) {
        return {1, (first < 0x20 && first != '\t') || first == 0x7F};
    }
    const std::size_t sequence = SequenceLength(text);
    if (sequence == 0) {
        return {1, first < 0xA0};
    }
    return {sequence, first == 0xC2 && ByteAt(text, 1) < 0xA0};
}

void AppendEscaped(LineBuffer& line, std::string_view bytes) {
    constexpr std::string_view kDigits = "0123456789abcdef";
    for (const char byte : bytes) {
        const auto value = static_cast<unsigned char>(byte);
        const std::array<char, 4> escape = {'\\', 'x', kDigits[value >> 4], kDigits[value & 0xF]};
        line.Append({escape.data(), escape.size()});
    }
}

bool IsHexDigit(unsigned char byte) {
    return (byte >= '0' && byte <= '9') || (byte >= 'a' && byte <= 'f');
}

bool BeginsWithEscape(std::string_view text) {
    return text.starts_with("\\x") && IsHexDigit(ByteAt(text, 2)) && IsHexDigit(ByteAt(text, 3));
}

/// A time of day and its date, by calendar arithmetic: gmtime_r and localtime_r take the time-zone lock.
struct Calendar {
    explicit Calendar(std::chrono::sys_seconds seconds)
        : day(std::chrono::floor<std::chrono::days>(seconds)), date(day), time(seconds - day) {}

    std::chrono::sys_days day;
    std::chrono::year_month_day date;
    std::chrono::hh_mm_ss<std::chrono::seconds> time;

    [[nodiscard]] unsigned month() const { return static_cast<unsigned>(date.month()); }
    [[nodiscard]] unsigned day_of_month() const { return static_cast<unsigned>(date.day()); }
    [[nodiscard]] int hour() const { return static_cast<int>(time.hours().count()); }
    [[nodiscard]] int minute() const { return static_cast<int>(time.minutes().count()); }
    [[nodiscard]] int second() const { return static_cast<int>(time.seconds().count()); }
};

}  // namespace

std::size_t LineBuffer::Room(std::size_t wanted) {
    const std::size_t needed = size_ + wanted + 1;  // the one is End's
    if (needed > capacity_) {
        const std::size_t capacity = std::max(needed, capacity_ * 2);
        std::unique_ptr<char[]> larger(new (std::nothrow) char[capacity]);
        if (larger == nullptr) {
            return size_ < capacity_ ? capacity_ - size_ - 1 : 0;
        }
        std::memcpy(larger.get(), data(), size_);
        heap_ = std::move(larger);
        capacity_ = capacity;
    }
    return wanted;
}

void LineBuffer::Append(std::string_view text) {
    const std::size_t count = Room(text.size());
    if (count > 0) {
        std::memcpy(data() + size_, text.data(), count);
        size_ += count;
    }
}

void LineBuffer::AppendFormatted(const char* format, ...) {
    std::va_list arguments;
    va_start(arguments, format);
    AppendFormattedV(format, arguments);
    va_end(arguments);
}

void LineBuffer::AppendFormattedV(const char* format, std::va_list arguments) {
    // vsnprintf ends what it writes with a null, which the byte kept for End has room for.
    std::va_list again;
    va_copy(again, arguments);
    const int length = std::vsnprintf(data() + size_, capacity_ - size_, format, arguments);
    if (length < 0) {
        Append(format);
    } else if (static_cast<std::size_t>(length) < capacity_ - size_) {
        size_ += static_cast<std::size_t>(length);
    } else {
        const std::size_t room = Room(static_cast<std::size_t>(length));
        std::vsnprintf(data() + size_, room + 1, format, again);
        size_ += room;
    }
    va_end(again);
}

void LineBuffer::End(char last) {
    if (size_ < capacity_) {
        data()[size_++] = last;
    }
}

void LineBuffer::Truncate(std::size_t size) {
    size_ = std::min(size, size_);
}

void AppendHarmless(LineBuffer& line, std::string_view text) {
    std::size_t plain = 0;
    while (plain < text.size()) {
        const Unit unit = NextUnit(text.substr(plain));
        if (!unit.control) {
            plain += unit.length;
            continue;
        }
        line.Append(text.substr(0, plain));
        AppendEscaped(line, text.substr(plain, unit.length));
        text.remove_prefix(plain + unit.length);
        plain = 0;
    }
    line.Append(text);
}

std::string_view WithoutTrailingNewlines(std::string_view text) {
    while (text.ends_with('\n')) {
        text.remove_suffix(1);
    }
    return text;
}

void AppendUtcStamp(LineBuffer& line, std::chrono::system_clock::time_point now, bool milliseconds) {
    const auto seconds = std::chrono::floor<std::chrono::seconds>(now);
    const Calendar calendar(seconds);
    line.AppendFormatted("%04d-%02u-%02uT%02d:%02d:%02d", static_cast<int>(calendar.date.year()),
                         calendar.month(), calendar.day_of_month(), calendar.hour(), calendar.minute(),
                         calendar.second());
    if (milliseconds) {
        const auto fraction = std::chrono::floor<std::chrono::milliseconds>(now - seconds);
        line.AppendFormatted(".%03d", static_cast<int>(fraction.count()));
    }
    line.Append("Z");
}

void AppendSyslogStamp(LineBuffer& line, std::chrono::system_clock::time_point now,
                       std::chrono::seconds utc_offset) {
    const Calendar calendar(std::chrono::floor<std::chrono::seconds>(now) + utc_offset);
    line.AppendFormatted("%s %2u %02d:%02d:%02d", kMonths[calendar.month() - 1], calendar.day_of_month(),
                         calendar.hour(), calendar.minute(), calendar.second());
}

std::size_t CutLength(std::string_view text, std::size_t limit) {
    if (text.size() <= limit) {
        return text.size();
    }
    constexpr std::size_t kLongestUnit = 4;
    for (std::size_t back = 1; back < kLongestUnit && back <= limit; ++back) {
        const std::string_view unit = text.substr(limit - back);
        if (SequenceLength(unit) > back || BeginsWithEscape(unit)) {
            return limit - back;
        }
    }
    return limit;
}

void AppendKernelRecord(LineBuffer& record, int priority, std::string_view text) {
    record.AppendFormatted("<%d>bootweave: ", priority);
    AppendHarmless(record, WithoutTrailingNewlines(text));
    if (record.view().size() + 1 > kMaxKernelRecord) {
        record.Truncate(CutLength(record.view(), kMaxKernelRecord - kCutMark.size() - 1));
        record.Append(kCutMark);
    }
    record.End('\n');
}

}  // namespace bootweave
