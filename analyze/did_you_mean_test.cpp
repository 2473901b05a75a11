// SPDX-License-Identifier: Apache-2.0
#include "analyze/did_you_mean.h"

#include <string>

#include "gtest/gtest.h"

namespace bootweave {
namespace {

const std::vector<std::string_view> kNames{"requires", "provides", "run_once", "version", "ab"};

TEST(DidYouMeanTest, OneOrTwoLettersMayBeWrong) {
    EXPECT_EQ("requires", FindNearest("require", kNames));
    EXPECT_EQ("requires", FindNearest("requieres", kNames));
    EXPECT_EQ("provides", FindNearest("proivdes", kNames));
    EXPECT_EQ("version", FindNearest("verzions", kNames));
    EXPECT_EQ("version", FindNearest("version", kNames));
}

TEST(DidYouMeanTest, CaseAndHyphensAreNoDifference) {
    EXPECT_EQ("run_once", FindNearest("RUN-ONCE", kNames));
    EXPECT_EQ("run_once", FindNearest("Run-Ones", kNames));
}

TEST(DidYouMeanTest, WhatIsFarOffWasNotMeant) {
    EXPECT_EQ("", FindNearest("conflicts", kNames));
    EXPECT_EQ("", FindNearest("", kNames));
    EXPECT_EQ("", FindNearest("reqXXXes", kNames));
    EXPECT_EQ("", FindNearest("xb", kNames));  // half of it
    EXPECT_EQ("", FindNearest("requires", {}));
}

TEST(DidYouMeanTest, EveryPlaceOfANameCountsAlike) {
    EXPECT_EQ("requires", FindNearest("equires", kNames));
    EXPECT_EQ("requires", FindNearest("erquires", kNames));
    EXPECT_EQ("requires", FindNearest("xxrequires", kNames));
    EXPECT_EQ("requires", FindNearest("requirsex", kNames));
    EXPECT_EQ("requires", FindNearest("requir", kNames));
    EXPECT_EQ("", FindNearest("xrequiresxx", kNames));
    EXPECT_EQ("requires", FindNearest("xequirse", kNames));
    EXPECT_EQ("", FindNearest("xequirsx", kNames));
}

// Somebody's file may hold such names; to compare each letter with each would take hours.
TEST(DidYouMeanTest, NamesOfHalfAMegabyteAreGuessed) {
    const std::string name(500'000, 'x');
    const std::string near = "y" + name + "y";
    const std::string far = "y" + name.substr(2) + "yy";
    EXPECT_EQ(near, FindNearest(name, {far, near}));
    EXPECT_EQ("", FindNearest(name, {far}));
}

TEST(DidYouMeanTest, TheNearestIsTheFirstOfThoseThatAreEquallyNear) {
    EXPECT_EQ("network-b", FindNearest("network-x", {"net-work-xx", "network-b", "network-c"}));
    EXPECT_EQ("network-x2", FindNearest("network-x", {"network-b2", "network-x2"}));
}

TEST(DidYouMeanTest, OnlyAFoundNameIsOffered) {
    EXPECT_EQ("; did you mean 'requires'?", DidYouMean("requires"));
    EXPECT_EQ("", DidYouMean(""));
}

}  // namespace
}  // namespace bootweave
