// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>
#include <string_view>
#include <vector>

/// \file
/// The lexical layer of management command lines: words, quotes and the characters of names.
///
/// Words are separated by blanks and tabs. Single quotes keep everything; double quotes keep everything but
/// `\"` and `\\`; outside quotes a backslash keeps the next character. Every other byte, NUL and bytes beyond
/// ASCII included, is an ordinary character. Nothing here depends on the locale.

namespace bootweave {

/// One word, quotes and backslashes resolved.
struct CommandWord {
    std::string text;
    bool option = false;  ///< its first character is a '-' that was neither quoted nor escaped
};

/// Splits a line into words.
///
/// \throws Exception  "unterminated quote" or "trailing backslash"
[[nodiscard]] std::vector<CommandWord> SplitCommandLine(std::string_view line);

/// Whether `text` can be a word of a command path: letters, digits, '_' and '-', not starting with '-'. Such
/// a word is also harmless as a part of a file name.
[[nodiscard]] bool IsCommandWord(std::string_view text);

/// Whether `text` is the name of a long option: letters, digits, '_' and '-', starting with a letter.
[[nodiscard]] bool IsLongOptionName(std::string_view text);

/// Whether `text` is the name of a short option: one letter.
[[nodiscard]] bool IsShortOptionName(std::string_view text);

}  // namespace bootweave
