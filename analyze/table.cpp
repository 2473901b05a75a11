// SPDX-License-Identifier: Apache-2.0
#include "analyze/table.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <chrono>
#include <cmath>
#include <system_error>
#include <utility>

#include <sys/time.h>

#include "analyze/text_columns.h"
#include "driver/profiling_log.h"

namespace bootweave {
namespace {

constexpr std::size_t kTextGap = 2;  // at least, in front of a column
constexpr std::size_t kNumberGap = 1;
constexpr std::array<std::string_view, 4> kSequences{"", "\033[1m", "\033[31m", "\033[32m"};
static_assert(kSequences.size() == static_cast<std::size_t>(Emphasis::kGreen) + 1);

/// A number of thousandths, as "12.345".
std::string Thousandths(std::int64_t number) {
    const std::string rest = std::to_string(number % 1000);
    return std::to_string(number / 1000) + "." + std::string(3 - rest.size(), '0') + rest;
}

}  // namespace

std::string Emphasized(std::string_view text, Emphasis emphasis, const TextStyle& style) {
    std::string result(text);
    if (!style.coloured || emphasis == Emphasis::kNone) {
        return result;
    }
    return std::string(kSequences.at(static_cast<std::size_t>(emphasis))) + result + "\033[0m";
}

Table::Table(std::vector<Column> columns) : columns_(std::move(columns)) {
    for (Column& column : columns_) {
        MakeRoom(column, column.title);
    }
}

void Table::MakeRoom(Column& column, std::string_view text) {
    column.width = std::max(column.width, ColumnsOf(text) + (column.number ? kNumberGap : kTextGap));
}

void Table::Add(std::vector<Field> row) {
    for (std::size_t index = 0; index < row.size(); ++index) {
        MakeRoom(columns_[index], row[index].text);
    }
    rows_.push_back(std::move(row));
}

void Table::Write(std::ostream& out, const TextStyle& style) const {
    if (style.aligned) {
        std::vector<Field> titles;
        for (const Column& column : columns_) {
            titles.push_back({column.title});
        }
        WriteRow(out, titles, style);
    }
    for (const std::vector<Field>& row : rows_) {
        if (style.aligned || !row.empty()) {
            WriteRow(out, row, style);
        }
    }
}

void Table::WriteRow(std::ostream& out, const std::vector<Field>& row, const TextStyle& style) const {
    for (std::size_t index = 0; index < row.size(); ++index) {
        const Column& column = columns_[index];
        const std::string text = Emphasized(row[index].text, row[index].emphasis, style);
        if (!style.aligned) {
            out << (index > 0 ? "\t" : "") << text;
            continue;
        }
        const std::size_t width = ColumnsOf(row[index].text) + (column.number ? 0 : kTextGap);
        const std::string padding(column.width > width ? column.width - width : 0, ' ');
        if (column.number) {
            out << padding << text;
        } else {
            out << std::string(kTextGap, ' ') << text << (index + 1 < row.size() ? padding : "");
        }
    }
    out << "\n";
}

std::string FormatDuration(Duration duration) {
    constexpr std::int64_t kMillisecond = 1000;
    constexpr std::int64_t kSecond = 1000 * kMillisecond;
    constexpr std::int64_t kMinute = 60 * kSecond;
    const std::int64_t count = duration.count();
    if (count < kMillisecond) {
        return std::to_string(count) + "us";
    }
    if (count < kSecond) {
        return Thousandths(count) + "ms";
    }
    std::string text = count >= kMinute ? std::to_string(count / kMinute) + "min " : "";
    return text + Thousandths(count % kMinute / kMillisecond) + "s";
}

std::string FormatChange(Duration change) {
    if (change == Duration(0)) {
        return FormatDuration(change);
    }
    return change > Duration(0) ? "+" + FormatDuration(change) : "-" + FormatDuration(-change);
}

std::string FormatInstant(Instant instant) {
    const auto whole = std::chrono::floor<std::chrono::seconds>(instant);
    return FormatTimeStamp(
        {.tv_sec = whole.time_since_epoch().count(), .tv_usec = (instant - whole).count()});
}

std::string FormatFixed(double value, int digits) {
    const double unit = std::pow(10.0, digits);
    value = std::round(value * unit) / unit;  // halves up, which the conversion does not do
    std::array<char, 400> text{};             // of the greatest number and so many digits
    const auto [end, error] =
        std::to_chars(text.data(), text.data() + text.size(), value, std::chars_format::fixed, digits);
    return error == std::errc() ? std::string(text.data(), end) : std::string("-");
}

}  // namespace bootweave
