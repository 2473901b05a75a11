// SPDX-License-Identifier: Apache-2.0
#include "analyze/neighbourhood.h"

#include "gmock/gmock.h"
#include "util/exception.h"

namespace bootweave {
namespace {

using testing::ElementsAre;

/// a -x-> b -y-> c -z-> d, and e that provides y as well.
class NeighbourhoodTest : public testing::Test {
  protected:
    NeighbourhoodTest() {
        for (const char* name : {"a", "b", "c", "d", "e"}) {
            block_.plugins.push_back({name, {}, {}});
        }
        graph_.plugins = {{PluginKind::kJSON, {}, {0}},
                          {PluginKind::kJSON, {0}, {1}},
                          {PluginKind::kJSON, {1}, {2}},
                          {PluginKind::kJSON, {2}, {}},
                          {PluginKind::kJSON, {}, {1}}};
        graph_.barriers = {{"x", {0}, {1}}, {"y", {1, 4}, {2}}, {"z", {2}, {3}}};
    }

    ProfileBlock block_;
    RunGraph graph_;
};

TEST_F(NeighbourhoodTest, WithoutANameItIsEverything) {
    const GraphPart part = PartAround(block_, graph_, {});
    EXPECT_THAT(part.plugins, ElementsAre(true, true, true, true, true));
    EXPECT_THAT(part.barriers, ElementsAre(true, true, true));
}

TEST_F(NeighbourhoodTest, ItIsWhatThePluginWaitsForAndWhatWaitsForIt) {
    const GraphPart part = PartAround(block_, graph_, "c");
    EXPECT_THAT(part.plugins, ElementsAre(false, true, true, true, true));
    EXPECT_THAT(part.barriers, ElementsAre(false, true, true));
}

TEST_F(NeighbourhoodTest, WhoProvidesTheSameIsNoNeighbour) {
    const GraphPart part = PartAround(block_, graph_, "e");
    EXPECT_THAT(part.plugins, ElementsAre(false, false, true, false, true));
}

TEST_F(NeighbourhoodTest, SeveralPluginsOfTheNameHaveOneNeighbourhood) {
    block_.plugins[0].name = "d";
    const GraphPart part = PartAround(block_, graph_, "d");
    EXPECT_THAT(part.plugins, ElementsAre(true, true, true, true, false));
}

TEST_F(NeighbourhoodTest, APluginThatIsNotThereIsAnError) {
    try {
        static_cast<void>(PartAround(block_, graph_, "f"));
        FAIL() << "nothing was thrown";
    } catch (const Exception& exception) {
        EXPECT_STREQ("the profile has no plugin f", exception.what());
    }
}

}  // namespace
}  // namespace bootweave
