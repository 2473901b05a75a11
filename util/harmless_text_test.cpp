// SPDX-License-Identifier: Apache-2.0
#include "util/harmless_text.h"

#include <cstdio>
#include <string>

#include "gtest/gtest.h"

namespace bootweave {
namespace {

std::string Harmless(std::string_view text) {
    LineBuffer line;
    AppendHarmless(line, text);
    return std::string(line.view());
}

TEST(HarmlessTextTest, ControlCharactersButTabBecomeEscapesAndAllElseStays) {
    using namespace std::string_view_literals;
    const struct {
        std::string_view text;
        std::string_view harmless;
    } table[] = {
        {"", ""},
        {"plain text, 'quoted' \\x41", "plain text, 'quoted' \\x41"},
        {"a\tb", "a\tb"},
        {"a\nb", "a\\x0ab"},
        {"\n", "\\x0a"},
        {"a\r\nb", "a\\x0d\\x0ab"},
        {"\0a\0"sv, "\\x00a\\x00"},
        {"\x01\x1f\x7f", "\\x01\\x1f\\x7f"},
        {"\x1b[31mred\x1b[0m", "\\x1b[31mred\\x1b[0m"},
        {" ~", " ~"},
        // C1 as UTF-8 has it, to the edges of the range.
        {"\xC2\x80", "\\xc2\\x80"},
        {"\xC2\x9B"
         "2J",
         "\\xc2\\x9b2J"},
        {"\xC2\x9F", "\\xc2\\x9f"},
        {"\xC2\xA0", "\xC2\xA0"},
        {"\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80", "\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80"},
        // The separators of lines and paragraphs, and what turns text around, to the edges of both ranges.
        {"\xE2\x80\xA7", "\xE2\x80\xA7"},
        {"\xE2\x80\xA8", "\\xe2\\x80\\xa8"},
        {"a\xE2\x80\xAE"
         "b",
         "a\\xe2\\x80\\xaeb"},
        {"\xE2\x80\xAF", "\xE2\x80\xAF"},
        {"\xE2\x81\xA5", "\xE2\x81\xA5"},
        {"\xE2\x81\xA6", "\\xe2\\x81\\xa6"},
        {"\xE2\x81\xA9", "\\xe2\\x81\\xa9"},
        {"\xE2\x81\xAA", "\xE2\x81\xAA"},
        {"\xE3\x80\xA8\xC3\x80", "\xE3\x80\xA8\xC3\x80"},
        // Bytes of C1 within a well-formed sequence are part of a letter, alone they are controls.
        {"\xE2\x80\x9C", "\xE2\x80\x9C"},
        {"\x9B", "\\x9b"},
        {"\x85next", "\\x85next"},
        {"\xA0\xFF", "\xA0\xFF"},
        // Not well-formed: overlong newlines, a surrogate, beyond Unicode, cut off.
        {"\xC0\x8A", "\xC0\\x8a"},
        {"\xE0\x80\x8A", "\xE0\\x80\\x8a"},
        {"\xF0\x80\x80\x8A", "\xF0\\x80\\x80\\x8a"},
        {"\xED\xA0\x80", "\xED\xA0\\x80"},
        {"\xF4\x90\x80\x80", "\xF4\\x90\\x80\\x80"},
        {"\xF5\x80\x80\x80", "\xF5\\x80\\x80\\x80"},
        {"\xE2\x82", "\xE2\\x82"},
        {"\xE2\x82\n", "\xE2\\x82\\x0a"},
        {"\xC2\n", "\xC2\\x0a"},
        {"\xC2", "\xC2"},
    };
    for (const auto& row : table) {
        EXPECT_EQ(row.harmless, Harmless(row.text)) << testing::PrintToString(row.text);
    }
}

TEST(HarmlessTextTest, EveryByteAloneIsEscapedExactlyWhenItIsAControlCharacter) {
    for (int value = 0; value < 256; ++value) {
        const std::string byte(1, static_cast<char>(value));
        const bool control = (value < 0x20 && value != '\t') || (value >= 0x7F && value <= 0x9F);
        char escape[8];
        std::snprintf(escape, sizeof escape, "\\x%02x", static_cast<unsigned>(value));
        EXPECT_EQ(control ? escape : byte, Harmless(byte)) << value;
    }
}

}  // namespace
}  // namespace bootweave
