// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <chrono>
#include <cstddef>
#include <string_view>

#include "util/line_buffer.h"

/// \file
/// The texts of log lines and kernel records: time stamps, cutting, records made harmless.
///
/// Pure functions over a buffer of the caller's. No function here takes a lock, the C library's hidden ones
/// of time zones, streams and message catalogues included: all may be called in the child of a fork.

namespace bootweave {

/// `text` without the newlines at its end.
[[nodiscard]] std::string_view WithoutTrailingNewlines(std::string_view text);

/// Appends "2026-11-15T15:04:56.123Z", or "2026-11-15T15:04:56Z" without milliseconds.
void AppendUtcStamp(LineBuffer& line, std::chrono::system_clock::time_point now, bool milliseconds);

/// Appends "Nov  5 15:04:56", the local time `utc_offset` east of UTC.
void AppendSyslogStamp(LineBuffer& line, std::chrono::system_clock::time_point now,
                       std::chrono::seconds utc_offset);

/// The largest length up to `limit` at which harmless text can be cut without breaking a UTF-8 sequence or a
/// `\xNN` escape; the whole length when that is not more than `limit`.
[[nodiscard]] std::size_t CutLength(std::string_view text, std::size_t limit);

/// Appends one record for the kernel's log: "<priority>bootweave: text" and a newline, at most 900 bytes in
/// all. A text that does not fit is cut and ends in "...".
void AppendKernelRecord(LineBuffer& record, int priority, std::string_view text);

}  // namespace bootweave
