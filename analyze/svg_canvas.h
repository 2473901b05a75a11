// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <ostream>
#include <string>
#include <string_view>

/// \file
/// The few marks that a picture in SVG is made of. Lengths are pixels; classes name what the style sheet
/// colours.

namespace bootweave {

/// The text as XML has it, in contents and in attributes: no byte of it opens or ends anything, and what XML
/// has no character for is U+FFFD.
[[nodiscard]] std::string XmlText(std::string_view text);

/// Writes the marks, each in a line. The stream outlives it.
class SvgCanvas {
  public:
    explicit SvgCanvas(std::ostream& out) : out_(out) {}

    /// The picture's frame; `label` says what it is to those who do not see it.
    void Begin(double width, double height, std::string_view label, std::string_view style_sheet);
    void End();

    /// What follows until EndGroup has this tooltip.
    void BeginGroup(std::string_view tooltip);
    void EndGroup();

    void Rectangle(std::string_view css_class, double x, double y, double width, double height);
    void Line(std::string_view css_class, double x1, double y1, double x2, double y2);
    void Text(std::string_view css_class, double x, double y, std::string_view text);

  private:
    std::ostream& out_;
};

}  // namespace bootweave
