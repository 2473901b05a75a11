// SPDX-License-Identifier: Apache-2.0
#include "analyze/boot_picture.h"

#include <chrono>
#include <string>

#include "gmock/gmock.h"
#include "util/exception.h"

namespace bootweave {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr Instant kBegin{std::chrono::hours(24)};

PluginTimes Ran(const char* name, int from, int to) {
    return {name, kBegin + Duration(from), kBegin + Duration(to)};
}

/// a and b side by side, then c that waited for b at "x"; d did not run; e took no time.
ProfileBlock Block() {
    ProfileBlock block;
    block.start = kBegin;
    block.end = kBegin + Duration(100);
    block.plugins = {Ran("a", 5, 20), Ran("b", 6, 50), Ran("c", 50, 90), {"d", {}, {}}, Ran("e", 20, 20)};
    return block;
}

RunGraph Graph() {
    RunGraph graph;
    graph.plugins.resize(5);
    graph.plugins[2].required = {1};
    graph.barriers = {{"late", {2}, {}}, {"x", {0, 1, 3}, {2}}, {"not run", {3}, {}}, {"none", {}, {2}}};
    return graph;
}

/// Each bar as "PLUGIN lane AT TAKEN", and "!" for the critical chain.
std::vector<std::string> Bars(const BootPicture& picture, const ProfileBlock& block) {
    std::vector<std::string> bars;
    for (const PictureBar& bar : picture.bars) {
        bars.push_back(block.plugins[bar.plugin].name + " " + std::to_string(bar.lane) + " " +
                       std::to_string(bar.at.count()) + " " + std::to_string(bar.taken.count()) +
                       (bar.critical ? "!" : ""));
    }
    return bars;
}

TEST(BootPictureTest, EachPluginThatRanHasTheFirstLaneThatIsFree) {
    const BootPicture picture = LayOut(Block(), Graph());
    EXPECT_EQ(2U, picture.lanes);
    EXPECT_THAT(Bars(picture, Block()), ElementsAre("a 0 5 15", "e 0 20 0", "c 0 50 40!", "b 1 6 44!"));
}

TEST(BootPictureTest, ABarrierIsDoneWhenTheLastOfItsProvidersIs) {
    const BootPicture picture = LayOut(Block(), Graph());
    ASSERT_EQ(2U, picture.ticks.size());
    EXPECT_EQ(1U, picture.ticks[0].barrier);
    EXPECT_EQ(Duration(50), picture.ticks[0].at);
    EXPECT_EQ(0U, picture.ticks[1].barrier);
    EXPECT_EQ(Duration(90), picture.ticks[1].at);
}

TEST(BootPictureTest, TheChainBeginsWithWhatBeganFirst) {
    const BootPicture picture = LayOut(Block(), Graph());
    ASSERT_EQ(2U, picture.chain.size());
    EXPECT_EQ(1U, picture.chain[0].plugin);
    EXPECT_EQ(2U, picture.chain[1].plugin);
}

TEST(BootPictureTest, TheAxisHoldsTheRunAndAllItsPlugins) {
    EXPECT_EQ(kBegin, LayOut(Block(), Graph()).origin);
    EXPECT_EQ(Duration(100), LayOut(Block(), Graph()).span);
    ProfileBlock cut = Block();
    cut.start.reset();
    cut.end.reset();
    EXPECT_EQ(kBegin + Duration(5), LayOut(cut, Graph()).origin);
    EXPECT_EQ(Duration(85), LayOut(cut, Graph()).span);
}

TEST(BootPictureTest, ARunOfNoTimeHasAnAxisAllTheSame) {
    ProfileBlock block;
    block.plugins = {Ran("a", 5, 5)};
    RunGraph graph;
    graph.plugins.resize(1);
    EXPECT_EQ(Duration(1), LayOut(block, graph).span);
}

TEST(BootPictureTest, AClockThatWasSetBackMakesNoBarBackwards) {
    ProfileBlock block = Block();
    block.plugins[0].end = kBegin - Duration(50);
    EXPECT_EQ("a 0 5 0", Bars(LayOut(block, Graph()), block).front());
}

TEST(BootPictureTest, WithoutAPluginThatRanThereIsNoPicture) {
    try {
        static_cast<void>(LayOut(ProfileBlock(), RunGraph()));
        FAIL() << "nothing was thrown";
    } catch (const Exception& exception) {
        EXPECT_STREQ("no plugin ran", exception.what());
    }
}

}  // namespace
}  // namespace bootweave
