// SPDX-License-Identifier: Apache-2.0
#include "analyze/text_columns.h"

#include "gtest/gtest.h"

namespace bootweave {
namespace {

TEST(TextColumnsTest, WideCharactersTakeTwoColumns) {
    EXPECT_EQ(0U, ColumnsOf(""));
    EXPECT_EQ(3U, ColumnsOf("a\xC3\xB6z"));
    EXPECT_EQ(1U, ColumnsOf("\xE1\x83\xBF"));
    EXPECT_EQ(1U, ColumnsOf("\xE2\x86\x92"));      // an arrow
    EXPECT_EQ(2U, ColumnsOf("\xEF\xBC\xA1"));      // a fullwidth letter
    EXPECT_EQ(1U, ColumnsOf("\xEF\xBE\x9F"));      // a halfwidth mark
    EXPECT_EQ(2U, ColumnsOf("\xF0\x9F\x9A\x80"));  // a rocket
    EXPECT_EQ(2U, ColumnsOf("\xF0\xA0\x80\x80"));  // U+20000
    EXPECT_EQ(1U, ColumnsOf("\xF0\x9D\x94\xB8"));  // a letter of mathematics
    EXPECT_EQ(2U, ColumnsOf("\xE1\x84\x80"));
    EXPECT_EQ(4U, ColumnsOf("\xE7\xBD\x91\xE7\xBB\x9C"));
}

TEST(TextColumnsTest, MarksUponACharacterTakeNoColumn) {
    EXPECT_EQ(1U, ColumnsOf("o\xCC\x88"));
    EXPECT_EQ(0U, ColumnsOf("\xE2\x80\x8B"));
}

TEST(TextColumnsTest, WhatIsNoUtf8CountsByteByByte) {
    EXPECT_EQ(3U, ColumnsOf("\xFF\x80"
                            "a"));
}

TEST(TextColumnsTest, AShortenedTextEndsInAnEllipsis) {
    EXPECT_EQ("network", Shorten("network", 7));
    EXPECT_EQ("netw\xE2\x80\xA6", Shorten("network", 5));
    EXPECT_EQ("", Shorten("network", 3));
    EXPECT_EQ("a", Shorten("a", 1));
    EXPECT_EQ("\xE7\xBD\x91\xE2\x80\xA6", Shorten("\xE7\xBD\x91\xE7\xBB\x9C\xE7\xBB\x9C", 4));
}

}  // namespace
}  // namespace bootweave
