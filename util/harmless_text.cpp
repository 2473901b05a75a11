// SPDX-License-Identifier: Apache-2.0
#include "util/harmless_text.h"

#include <array>

namespace bootweave {
namespace {

unsigned char ByteAt(std::string_view text, std::size_t index) {
    return index < text.size() ? static_cast<unsigned char>(text[index]) : 0;
}

bool IsContinuation(unsigned char byte) {
    return (byte & 0xC0) == 0x80;
}

/// One character as a terminal or a log reader may take it.
struct Unit {
    std::size_t length;
    bool control;
};

/// Whether a well-formed sequence is a control character, or acts like one.
bool IsControlSequence(std::string_view text) {
    const unsigned char second = ByteAt(text, 1);
    const unsigned char third = ByteAt(text, 2);
    if (ByteAt(text, 0) == 0xC2) {
        return second < 0xA0;
    }
    // U+2028 to U+202E, U+2066 to U+2069
    const bool ends_line_or_turns_text = second == 0x80 && third >= 0xA8 && third <= 0xAE;
    const bool isolates_text = second == 0x81 && third >= 0xA6 && third <= 0xA9;
    return ByteAt(text, 0) == 0xE2 && (ends_line_or_turns_text || isolates_text);
}

Unit NextUnit(std::string_view text) {
    const unsigned char first = ByteAt(text, 0);
    if (first < 0x80) {
        return {1, (first < 0x20 && first != '\t') || first == 0x7F};
    }
    const std::size_t sequence = Utf8SequenceLength(text);
    if (sequence == 0) {
        return {1, first < 0xA0};
    }
    return {sequence, IsControlSequence(text)};
}

void AppendEscaped(LineBuffer& line, std::string_view bytes) {
    constexpr std::string_view kDigits = "0123456789abcdef";
    for (const char byte : bytes) {
        const auto value = static_cast<unsigned char>(byte);
        const std::array<char, 4> escape = {'\\', 'x', kDigits[value >> 4], kDigits[value & 0xF]};
        line.Append({escape.data(), escape.size()});
    }
}

}  // namespace

std::size_t Utf8SequenceLength(std::string_view text) {
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

}  // namespace bootweave
