// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <array>
#include <cstdarg>
#include <cstddef>
#include <memory>
#include <string_view>

namespace bootweave {

/// Text that grows, on the stack while it is short. Nothing raises: what memory cannot be had for is left
/// out. Takes no lock: it may be used in the child of a fork.
class LineBuffer {
  public:
    LineBuffer() = default;
    LineBuffer(const LineBuffer&) = delete;
    LineBuffer& operator=(const LineBuffer&) = delete;

    void Append(std::string_view text);
    /// Appends a number in decimal, filled up to `width` in front; one that is wider is not cut. A log line
    /// has eight of them, and printf would take longer for those than all else does for the line.
    void AppendNumber(unsigned number, unsigned width = 1, char fill = '0');
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

}  // namespace bootweave
