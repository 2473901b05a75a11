// SPDX-License-Identifier: Apache-2.0
#include "analyze/utf8_text.h"

#include <cstddef>

#include "util/harmless_text.h"

namespace bootweave {

std::string Utf8Text(std::string_view text) {
    constexpr unsigned char kBeyondAscii = 0x80;
    constexpr std::string_view kReplacement = "\xEF\xBF\xBD";
    std::string result;
    while (!text.empty()) {
        std::size_t length = 1;
        if (static_cast<unsigned char>(text.front()) >= kBeyondAscii) {
            length = Utf8SequenceLength(text);
        }
        const std::string_view character = text.substr(0, length);
        const bool none = length == 0 || character == "\xEF\xBF\xBE" || character == "\xEF\xBF\xBF";
        result += none ? kReplacement : character;
        text.remove_prefix(length == 0 ? 1 : length);
    }
    return result;
}

}  // namespace bootweave
