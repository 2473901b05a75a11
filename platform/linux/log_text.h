// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <array>
#include <chrono>
#include <cstdarg>
#include <cstddef>
#include <memory>
#include <string_view>

/// \file
/// The texts of log lines and kernel records: time stamps, control characters made harmless, cutting.
///
/// Pure functions over a buffer of the caller's. No function here takes a lock, the C library's hidden ones
/// of time zones, streams and message catalogues included: all may be called in the child of a fork.

namespace bootweave {

/// Text that grows, on the stack while it is short. Nothing raises: what memory cannot be had for is left
/// out.
class LineBuffer {
  public:
    LineBuffer() = default;
    LineBuffer(const LineBuffer&) = delete;
    LineBuffer& operator=(const LineBuffer&) = delete;

    void Append(std::string_view text);
    /// Appends what printf would write.
    void AppendFormatted(const char* format, ...) __attribute__((format(printf, 2, 3)));
    /// Appends what vprintf would write; a format that cannot be printed is appended as it is.
    void AppendFormattedV(const char* format, std::va_list arguments) __attribute__((format(printf, 2, 0)));
    /// Appends the last character of a line, for which there is always room.
    void End(char last);
    /// Cuts the text down to `size` bytes.
    void Truncate(std::size_t size);
    [[nodiscard]] std::string_view view() const { return {data(), size_}; }

  private:
    [[nodiscard]] char* data() { return heap_ != nullptr ? heap_.get() : inline_.data(); }
    [[nodiscard]] const char* data() const { return heap_ != nullptr ? heap_.get() : inline_.data(); }
    /// How much of `wanted` more bytes there is room for, after growing.
    [[nodiscard]] std::size_t Room(std::size_t wanted);

    std::array<char, 1024> inline_;
    std::unique_ptr<char[]> heap_;
    std::size_t capacity_ = inline_.size();
    std::size_t size_ = 0;
};

/// Appends `text` with every control character but TAB as `\xNN`, one for each of its bytes: C0, DEL, and C1
/// both as UTF-8 has it and as a byte of its own outside any sequence. A reader sees one line, and what
/// cannot be shown instead of its effect.
void AppendHarmless(LineBuffer& line, std::string_view text);

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
