// SPDX-License-Identifier: Apache-2.0
#include "graph/depth.h"

#include <memory>

#include "gtest/gtest.h"
#include "tests/support/recording_node.h"

namespace bootweave {
namespace {

class DepthTest : public testing::Test {
  protected:
    RunRecord record_;
    RecordingNode a_{"a", record_};
    RecordingNode b_{"b", record_};
    RecordingNode c_{"c", record_};
    RecordingNode d_{"d", record_};
};

TEST_F(DepthTest, ALonelyNodeHasNeitherLevelNorHeight) {
    EXPECT_EQ(0, a_.level());
    EXPECT_EQ(0, a_.height());
}

TEST_F(DepthTest, TheLongestWayCounts) {
    b_.AddDependency(a_);
    c_.AddDependency(b_);
    d_.AddDependency(c_);
    d_.AddDependency(a_);
    EXPECT_EQ(3, d_.level());
    EXPECT_EQ(2, c_.level());
    EXPECT_EQ(3, a_.height());
    EXPECT_EQ(0, d_.height());
}

TEST_F(DepthTest, AnEdgeThatClosesACycleCountsNothing) {
    b_.AddDependency(a_);
    a_.AddDependency(b_);
    EXPECT_EQ(1, a_.height());
    EXPECT_EQ(0, b_.height());
}

TEST_F(DepthTest, ANodeThatDependsOnItselfHasNoHeight) {
    a_.AddDependency(a_);
    EXPECT_EQ(0, a_.height());
    EXPECT_EQ(0, a_.level());
}

TEST_F(DepthTest, AChainBehindACycleIsCountedInFull) {
    b_.AddDependency(a_);
    a_.AddDependency(b_);
    c_.AddDependency(b_);
    d_.AddDependency(c_);
    EXPECT_EQ(3, a_.height());
    EXPECT_EQ(2, b_.height());
}

TEST_F(DepthTest, ManyLevelsNeedNoStack) {
    constexpr std::size_t kLength = 300'000;
    std::vector<std::unique_ptr<RecordingNode>> chain;
    chain.reserve(kLength);
    for (std::size_t i = 0; i < kLength; ++i) {
        chain.push_back(std::make_unique<RecordingNode>("", record_));
        if (i > 0) {
            chain[i]->AddDependency(*chain[i - 1]);
        }
    }
    EXPECT_EQ(std::int32_t{kLength - 1}, chain.front()->height());
    EXPECT_EQ(std::int32_t{kLength - 1}, chain.back()->level());
}

}  // namespace
}  // namespace bootweave
