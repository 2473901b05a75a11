// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>
#include <string_view>

namespace bootweave {

/// The text as one field of a report's line: with every control character, TAB among them, as `\xNN`.
[[nodiscard]] std::string FieldText(std::string_view text);

}  // namespace bootweave
