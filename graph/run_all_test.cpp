// SPDX-License-Identifier: Apache-2.0
#include "graph/run_all.h"

#include <barrier>
#include <chrono>
#include <memory>
#include <string>
#include <vector>

#include <sys/resource.h>

#include "gmock/gmock.h"
#include "graph/stall.h"
#include "tests/support/fake_platform.h"
#include "tests/support/recording_node.h"

namespace bootweave {
namespace {

using testing::ElementsAre;
using testing::UnorderedElementsAre;

class RunAllTest : public testing::Test {
  protected:
    void SetUp() override {
        FakePlatform::Reset();
        StallWatch::Reset();
    }

    RecordingNode& Make(const std::string& name) {
        nodes_.push_back(std::make_unique<RecordingNode>(name, record_));
        all_.push_back(nodes_.back().get());
        return *nodes_.back();
    }

    RunRecord record_;
    std::vector<std::unique_ptr<RecordingNode>> nodes_;
    std::vector<Node*> all_;
};

TEST_F(RunAllTest, ReturnsWhenTheLastNodeIsDone) {
    RecordingNode& first = Make("first");
    Make("second").AddDependency(first);
    Executor executor(2, false);
    RunAllForward(all_, executor);
    EXPECT_THAT(record_.names(), ElementsAre("first", "second"));
    for (const Node* node : all_) {
        EXPECT_EQ(NodeState::kDoneForward, node->state());
    }
}

TEST_F(RunAllTest, WithoutNodesReturnsAtOnce) {
    Executor executor(1, false);
    RunAllForward(all_, executor);
    RunAllReverse(all_, executor);
}

TEST_F(RunAllTest, RunsWhatTheNodesNeedToo) {
    RecordingNode needed("needed", record_);
    Make("a").AddDependency(needed);
    Executor executor(1, false);
    RunAllForward(all_, executor);
    EXPECT_THAT(record_.names(), ElementsAre("needed", "a"));
}

TEST_F(RunAllTest, GoesBackAfterItWentForward) {
    RecordingNode& first = Make("first");
    Make("second").AddDependency(first);
    Executor executor(1, false);
    RunAllForward(all_, executor);
    RunAllReverse(all_, executor);
    EXPECT_THAT(record_.names(), ElementsAre("first", "second", "-second", "-first"));
    for (const Node* node : all_) {
        EXPECT_EQ(NodeState::kDoneReverse, node->state());
    }
}

TEST_F(RunAllTest, SchedulesAllBeforeTheFirstOneRuns) {
    for (int attempt = 0; attempt < 20; ++attempt) {
        RunRecord record;
        RecordingNode low("low", record);
        RecordingNode high("high", record);
        RecordingNode last("last", record);
        last.AddDependency(high);
        const std::vector<Node*> nodes{&low, &high, &last};
        Executor executor(1, false);
        RunAllForward(nodes, executor);
        EXPECT_EQ("high", record.names().front());
    }
}

/// Nodes that can only end together: one worker must wake the others.
TEST_F(RunAllTest, NodesThatBecomeReadyTogetherRunAtTheSameTime) {
    constexpr int kWorkers = 3;
    for (int attempt = 0; attempt < 50; ++attempt) {
        RunRecord record;
        RecordingNode first("first", record);
        std::barrier together(kWorkers);
        std::vector<std::unique_ptr<RecordingNode>> nodes;
        std::vector<Node*> all{&first};
        for (int i = 0; i < kWorkers; ++i) {
            nodes.push_back(std::make_unique<RecordingNode>(std::to_string(i), record));
            nodes.back()->on_execute = [&] { together.arrive_and_wait(); };
            nodes.back()->AddDependency(first);
            all.push_back(nodes.back().get());
        }
        Executor executor(kWorkers, false);
        RunAllForward(all, executor);
        EXPECT_THAT(record.names(), UnorderedElementsAre("first", "0", "1", "2"));
    }
}

TEST_F(RunAllTest, ARandomisedChoiceAmong300000NodesIsMadeInTimeForABoot) {
    constexpr std::size_t kWidth = 300'000;
    for (std::size_t i = 0; i < kWidth; ++i) {
        Make("node");
    }
    Executor executor(2, true);
    RunAllForward(all_, executor);
    EXPECT_EQ(kWidth, record_.names().size());
}

TEST_F(RunAllTest, TheCallerSleepsOnceForAWholeRun) {
    constexpr int kNodes = 1000;
    for (int i = 0; i < kNodes; ++i) {
        RecordingNode& node = Make(std::to_string(i));
        node.on_execute = [] {  // long enough for a sleeper that was woken to run
            const auto end = std::chrono::steady_clock::now() + std::chrono::microseconds(50);
            while (std::chrono::steady_clock::now() < end) {
            }
        };
        if (i > 0) {
            node.AddDependency(*nodes_[static_cast<std::size_t>(i) - 1]);
        }
    }
    rusage before{};
    rusage after{};
    ::getrusage(RUSAGE_THREAD, &before);
    Executor executor(1, false);
    RunAllForward(all_, executor);
    ::getrusage(RUSAGE_THREAD, &after);
    EXPECT_LT(after.ru_nvcsw - before.ru_nvcsw, kNodes / 10);
}

}  // namespace
}  // namespace bootweave
