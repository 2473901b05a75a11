// SPDX-License-Identifier: Apache-2.0
#include "graph/barrier_registry.h"

#include "gmock/gmock.h"
#include "util/exception.h"

namespace bootweave {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

TEST(BarrierRegistryTest, FindsNothingWhereNothingIsRegistered) {
    BarrierRegistry registry;
    EXPECT_EQ(nullptr, registry.Find("net", false));
    EXPECT_THAT(registry.List(), IsEmpty());
}

TEST(BarrierRegistryTest, CreatesABarrierOnFirstMentionAndFindsItAgain) {
    BarrierRegistry registry;
    InitBarrier* created = registry.Find("net", true);
    ASSERT_NE(nullptr, created);
    EXPECT_EQ("net", created->name());
    EXPECT_EQ(created, registry.Find("net", true));
    EXPECT_EQ(created, registry.Find("net", false));
}

TEST(BarrierRegistryTest, ListsByBytesOfTheName) {
    BarrierRegistry registry;
    InitBarrier* umlaut = registry.Find("\xC3\xA4", true);
    InitBarrier* lower = registry.Find("a", true);
    InitBarrier* upper = registry.Find("Z", true);
    EXPECT_THAT(registry.List(), ElementsAre(upper, lower, umlaut));
}

TEST(BarrierRegistryTest, ABarrierThatTookAPrioritysNameIsAnError) {
    BarrierRegistry registry;
    registry.Find("_<->_priority_<->_5", true);
    std::string message;
    try {
        registry.Priority(5);
    } catch (const Exception& error) {
        message = error.what();
    }
    EXPECT_EQ("barrier '_<->_priority_<->_5' does not stand for a priority", message);
}

TEST(BarrierRegistryTest, OnePriorityHasOneBarrier) {
    BarrierRegistry registry;
    EXPECT_EQ(&registry.Priority(5), &registry.Priority(5));
    EXPECT_EQ(&registry.Priority(5), registry.Find("_<->_priority_<->_5", false));
}

TEST(BarrierRegistryTest, ClearForgetsBarriersAndPriorities) {
    BarrierRegistry registry;
    registry.Priority(5);
    registry.Clear();
    EXPECT_THAT(registry.List(), IsEmpty());
    const ProcessLockGuard lock;
    EXPECT_THAT(registry.PrioritiesLocked(), IsEmpty());
}

TEST(BarrierRegistryTest, TheProcessHasOne) {
    EXPECT_EQ(&BarrierRegistry::Instance(), &BarrierRegistry::Instance());
}

}  // namespace
}  // namespace bootweave
