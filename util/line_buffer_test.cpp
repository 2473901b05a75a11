// SPDX-License-Identifier: Apache-2.0
#include "util/line_buffer.h"

#include <string>

#include "gtest/gtest.h"

namespace bootweave {
namespace {

__attribute__((format(printf, 2, 3))) void AppendThroughList(LineBuffer& line, const char* format, ...) {
    std::va_list arguments;
    va_start(arguments, format);
    line.AppendFormattedV(format, arguments);
    va_end(arguments);
}

TEST(LineBufferTest, GrowsBeyondItsOwnMemory) {
    LineBuffer line;
    std::string expected;
    for (int count = 0; count < 1000; ++count) {
        line.Append("0123456789");
        line.AppendFormatted("%d", count);
        expected += "0123456789" + std::to_string(count);
    }
    line.End('\n');
    EXPECT_EQ(expected + "\n", line.view());
}

TEST(LineBufferTest, FormatsTextOfEveryLengthAroundItsOwnMemory) {
    for (std::size_t size = 1000; size < 1050; ++size) {
        const std::string text(size, 'x');
        LineBuffer line;
        AppendThroughList(line, "%s|%d", text.c_str(), 7);
        EXPECT_EQ(text + "|7", line.view());
        line.End('\n');
        EXPECT_EQ(text + "|7\n", line.view());
    }
}

TEST(LineBufferTest, NumbersAreFilledUpToTheirWidthAndNeverCut) {
    LineBuffer line;
    for (const unsigned number : {0U, 7U, 42U, 12345U, 4294967295U}) {
        line.AppendNumber(number);
        line.Append(" ");
        line.AppendNumber(number, 3);
        line.Append(" ");
        line.AppendNumber(number, 2, ' ');
        line.Append(",");
    }
    EXPECT_EQ("0 000  0,7 007  7,42 042 42,12345 12345 12345,4294967295 4294967295 4294967295,", line.view());
}

TEST(LineBufferTest, AFormatThatCannotBePrintedStandsForItself) {
    const wchar_t unprintable[] = {0x110000, 0};  // no character of any locale
    LineBuffer line;
    AppendThroughList(line, "cannot be: %ls", unprintable);
    EXPECT_EQ("cannot be: %ls", line.view());
}

TEST(LineBufferTest, TruncateOnlyShortens) {
    LineBuffer line;
    line.Append("abc");
    line.Truncate(5);
    EXPECT_EQ("abc", line.view());
    line.Truncate(1);
    line.Append("z");
    EXPECT_EQ("az", line.view());
}

}  // namespace
}  // namespace bootweave
