// SPDX-License-Identifier: Apache-2.0
#include "graph/node.h"

#include <cerrno>
#include <memory>
#include <stdexcept>

#include "gmock/gmock.h"
#include "graph/barrier.h"
#include "graph/executor.h"
#include "graph/stall.h"
#include "tests/support/fake_platform.h"
#include "tests/support/recording_node.h"
#include "util/exception.h"

extern "C" {
int __real_pthread_cond_init(pthread_cond_t* condition, const pthread_condattr_t* attributes);
bool g_fail_cond_init = false;  // executor_test uses it, too
int __wrap_pthread_cond_init(pthread_cond_t* condition, const pthread_condattr_t* attributes) {
    return g_fail_cond_init ? ENOMEM : __real_pthread_cond_init(condition, attributes);
}
}

namespace bootweave {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class NodeTest : public testing::Test {
  protected:
    void SetUp() override {
        FakePlatform::Reset();
        StallWatch::Reset();
    }

    RecordingNode& Make(const std::string& name, std::uint32_t order_key = 1) {
        nodes_.push_back(std::make_unique<RecordingNode>(name, record_, order_key));
        return *nodes_.back();
    }

    /// Runs all nodes made so far as the driver does: schedules all under the lock, then waits for each.
    void RunAll(std::int32_t workers = 1, bool randomize = false) {
        Executor executor(workers, randomize);
        {
            const ProcessLockGuard lock;
            for (const auto& node : nodes_) {
                node->ScheduleForward(executor);
            }
        }
        for (const auto& node : nodes_) {
            node->WaitForward();
        }
    }

    void RunAllInReverse() {
        Executor executor(1, false);
        {
            const ProcessLockGuard lock;
            for (const auto& node : nodes_) {
                node->ScheduleReverse(executor);
            }
        }
        for (const auto& node : nodes_) {
            node->WaitReverse();
        }
    }

