// SPDX-License-Identifier: Apache-2.0
#include "analyze/utf8_text.h"

#include "gtest/gtest.h"

namespace bootweave {
namespace {

TEST(Utf8TextTest, WhatIsUtf8Stays) {
    EXPECT_EQ("", Utf8Text(""));
    EXPECT_EQ("st\xC3\xB6rage \xF0\x9F\x98\x80", Utf8Text("st\xC3\xB6rage \xF0\x9F\x98\x80"));
}

TEST(Utf8TextTest, EachByteThatIsNoneIsReplaced) {
    EXPECT_EQ("a\xEF\xBF\xBD\xEF\xBF\xBD", Utf8Text("a\xFF\xC3"));
    EXPECT_EQ("\xEF\xBF\xBD\xEF\xBF\xBD\xEF\xBF\xBD", Utf8Text("\xED\xA0\x80"));  // a surrogate
}

TEST(Utf8TextTest, WhatUnicodeKeepsOutOfTextsIsReplaced) {
    EXPECT_EQ("\xEF\xBF\xBD", Utf8Text("\xEF\xBF\xBE"));
    EXPECT_EQ("\xEF\xBF\xBD", Utf8Text("\xEF\xBF\xBF"));
    EXPECT_EQ("\xEF\xBF\xBC", Utf8Text("\xEF\xBF\xBC"));
}

}  // namespace
}  // namespace bootweave
