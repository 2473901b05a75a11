// SPDX-License-Identifier: Apache-2.0
#include "graph/barrier.h"

#include <memory>

#include "gmock/gmock.h"
#include "graph/barrier_registry.h"
#include "tests/support/fake_platform.h"
#include "tests/support/recording_node.h"
#include "util/run_config.h"

namespace bootweave {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr const char* kNotProvided =
    "Bootweave dependency error: Initialization barrier \"net\" is not provided by any plugin but the "
    "following "
    "plugins require it: ";

class BarrierTest : public testing::Test {
  protected:
    void SetUp() override {
        FakePlatform::Reset();
        RunConfig::Instance()->invoke = false;
    }
    void TearDown() override { RunConfig::Instance()->invoke = false; }

    RunRecord record_;
    RecordingNode a_{"a", record_};
    RecordingNode b_{"b", record_};
    InitBarrier net_{"net"};
};

TEST_F(BarrierTest, OneThatIsProvidedIsSilent) {
    net_.AddDependency(a_);
    net_.Execute();
    EXPECT_THAT(FakePlatform::log(), IsEmpty());
    EXPECT_THAT(FakePlatform::alerts(), IsEmpty());
}

TEST_F(BarrierTest, OneThatNobodyProvidesNamesWhoRequiresItEachTimeItIsListed) {
    net_.AddDependent(a_);
    net_.AddDependent(b_);
    net_.AddDependent(a_);
    net_.Execute();
    const std::string message = std::string(kNotProvided) + R"("a", "b", "a")";
    EXPECT_THAT(FakePlatform::log(), ElementsAre(LogMessage{3, message + "\n"}));
    EXPECT_THAT(FakePlatform::alerts(), ElementsAre(message));
}

TEST_F(BarrierTest, OneThatNobodyProvidesOrRequiresEndsWithTheColon) {
    net_.Execute();
    EXPECT_THAT(FakePlatform::log(), ElementsAre(LogMessage{3, std::string(kNotProvided) + "\n"}));
}

TEST_F(BarrierTest, InvokingASingleMethodRaisesNoAlert) {
    RunConfig::Instance()->invoke = true;
    net_.AddDependent(a_);
    net_.Execute();
    EXPECT_THAT(FakePlatform::alerts(), IsEmpty());
    EXPECT_THAT(FakePlatform::log(), ElementsAre(LogMessage{3, std::string(kNotProvided) + "\"a\"\n"}));
}

TEST_F(BarrierTest, DrawsAsABoxAndAsATrapezium) {
    BarrierRegistry registry;
    EXPECT_EQ(" shape=box", net_.GetDotAttributes());
    EXPECT_EQ(" shape=trapezium", registry.Priority(5).GetDotAttributes());
    EXPECT_EQ(1U, net_.order_key());
}

class PriorityBarrierTest : public BarrierTest {
  protected:
    RecordingNode& AddDaemon(const std::string& name, std::uint32_t priority) {
        daemons_.push_back(std::make_unique<RecordingNode>(name, record_, 3));
        const ProcessLockGuard lock;
        registry_.Priority(priority).Attach(*daemons_.back());
        return *daemons_.back();
    }

    BarrierRegistry registry_;
    std::vector<std::unique_ptr<RecordingNode>> daemons_;
};

TEST_F(PriorityBarrierTest, HasANameThatNoPluginChoosesAndKnowsItsPlace) {
    AddDaemon("d", 10);
    AddDaemon("e", 40);
    const PriorityBarrier& low = registry_.Priority(10);
    const PriorityBarrier& high = registry_.Priority(40);
    EXPECT_EQ("_<->_priority_<->_10", low.name());
    EXPECT_EQ(10U, low.priority());
    EXPECT_EQ(0, low.index());
    EXPECT_EQ(1, high.index());
    EXPECT_EQ(-1, registry_.Priority(50).index());
}

TEST_F(PriorityBarrierTest, DaemonsOfOnePriorityStartTogetherAfterTheLowerOne) {
    RecordingNode& a = AddDaemon("a", 10);
    RecordingNode& b = AddDaemon("b", 20);
    RecordingNode& c = AddDaemon("c", 20);
    PriorityBarrier& p10 = registry_.Priority(10);
    PriorityBarrier& p20 = registry_.Priority(20);
    EXPECT_THAT(a.dependencies(), IsEmpty());
    EXPECT_THAT(b.dependencies(), ElementsAre(&p10));
    EXPECT_THAT(c.dependencies(), ElementsAre(&p10));
    EXPECT_THAT(p10.dependencies(), ElementsAre(&a));
    EXPECT_THAT(p20.dependencies(), ElementsAre(&p10, &b, &c));
}

TEST_F(PriorityBarrierTest, APriorityThatComesLaterIsPutInBetween) {
    RecordingNode& a = AddDaemon("a", 10);
    RecordingNode& c = AddDaemon("c", 30);
    RecordingNode& b = AddDaemon("b", 20);
    PriorityBarrier& p10 = registry_.Priority(10);
    PriorityBarrier& p20 = registry_.Priority(20);
    PriorityBarrier& p30 = registry_.Priority(30);
    EXPECT_THAT(c.dependencies(), ElementsAre(&p10, &p20));
    EXPECT_THAT(b.dependencies(), ElementsAre(&p10));
    EXPECT_THAT(p20.dependencies(), ElementsAre(&p10, &b));
    EXPECT_THAT(p30.dependencies(), ElementsAre(&p10, &c, &p20));
    EXPECT_THAT(p10.dependents(), ElementsAre(&p30, &c, &p20, &b));
    EXPECT_THAT(a.dependents(), ElementsAre(&p10));
}

TEST_F(PriorityBarrierTest, ALowerPriorityThatComesLaterGoesInFront) {
    RecordingNode& c = AddDaemon("c", 30);
    RecordingNode& a = AddDaemon("a", 10);
    PriorityBarrier& p10 = registry_.Priority(10);
    PriorityBarrier& p30 = registry_.Priority(30);
    EXPECT_THAT(c.dependencies(), ElementsAre(&p10));
    EXPECT_THAT(p30.dependencies(), ElementsAre(&c, &p10));
    EXPECT_THAT(p10.dependencies(), ElementsAre(&a));
}

}  // namespace
}  // namespace bootweave
