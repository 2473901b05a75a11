// SPDX-License-Identifier: Apache-2.0
#include "util/line_buffer.h"

#include <algorithm>
#include <charconv>
#include <cstdio>
#include <cstring>
#include <new>
#include <utility>

namespace bootweave {

std::size_t LineBuffer::Room(std::size_t wanted) {
    const std::size_t needed = size_ + wanted + 1;  // the one is End's
    if (needed > capacity_) {
        const std::size_t capacity = std::max(needed, capacity_ * 2);
        std::unique_ptr<char[]> larger(new (std::nothrow) char[capacity]);
        if (larger == nullptr) {
            return size_ < capacity_ ? capacity_ - size_ - 1 : 0;
        }
        std::memcpy(larger.get(), data(), size_);
        heap_ = std::move(larger);
        capacity_ = capacity;
    }
    return wanted;
}

void LineBuffer::Append(std::string_view text) {
    const std::size_t count = Room(text.size());
    if (count > 0) {
        std::memcpy(data() + size_, text.data(), count);
        size_ += count;
    }
}

void LineBuffer::AppendNumber(unsigned number, unsigned width, char fill) {
    std::array<char, 10> digits;  // of the greatest number
    const char* const end = std::to_chars(digits.begin(), digits.end(), number).ptr;
    const std::string_view text(digits.data(), static_cast<std::size_t>(end - digits.data()));
    for (std::size_t count = text.size(); count < width; ++count) {
        Append({&fill, 1});
    }
    Append(text);
}

void LineBuffer::AppendFormatted(const char* format, ...) {
    std::va_list arguments;
    va_start(arguments, format);
    AppendFormattedV(format, arguments);
    va_end(arguments);
}

void LineBuffer::AppendFormattedV(const char* format, std::va_list arguments) {
    // vsnprintf ends what it writes with a null, which the byte kept for End has room for.
    std::va_list again;
    va_copy(again, arguments);
    const int length = std::vsnprintf(data() + size_, capacity_ - size_, format, arguments);
    if (length < 0) {
        Append(format);
    } else if (static_cast<std::size_t>(length) < capacity_ - size_) {
        size_ += static_cast<std::size_t>(length);
    } else {
        const std::size_t room = Room(static_cast<std::size_t>(length));
        std::vsnprintf(data() + size_, room + 1, format, again);
        size_ += room;
    }
    va_end(again);
}

void LineBuffer::End(char last) {
    if (size_ < capacity_) {
        data()[size_++] = last;
    }
}

void LineBuffer::Truncate(std::size_t size) {
    size_ = std::min(size, size_);
}

}  // namespace bootweave
