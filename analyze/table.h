// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <cstdint>
#include <ostream>
#include <string>
#include <string_view>
#include <vector>

#include "analyze/boot_profile.h"

/// \file
/// How reports are set for people and for programs that read lines.

namespace bootweave {

/// How a text is laid out. Programs get fields separated by one tab, and no header.
struct TextStyle {
    bool aligned = false;   ///< columns, and a header above them
    bool coloured = false;  ///< what matters stands out; only with `aligned`
};

/// What makes a text stand out on a terminal.
enum class Emphasis {
    kNone,
    kBold,
    kRed,
    kGreen,
};

/// The text, between the terminal's sequences for it when the style has colours.
[[nodiscard]] std::string Emphasized(std::string_view text, Emphasis emphasis, const TextStyle& style);

/// Rows of fields.
class Table {
  public:
    /// Numbers are set to the right, texts to the left.
    struct Column {
        std::string title;
        bool number = true;
        std::size_t width = 14;  ///< at least, with the gap in front of it
    };
    struct Field {
        std::string text;  ///< one line
        Emphasis emphasis = Emphasis::kNone;
    };

    explicit Table(std::vector<Column> columns);

    /// Adds a row; it has a field for each column.
    void Add(std::vector<Field> row);
    /// For people: leaves a line empty here.
    void AddGap() { Add({}); }

    void Write(std::ostream& out, const TextStyle& style) const;

  private:
    static void MakeRoom(Column& column, std::string_view text);
    void WriteRow(std::ostream& out, const std::vector<Field>& row, const TextStyle& style) const;

    std::vector<Column> columns_;
    std::vector<std::vector<Field>> rows_;
};

/// "850us", "12.345ms", "1.234s" or "2min 3.456s"; what is left over is cut off.
[[nodiscard]] std::string FormatDuration(Duration duration);

/// The same with a sign, "0us" without one.
[[nodiscard]] std::string FormatChange(Duration change);

/// The log's own stamp, in UTC.
[[nodiscard]] std::string FormatInstant(Instant instant);

/// `value` with `digits` behind the point, rounded; the point is one in every locale. Not negative.
[[nodiscard]] std::string FormatFixed(double value, int digits);

}  // namespace bootweave
