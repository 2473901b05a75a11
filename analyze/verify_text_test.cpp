// SPDX-License-Identifier: Apache-2.0
#include "analyze/verify_text.h"

#include <sstream>
#include <string>

#include "gtest/gtest.h"

namespace bootweave {
namespace {

const Finding kError{"a.json", Severity::kError, FindingKind::kCommand, "a", "bad"};
const Finding kWarning{"b.json", Severity::kWarning, FindingKind::kFlags, "b", "odd"};

std::string Write(const VerifyReport& report, const TextStyle& style = {}) {
    std::ostringstream out;
    WriteVerifyText(out, report, style);
    return out.str();
}

TEST(VerifyTextTest, EachFindingIsALineAndTheSumIsTheLast) {
    EXPECT_EQ("a.json: error: bad\nb.json: warning: odd\n2 plugins: 1 error, 1 warning\n",
              Write({.plugins = 2, .findings = {kError, kWarning}}));
    EXPECT_EQ("a.json: error: bad\na.json: error: bad\n1 plugin: 2 errors, 0 warnings\n",
              Write({.plugins = 1, .findings = {kError, kError}}));
}

TEST(VerifyTextTest, WithoutAFindingOneLineSaysSo) {
    EXPECT_EQ("0 plugins: nothing is wrong\n", Write({}));
    EXPECT_EQ("1 plugin: nothing is wrong\n", Write({.plugins = 1}));
}

TEST(VerifyTextTest, ColoursMarkHowBadItIs) {
    EXPECT_EQ(
        "a.json: \033[31merror\033[0m: bad\nb.json: \033[33mwarning\033[0m: odd\n"
        "2 plugins: 1 error, 1 warning\n",
        Write({.plugins = 2, .findings = {kError, kWarning}}, {.aligned = true, .coloured = true}));
}

TEST(VerifyTextTest, NamesCannotForgeALine) {
    Finding forged = kError;
    forged.file = "a\n.json";
    forged.text = "x\033[2J";
    EXPECT_EQ("a\\x0a.json: error: x\\x1b[2J\n0 plugins: 1 error, 0 warnings\n",
              Write({.findings = {forged}}));
}

}  // namespace
}  // namespace bootweave
