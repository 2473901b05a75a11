// SPDX-License-Identifier: Apache-2.0
#include "plugins/debug_plugin.h"

#include "gmock/gmock.h"
#include "tests/support/fake_platform.h"
#include "tests/support/temp_dir.h"
#include "util/exception.h"

namespace bootweave {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class DebugPluginTest : public testing::Test {
  protected:
    void SetUp() override {
        FakePlatform::Reset();
        BarrierRegistry::Instance().Clear();
    }
    void TearDown() override { BarrierRegistry::Instance().Clear(); }
};

TEST_F(DebugPluginTest, TakesItsPlaceInTheGraphWhenItIsBuilt) {
    DebugPlugin plugin({"d", {"x", "y", "x"}, {"z"}, "true"});
    Node* x = BarrierRegistry::Instance().Find("x", false);
    Node* y = BarrierRegistry::Instance().Find("y", false);
    Node* z = BarrierRegistry::Instance().Find("z", false);
    EXPECT_THAT(plugin.dependencies(), ElementsAre(x, y, x));
    EXPECT_THAT(plugin.dependents(), ElementsAre(z));
    plugin.LinkIntoGraph(BarrierRegistry::Instance());
    EXPECT_THAT(plugin.dependencies(), ElementsAre(x, y, x));
    EXPECT_EQ(1U, plugin.order_key());
    EXPECT_EQ(-1, plugin.GetVersion());
}

TEST_F(DebugPluginTest, ACommandThatSucceedsLogsNothing) {
    const TempDir dir;
    DebugPlugin plugin({"d", {}, {}, "echo done >" + dir.File("out")});
    plugin.Start();
    EXPECT_EQ("done\n", ReadFile(dir.File("out")));
    EXPECT_THAT(FakePlatform::log(), IsEmpty());
}

TEST_F(DebugPluginTest, ACommandThatFailsLogsItsRawStatusAndThePluginHasNotFailed) {
    DebugPlugin plugin({"d", {}, {}, "exit 1"});
    plugin.Start();
    EXPECT_THAT(FakePlatform::log(), ElementsAre(LogMessage{5, "debug injection 'd' returned 0x000100\n"}));
}

TEST_F(DebugPluginTest, ACommandThatASignalEndsLogsItsRawStatus) {
    DebugPlugin plugin({"d", {}, {}, "kill -TERM $$"});
    plugin.Start();
    EXPECT_THAT(FakePlatform::log(), ElementsAre(LogMessage{5, "debug injection 'd' returned 0x00000f\n"}));
}

TEST_F(DebugPluginTest, HasNoHostProfile) {
    DebugPlugin plugin({"d", {}, {}, "true"});
    EXPECT_FALSE(plugin.SupportsHostProfile());
    std::string message;
    try {
        plugin.ApplyHostProfile();
    } catch (const NotImplementedException& error) {
        message = error.what();
    }
    EXPECT_EQ("method `DebugPlugin::ApplyHostProfile' is not implemented", message);
}

}  // namespace
}  // namespace bootweave
