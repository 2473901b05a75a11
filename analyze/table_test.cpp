// SPDX-License-Identifier: Apache-2.0
#include "analyze/table.h"

#include <sstream>

#include "gtest/gtest.h"

namespace bootweave {
namespace {

std::string Written(const TextStyle& style) {
    Table table({{"TIME", true, 6}, {"NAME", false, 4}, {"LAST", false, 0}});
    table.Add({{"1s"}, {"st\xC3\xB6rage", Emphasis::kBold}, {"x"}});
    table.AddGap();
    table.Add({{"12345.678s", Emphasis::kRed}, {"b"}, {"long", Emphasis::kGreen}});
    std::ostringstream out;
    table.Write(out, style);
    return out.str();
}

TEST(TableTest, PeopleGetColumnsAsWideAsWhatTheyHold) {
    EXPECT_EQ(
        "       TIME  NAME     LAST\n"
        "         1s  st\xC3\xB6rage  x\n"
        "\n"
        " 12345.678s  b        long\n",
        Written({.aligned = true}));
}

TEST(TableTest, ACharacterThatTakesTwoColumnsCountsTwo) {
    Table table({{"NAME", false, 0}, {"LAST", false}});
    table.Add({{"\xE7\xBD\x91"}, {"x"}});
    table.Add({{"storage"}, {"y"}});
    std::ostringstream out;
    table.Write(out, {.aligned = true});
    EXPECT_EQ("  NAME     LAST\n  \xE7\xBD\x91       x\n  storage  y\n", out.str());
}

TEST(TableTest, ColoursDoNotMoveTheColumns) {
    EXPECT_EQ(
        "       TIME  NAME     LAST\n"
        "         1s  \033[1mst\xC3\xB6rage\033[0m  x\n"
        "\n"
        " \033[31m12345.678s\033[0m  b        \033[32mlong\033[0m\n",
        Written({.aligned = true, .coloured = true}));
}

TEST(TableTest, ProgramsGetTabsAndNeitherHeaderNorGap) {
    EXPECT_EQ("1s\tst\xC3\xB6rage\tx\n12345.678s\tb\tlong\n", Written({}));
}

TEST(TableTest, AChangeHasASign) {
    EXPECT_EQ("+1.500ms", FormatChange(Duration(1500)));
    EXPECT_EQ("-850us", FormatChange(Duration(-850)));
    EXPECT_EQ("0us", FormatChange(Duration(0)));
}

TEST(TableTest, ANumberIsRounded) {
    EXPECT_EQ("0.05", FormatFixed(0.046, 2));
    EXPECT_EQ("100.0", FormatFixed(99.96, 1));
    EXPECT_EQ("9223372036854775808.00", FormatFixed(9223372036854775807.0, 2));
    EXPECT_EQ("1000000000000000000000", FormatFixed(1e21, 0));
}

}  // namespace
}  // namespace bootweave
