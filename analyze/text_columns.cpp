// SPDX-License-Identifier: Apache-2.0
#include "analyze/text_columns.h"

#include <algorithm>
#include <array>

#include "util/harmless_text.h"

namespace bootweave {
namespace {

struct Range {
    char32_t first;
    char32_t last;
};

// Tables of our own: the C library's speak of the locale, and a boot's has none.
constexpr std::array<Range, 86> kWide{
    {{0x1100, 0x115F},   {0x231A, 0x231B},   {0x2329, 0x232A},   {0x23E9, 0x23EC},   {0x23F0, 0x23F0},
     {0x23F3, 0x23F3},   {0x25FD, 0x25FE},   {0x2614, 0x2615},   {0x2648, 0x2653},   {0x267F, 0x267F},
     {0x2693, 0x2693},   {0x26A1, 0x26A1},   {0x26AA, 0x26AB},   {0x26BD, 0x26BE},   {0x26C4, 0x26C5},
     {0x26CE, 0x26CE},   {0x26D4, 0x26D4},   {0x26EA, 0x26EA},   {0x26F2, 0x26F3},   {0x26F5, 0x26F5},
     {0x26FA, 0x26FA},   {0x26FD, 0x26FD},   {0x2705, 0x2705},   {0x270A, 0x270B},   {0x2728, 0x2728},
     {0x274C, 0x274C},   {0x274E, 0x274E},   {0x2753, 0x2755},   {0x2757, 0x2757},   {0x2795, 0x2797},
     {0x27B0, 0x27B0},   {0x27BF, 0x27BF},   {0x2B1B, 0x2B1C},   {0x2B50, 0x2B50},   {0x2B55, 0x2B55},
     {0x2E80, 0x3029},   {0x302E, 0x303E},   {0x3041, 0x3098},   {0x309B, 0x4DBF},   {0x4E00, 0xA4CF},
     {0xA960, 0xA97C},   {0xAC00, 0xD7A3},   {0xF900, 0xFAFF},   {0xFE10, 0xFE19},   {0xFE30, 0xFE6F},
     {0xFF01, 0xFF60},   {0xFFE0, 0xFFE6},   {0x16FE0, 0x18CFF}, {0x1AFF0, 0x1B2FF}, {0x1F004, 0x1F004},
     {0x1F0CF, 0x1F0CF}, {0x1F18E, 0x1F18E}, {0x1F191, 0x1F19A}, {0x1F200, 0x1F265}, {0x1F300, 0x1F320},
     {0x1F32D, 0x1F335}, {0x1F337, 0x1F37C}, {0x1F37E, 0x1F393}, {0x1F3A0, 0x1F3CA}, {0x1F3CF, 0x1F3D3},
     {0x1F3E0, 0x1F3F0}, {0x1F3F4, 0x1F3F4}, {0x1F3F8, 0x1F43E}, {0x1F440, 0x1F440}, {0x1F442, 0x1F4FC},
     {0x1F4FF, 0x1F53D}, {0x1F54B, 0x1F54E}, {0x1F550, 0x1F567}, {0x1F57A, 0x1F57A}, {0x1F595, 0x1F596},
     {0x1F5A4, 0x1F5A4}, {0x1F5FB, 0x1F64F}, {0x1F680, 0x1F6C5}, {0x1F6CC, 0x1F6CC}, {0x1F6D0, 0x1F6D2},
     {0x1F6D5, 0x1F6D7}, {0x1F6DC, 0x1F6DF}, {0x1F6EB, 0x1F6EC}, {0x1F6F4, 0x1F6FC}, {0x1F7E0, 0x1F7EB},
     {0x1F7F0, 0x1F7F0}, {0x1F90C, 0x1F93A}, {0x1F93C, 0x1F945}, {0x1F947, 0x1F9FF}, {0x1FA70, 0x1FAFF},
     {0x20000, 0x3FFFD}}};

constexpr std::array<Range, 21> kUponOthers{
    {{0x0300, 0x036F},  {0x0483, 0x0489}, {0x0591, 0x05BD}, {0x0610, 0x061A}, {0x064B, 0x065F},
     {0x0E31, 0x0E31},  {0x0E34, 0x0E3A}, {0x0E47, 0x0E4E}, {0x1160, 0x11FF}, {0x1AB0, 0x1AFF},
     {0x1DC0, 0x1DFF},  {0x200B, 0x200F}, {0x202A, 0x202E}, {0x2060, 0x2064}, {0x20D0, 0x20FF},
     {0x302A, 0x302D},  {0x3099, 0x309A}, {0xFE00, 0xFE0F}, {0xFE20, 0xFE2F}, {0xFEFF, 0xFEFF},
     {0xE0100, 0xE01EF}}};

template <std::size_t kSize>
bool IsIn(const std::array<Range, kSize>& ranges, char32_t character) {
    const auto* const found =
        std::lower_bound(ranges.begin(), ranges.end(), character,
                         [](const Range& range, char32_t wanted) { return range.last < wanted; });
    return found != ranges.end() && found->first <= character;
}

/// The number of a well-formed character of several bytes.
char32_t Decode(std::string_view character) {
    constexpr unsigned kContinuationBits = 6;
    auto number =
        static_cast<char32_t>(static_cast<unsigned char>(character[0]) & (0x7FU >> character.size()));
    for (const char byte : character.substr(1)) {
        number = (number << kContinuationBits) | (static_cast<unsigned char>(byte) & 0x3FU);
    }
    return number;
}

std::size_t WidthOf(std::string_view character) {
    if (character.size() == 1) {
        return 1;
    }
    const char32_t number = Decode(character);
    if (IsIn(kUponOthers, number)) {
        return 0;
    }
    return IsIn(kWide, number) ? 2 : 1;
}

}  // namespace

std::size_t CharacterLength(std::string_view text) {
    return std::max<std::size_t>(Utf8SequenceLength(text), 1);
}

std::size_t ColumnsOf(std::string_view text) {
    std::size_t columns = 0;
    while (!text.empty()) {
        const std::string_view character = text.substr(0, CharacterLength(text));
        columns += WidthOf(character);
        text.remove_prefix(character.size());
    }
    return columns;
}

std::string Shorten(std::string_view text, std::size_t columns) {
    constexpr std::size_t kLeast = 4;  // three letters and the ellipsis
    if (ColumnsOf(text) <= columns) {
        return std::string(text);
    }
    if (columns < kLeast) {
        return "";
    }
    std::string result;
    std::size_t used = 1;
    while (!text.empty()) {
        const std::string_view character = text.substr(0, CharacterLength(text));
        used += WidthOf(character);
        if (used > columns) {
            break;
        }
        result += character;
        text.remove_prefix(character.size());
    }
    return result + "\xE2\x80\xA6";
}

}  // namespace bootweave
