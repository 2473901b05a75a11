// SPDX-License-Identifier: Apache-2.0
#include "analyze/timing.h"

#include <chrono>

#include "gmock/gmock.h"

namespace bootweave {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr Instant kBegin{std::chrono::hours(24)};

PluginTimes Ran(const char* name, int from, int to) {
    return {name, kBegin + Duration(from), kBegin + Duration(to)};
}

ProfileBlock Block(std::vector<PluginTimes> plugins, int total) {
    ProfileBlock block;
    block.plugins = std::move(plugins);
    block.start = kBegin;
    block.end = kBegin + Duration(total);
    return block;
}

TEST(TimingTest, PluginsThatOverlapRunMoreThanOneAtATime) {
    const TimeSummary summary =
        Summarize(Block({Ran("a", 0, 80), {"never", {}, {}}, Ran("b", 10, 100)}, 100));
    EXPECT_EQ(Duration(100), summary.total);
    EXPECT_EQ(Duration(170), summary.plugins);
    EXPECT_EQ(2U, summary.ran);
    EXPECT_THAT(summary.idle, ElementsAre("never"));
    EXPECT_DOUBLE_EQ(1.7, summary.at_a_time.value());
}

TEST(TimingTest, ARunOfNoTimeHasNoAverage) {
    const TimeSummary summary = Summarize(Block({}, 0));
    EXPECT_EQ(Duration(0), summary.total);
    EXPECT_EQ(std::nullopt, summary.at_a_time);
    EXPECT_THAT(Blame(Block({}, 0)), IsEmpty());
}

TEST(TimingTest, ARunWithoutAnEndOrWithAClockSetBackHasNoTotal) {
    ProfileBlock block = Block({Ran("a", 0, 80)}, -1);
    EXPECT_EQ(std::nullopt, Summarize(block).total);
    block.end.reset();
    EXPECT_EQ(std::nullopt, Summarize(block).total);
    EXPECT_EQ(std::nullopt, Summarize(block).at_a_time);
    EXPECT_EQ(Duration(80), Summarize(block).plugins);
}

TEST(TimingTest, APluginBesideItsRunShowsThatTheClockWasSetBack) {
    EXPECT_FALSE(WasClockSetBack(Block({Ran("a", 0, 80), {"never", {}, {}}}, 80)));
    for (const PluginTimes& plugin : {Ran("back", 5, 4), Ran("early", -1, 4), Ran("late", 1, 81)}) {
        const ProfileBlock block = Block({plugin}, 80);
        EXPECT_TRUE(WasClockSetBack(block)) << plugin.name;
        EXPECT_EQ(std::nullopt, Summarize(block).total) << plugin.name;
    }
    EXPECT_FALSE(WasClockSetBack({}));
}

TEST(TimingTest, BlameHasTheLongestFirstAndEqualOnesInTheOrderOfTheLog) {
    std::vector<std::string> names;
    double sum = 0;
    for (const auto& [plugin, share] : Blame(Block(
             {Ran("a", 0, 10), Ran("b", 5, 15), {"never", {}, {}}, Ran("c", 0, 60), Ran("d", 0, 0)}, 70))) {
        names.push_back(plugin.name);
        sum += share;
    }
    EXPECT_THAT(names, ElementsAre("c", "a", "b", "d"));
    EXPECT_DOUBLE_EQ(1, sum);
}

TEST(TimingTest, PluginsThatTookNoTimeHaveNoShare) {
    EXPECT_EQ(0, Blame(Block({Ran("a", 5, 5)}, 10)).at(0).share);
}

}  // namespace
}  // namespace bootweave
