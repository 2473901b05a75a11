// SPDX-License-Identifier: Apache-2.0
#include "analyze/svg_canvas.h"

#include <algorithm>
#include <cstddef>

#include "analyze/table.h"
#include "analyze/text_columns.h"
#include "analyze/utf8_text.h"

namespace bootweave {
namespace {

constexpr std::string_view kReplacement = "\xEF\xBF\xBD";

std::string Number(double value) {
    return FormatFixed(std::max(value, 0.0), 1);
}

std::string_view Escaped(std::string_view character) {
    if (character == "&") {
        return "&amp;";
    }
    if (character == "<") {
        return "&lt;";
    }
    if (character == ">") {
        return "&gt;";
    }
    if (character == "\"") {
        return "&quot;";
    }
    const bool control = character.size() == 1 && static_cast<unsigned char>(character[0]) < 0x20 &&
                         character != "\t" && character != "\n";
    return control ? kReplacement : character;
}

}  // namespace

std::string XmlText(std::string_view text) {
    const std::string valid = Utf8Text(text);
    std::string result;
    for (std::string_view rest = valid; !rest.empty();) {
        const std::string_view character = rest.substr(0, CharacterLength(rest));
        result += Escaped(character);
        rest.remove_prefix(character.size());
    }
    return result;
}

void SvgCanvas::Begin(double width, double height, std::string_view label, std::string_view style_sheet) {
    out_ << "<svg xmlns=\"http://www.w3.org/2000/svg\"\n width=\"" << Number(width) << "\" height=\""
         << Number(height) << "\" viewBox=\"0 0 " << Number(width) << " " << Number(height)
         << "\"\n role=\"img\" aria-label=\"" << XmlText(label) << "\">\n<style>\n"
         << style_sheet << "</style>\n";
}

void SvgCanvas::End() {
    out_ << "</svg>\n";
}

void SvgCanvas::BeginGroup(std::string_view tooltip) {
    out_ << "<g><title>" << XmlText(tooltip) << "</title>\n";
}

void SvgCanvas::EndGroup() {
    out_ << "</g>\n";
}

void SvgCanvas::Rectangle(std::string_view css_class, double x, double y, double width, double height) {
    out_ << R"(<rect class=")" << css_class << R"(" x=")" << Number(x) << R"(" y=")" << Number(y)
         << R"(" width=")" << Number(width) << R"(" height=")" << Number(height) << "\"/>\n";
}

void SvgCanvas::Line(std::string_view css_class, double x1, double y1, double x2, double y2) {
    out_ << R"(<line class=")" << css_class << R"(" x1=")" << Number(x1) << R"(" y1=")" << Number(y1)
         << R"(" x2=")" << Number(x2) << R"(" y2=")" << Number(y2) << "\"/>\n";
}

void SvgCanvas::Text(std::string_view css_class, double x, double y, std::string_view text) {
    out_ << R"(<text class=")" << css_class << R"(" x=")" << Number(x) << R"(" y=")" << Number(y) << "\">"
         << XmlText(text) << "</text>\n";
}

}  // namespace bootweave
