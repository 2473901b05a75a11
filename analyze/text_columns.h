// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

/// \file
/// How much room a text takes, on a terminal and, about, in a picture. What is no UTF-8 counts byte by byte.

namespace bootweave {

/// The length in bytes of the character that a text begins with, which is not empty.
[[nodiscard]] std::size_t CharacterLength(std::string_view text);

/// Columns that a text takes: two for each character of East Asian scripts, emoji and the like, none for what
/// is set upon the character in front of it.
[[nodiscard]] std::size_t ColumnsOf(std::string_view text);

/// The text, or its beginning and an ellipsis, in so many columns; nothing when three letters do not fit.
[[nodiscard]] std::string Shorten(std::string_view text, std::size_t columns);

}  // namespace bootweave
