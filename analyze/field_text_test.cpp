// SPDX-License-Identifier: Apache-2.0
#include "analyze/field_text.h"

#include "gtest/gtest.h"

namespace bootweave {
namespace {

TEST(FieldTextTest, NothingInAFieldEndsItOrItsLine) {
    EXPECT_EQ("", FieldText(""));
    EXPECT_EQ("\\x09", FieldText("\t"));
    EXPECT_EQ("a b\xC3\xB6", FieldText("a b\xC3\xB6"));
    EXPECT_EQ("a\\x09b\\x0a\\x1b[0m\\x00", FieldText(std::string_view("a\tb\n\033[0m\0", 9)));
}

}  // namespace
}  // namespace bootweave
