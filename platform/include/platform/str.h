// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdarg>
#include <cstddef>

/// \file
/// Formatted text in memory of its own.

/// Formats into newly allocated memory.
///
/// \param length  receives the length of the text without its end; may be null
/// \return the text, never null; the caller frees it with `free`. A format that cannot be printed and a
///         lack of memory end the process.
char* Str_SafeVasprintf(std::size_t* length, const char* format, std::va_list arguments)
    __attribute__((format(printf, 2, 0)));
