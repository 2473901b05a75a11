// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>
#include <string_view>

namespace bootweave {

/// The text with U+FFFD for each byte that is no UTF-8, and for U+FFFE and U+FFFF, which no text has: a log
/// may hold any, formats that programs read may not.
[[nodiscard]] std::string Utf8Text(std::string_view text);

}  // namespace bootweave