    RunRecord record_;
    std::vector<std::unique_ptr<RecordingNode>> nodes_;
};

TEST_F(NodeTest, StartsIdleWithNothingComputed) {
    const RecordingNode& node = Make("a", 7);
    EXPECT_EQ(NodeState::kIdle, node.state());
    EXPECT_EQ(7U, node.order_key());
    EXPECT_EQ("a", node.name());
}

TEST_F(NodeTest, AConditionVariableThatCannotBeMadeIsAnException) {
    g_fail_cond_init = true;
    std::string message;
    try {
        Make("a");
    } catch (const Exception& error) {
        message = error.what();
    }
    g_fail_cond_init = false;
    EXPECT_EQ("Condition variable for Node could not be initialized", message);
}

TEST_F(NodeTest, EdgesStandInBothListsInOrderAndTwiceWhenAddedTwice) {
    RecordingNode& a = Make("a");
    RecordingNode& b = Make("b");
    RecordingNode& c = Make("c");
    a.AddDependency(b);
    a.AddDependency(c);
    a.AddDependency(b);
    c.AddDependent(b);
    EXPECT_THAT(a.dependencies(), ElementsAre(&b, &c, &b));
    EXPECT_THAT(b.dependents(), ElementsAre(&a, &a));
    EXPECT_THAT(c.dependents(), ElementsAre(&a, &b));
    EXPECT_THAT(b.dependencies(), ElementsAre(&c));
}

TEST_F(NodeTest, RunsAfterEverythingItDependsOn) {
    RecordingNode& a = Make("a");
    RecordingNode& b = Make("b");
    RecordingNode& c = Make("c");
    a.AddDependency(b);
    b.AddDependency(c);
    RunAll();
    EXPECT_THAT(record_.names(), ElementsAre("c", "b", "a"));
    EXPECT_EQ(NodeState::kDoneForward, a.state());
}

TEST_F(NodeTest, SchedulingTwiceRunsOnce) {
    RecordingNode& a = Make("a");
    Executor executor(1, false);
    a.ScheduleForward(executor);
    a.ScheduleForward(executor);
    a.WaitForward();
    a.ScheduleForward(executor);
    a.WaitForward();
    EXPECT_THAT(record_.names(), ElementsAre("a"));
}

TEST_F(NodeTest, ANodeMarkedDoneNeverRunsAndHoldsNothingUp) {
    RecordingNode& a = Make("a");
    RecordingNode& b = Make("b");
    b.AddDependency(a);
    a.MarkDone();
    RunAll();
    EXPECT_THAT(record_.names(), ElementsAre("b"));
}

TEST_F(NodeTest, WhatANodeDependsOnIsScheduledWithIt) {
    RecordingNode& a = Make("a");
    RecordingNode& b = Make("b");
    RecordingNode& c = Make("c");
    a.AddDependency(b);
    c.AddDependency(b);
    Executor executor(1, false);
    a.ScheduleForward(executor);
    a.WaitForward();
    EXPECT_THAT(record_.names(), ElementsAre("b", "a"));
    EXPECT_EQ(NodeState::kIdle, c.state());  // nobody asked for it
}

TEST_F(NodeTest, AnEdgeAddedTwiceHoldsUpOnceAndLetsGoAtItsFirstPlace) {
    RecordingNode& provider = Make("provider");
    RecordingNode& x = Make("x");
    RecordingNode& y = Make("y");
    x.AddDependency(provider);
    y.AddDependency(provider);
    x.AddDependency(provider);
    RunAll();
    EXPECT_THAT(record_.names(), ElementsAre("provider", "x", "y"));
}

TEST_F(NodeTest, TheReverseTraversalRunsANodeAfterItsDependents) {
    RecordingNode& a = Make("a");
    RecordingNode& b = Make("b");
    RecordingNode& c = Make("c");
    b.AddDependency(a);
    c.AddDependency(b);
    RunAllInReverse();
    EXPECT_THAT(record_.names(), ElementsAre("-c", "-b", "-a"));
    EXPECT_EQ(NodeState::kDoneReverse, a.state());
}

TEST_F(NodeTest, ANodeThatHasRunForwardCanRunInReverse) {
    RecordingNode& a = Make("a");
    RecordingNode& b = Make("b");
    b.AddDependency(a);
    RunAll();
    Executor executor(1, false);
    b.ScheduleReverse(executor);
    b.WaitReverse();
    EXPECT_THAT(record_.names(), ElementsAre("a", "b", "-b"));
}

TEST_F(NodeTest, AnExceptionFromANodeIsLoggedAndTheNodeCountsAsDone) {
    Make("a").on_execute = [] { throw std::runtime_error("no luck"); };
    Make("b").on_execute = [] { throw 42; };  // NOLINT(hicpp-exception-baseclass)
    RunAll();
    EXPECT_THAT(FakePlatform::log(),
                ElementsAre(LogMessage{2, "unhandled exception whilst running a: no luck\n"},
                            LogMessage{2, "unhandled exception whilst running b\n"}));
}

TEST_F(NodeTest, AnEdgeResetsTheDepthsOfItsTwoEndsOnly) {
    RecordingNode& a = Make("a");
    RecordingNode& b = Make("b");
    RecordingNode& c = Make("c");
    b.AddDependency(a);
    EXPECT_EQ(1, a.height());
    EXPECT_EQ(1, b.level());
    c.AddDependency(b);
    EXPECT_EQ(1, b.height());  // computed anew
    EXPECT_EQ(1, a.height());  // still as it was: further away
    EXPECT_EQ(2, c.level());
    RecordingNode& d = Make("d");
    a.AddDependent(d);
    EXPECT_EQ(2, a.height());
    EXPECT_EQ(1, d.level());
}

TEST_F(NodeTest, AChainOf100000NodesRunsOnDefaultStacks) {
    constexpr int kLength = 100'000;
    for (int i = 0; i < kLength; ++i) {
        Make(std::to_string(i));
    }
    for (std::size_t i = 0; i + 1 < kLength; ++i) {
        nodes_[i]->AddDependency(*nodes_[i + 1]);
    }
    RunAll(2);
    const std::vector<std::string> names = record_.names();
    ASSERT_EQ(std::size_t{kLength}, names.size());
    EXPECT_EQ(std::to_string(kLength - 1), names.front());
    EXPECT_EQ("0", names.back());
    EXPECT_EQ(kLength - 1, nodes_[0]->level());
}

// Walked again at each completion, or at each choice, this would take 10^10 steps.
TEST_F(NodeTest, ABarrierWith100000ProvidersAndRequirersRunsInTimeForABoot) {
    constexpr int kWidth = 100'000;
    InitBarrier barrier("everything");
    for (int i = 0; i < kWidth; ++i) {
        barrier.AddDependency(Make("provider"));
    }
    for (int i = 0; i < kWidth; ++i) {
        barrier.AddDependent(Make("requirer"));
    }
    RunAll(2);
    const std::vector<std::string> names = record_.names();
    ASSERT_EQ(std::size_t{2} * kWidth, names.size());
    for (std::size_t i = 0; i < names.size(); ++i) {
        ASSERT_EQ(i < kWidth ? "provider" : "requirer", names[i]);
    }
}

}  // namespace
}  // namespace bootweave
