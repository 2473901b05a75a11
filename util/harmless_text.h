// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <string_view>

#include "util/line_buffer.h"

/// \file
/// Text that others chose, fit for a line that people and programs read.

namespace bootweave {

/// Appends `text` with every control character but TAB as `\xNN`, one for each of its bytes: C0, DEL, C1
/// both as UTF-8 has it and as a byte of its own outside any sequence, the line and paragraph separators, and
/// what turns the direction of the text around it. A reader sees one line, and what cannot be shown instead
/// of its effect.
void AppendHarmless(LineBuffer& line, std::string_view text);

/// The length of the well-formed UTF-8 sequence of two bytes or more that `text` begins with; 0 is none.
[[nodiscard]] std::size_t Utf8SequenceLength(std::string_view text);

}  // namespace bootweave
