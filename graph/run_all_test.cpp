// SPDX-License-Identifier: Apache-2.0
#include "graph/run_all.h"

#include <algorithm>
#include <barrier>
#include <chrono>
#include <memory>
#include <random>
#include <set>
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

/// A graph with a cycle in it, and nodes before it and beside it, which alone can run.
struct GraphWithCycle {
    explicit GraphWithCycle(unsigned seed) {
        constexpr int kNodes = 60;
        std::mt19937 random(seed);  // NOLINT(cert-msc51-cpp): the same graphs every time
        for (int i = 0; i < kNodes; ++i) {
            nodes.push_back(std::make_unique<RecordingNode>(std::to_string(i), record));
            all.push_back(nodes.back().get());
            for (auto edges = random() % 3; edges > 0 && i > 0; --edges) {
                nodes.back()->AddDependency(*nodes[random() % static_cast<unsigned>(i)]);
            }
        }
        for (int i = 0; i < 5; ++i) {
            cycle.push_back(std::make_unique<RecordingNode>("cycle", record));
            cycle.back()->AddDependency(*nodes[random() % kNodes]);
            cycle.back()->AddDependency(*cycle[random() % cycle.size()]);
            cycle.front()->AddDependency(*cycle.back());
        }
    }

    RunRecord record;
    std::vector<std::unique_ptr<RecordingNode>> nodes;
    std::vector<std::unique_ptr<RecordingNode>> cycle;
    std::vector<Node*> all;
};

/// Asks for the height of each node that can run at once, in the order in which they are queued.
void AskFirstNodes(Node& node, std::set<Node*>& seen) {
    if (!seen.insert(&node).second) {
        return;
    }
    for (Node* provider : node.dependencies()) {
        AskFirstNodes(*provider, seen);
    }
    if (node.dependencies().empty()) {
        static_cast<void>(node.height());
    }
}

/// As if each were ranked by itself when it is queued.
std::vector<std::string> OrderOfNodesRankedOneByOne(GraphWithCycle& graph, const std::vector<Node*>& order) {
    Executor executor(1, false);
    std::set<Node*> seen;
    {
        const ProcessLockGuard lock;
        for (Node* node : order) {
            AskFirstNodes(*node, seen);
            node->ScheduleForward(executor);
        }
    }
    executor.WaitUntilIdle();
    return graph.record.names();
}

TEST_F(RunAllTest, GoingThroughAGraphAtOnceLeavesTheOrderAsItIs) {
    for (unsigned seed = 0; seed < 300; ++seed) {
        GraphWithCycle one(seed);
        GraphWithCycle other(seed);
        if (seed % 2 == 0) {
            std::ranges::reverse(one.all);
            std::ranges::reverse(other.all);
        }
        Executor executor(1, false);
        RunAllForward(one.all, executor);
        ASSERT_EQ(OrderOfNodesRankedOneByOne(other, other.all), one.record.names()) << "seed " << seed;
    }
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
