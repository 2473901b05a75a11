// SPDX-License-Identifier: Apache-2.0
#include "analyze/svg_canvas.h"

#include <sstream>

#include "gtest/gtest.h"

namespace bootweave {
namespace {

TEST(SvgCanvasTest, ATextOpensAndEndsNothing) {
    EXPECT_EQ("&lt;/text&gt;&amp;amp; &quot;it's&quot;", XmlText("</text>&amp; \"it's\""));
    EXPECT_EQ("]]&gt;", XmlText("]]>"));
}

TEST(SvgCanvasTest, WhatXmlHasNoCharacterForIsReplaced) {
    EXPECT_EQ("a\xEF\xBF\xBD", XmlText("a\x01"));
    EXPECT_EQ("\xEF\xBF\xBD", XmlText("\xFF"));
    EXPECT_EQ("\xEF\xBF\xBD", XmlText("\xEF\xBF\xBE"));
    EXPECT_EQ("\xEF\xBF\xBD", XmlText("\xEF\xBF\xBF"));
    EXPECT_EQ("\t\n\xC3\xB6", XmlText("\t\n\xC3\xB6"));
}

TEST(SvgCanvasTest, EachMarkIsALine) {
    std::ostringstream out;
    SvgCanvas canvas(out);
    canvas.BeginGroup("a & b");
    canvas.Rectangle("bar", 1, 2, 3.25, 4);
    canvas.EndGroup();
    canvas.Line("tick", 1, 2, 3, 4);
    canvas.Text("quiet", 5, 6, "<");
    canvas.End();
    EXPECT_EQ(
        "<g><title>a &amp; b</title>\n"
        R"(<rect class="bar" x="1.0" y="2.0" width="3.3" height="4.0"/>)"
        "\n</g>\n"
        R"(<line class="tick" x1="1.0" y1="2.0" x2="3.0" y2="4.0"/>)"
        "\n"
        R"(<text class="quiet" x="5.0" y="6.0">&lt;</text>)"
        "\n</svg>\n",
        out.str());
}

TEST(SvgCanvasTest, TheFrameHasItsSizeAndSaysWhatItHolds) {
    std::ostringstream out;
    SvgCanvas(out).Begin(100, 50.5, "a \"boot\"", ".bar{}");
    EXPECT_EQ(
        "<svg xmlns=\"http://www.w3.org/2000/svg\"\n width=\"100.0\" height=\"50.5\" "
        "viewBox=\"0 0 100.0 50.5\"\n role=\"img\" aria-label=\"a &quot;boot&quot;\">\n"
        "<style>\n.bar{}</style>\n",
        out.str());
}

}  // namespace
}  // namespace bootweave
