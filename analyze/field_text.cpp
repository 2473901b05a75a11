// SPDX-License-Identifier: Apache-2.0
#include "analyze/field_text.h"

#include "util/harmless_text.h"
#include "util/line_buffer.h"

namespace bootweave {

std::string FieldText(std::string_view text) {
    LineBuffer line;
    AppendHarmless(line, text);
    std::string field;
    for (const char character : line.view()) {  // log lines may hold a TAB, which here ends a field
        field += character == '\t' ? std::string("\\x09") : std::string(1, character);
    }
    return field;
}

}  // namespace bootweave
