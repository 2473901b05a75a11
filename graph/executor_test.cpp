// SPDX-License-Identifier: Apache-2.0
#include "graph/executor.h"

#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <functional>
#include <memory>
#include <random>
#include <thread>

#include "gmock/gmock.h"
#include "graph/barrier.h"
#include "graph/stall.h"
#include "tests/support/fake_platform.h"
#include "tests/support/recording_node.h"
#include "tests/support/reference_scheduler.h"
#include "util/exception.h"

extern "C" {
extern bool g_fail_cond_init;  // of node_test
int __real_pthread_create(pthread_t*, const pthread_attr_t*, void* (*)(void*), void*);
static std::atomic<int> g_threads_allowed{-1};  // below 0: no limit
static std::atomic<int> g_threads_created{0};
int __wrap_pthread_create(pthread_t* thread, const pthread_attr_t* attributes, void* (*body)(void*),
                          void* argument) {
    if (g_threads_allowed >= 0 && g_threads_created >= g_threads_allowed) {
        return EAGAIN;
    }
    ++g_threads_created;
    return __real_pthread_create(thread, attributes, body, argument);
}

int __real_pthread_join(pthread_t thread, void** result);
static std::function<void()> g_on_join;
int __wrap_pthread_join(pthread_t thread, void** result) {
    if (g_on_join) {
        g_on_join();
    }
    return __real_pthread_join(thread, result);
}
}

namespace bootweave {
namespace {

using testing::IsEmpty;

class ExecutorTest : public testing::Test {
  protected:
    void SetUp() override {
        FakePlatform::Reset();
        StallWatch::Reset();
        g_threads_created = 0;
        g_threads_allowed = -1;
    }
    void TearDown() override {
        g_threads_allowed = -1;
        g_on_join = nullptr;
    }
};

TEST_F(ExecutorTest, StartsAsManyWorkersAsAskedFor) {
    const Executor executor(5, false);
    EXPECT_EQ(5, g_threads_created);
}

TEST_F(ExecutorTest, WithoutWorkersNothingRunsAndDestroyingItReturns) {
    RunRecord record;
    RecordingNode node("a", record);
    for (const int count : {0, -1}) {
        Executor executor(count, false);
        node.ScheduleForward(executor);
    }
    EXPECT_THAT(record.names(), IsEmpty());
    EXPECT_EQ(0, g_threads_created);
}

TEST_F(ExecutorTest, TooFewThreadsIsAnExceptionThatCountsThem) {
    g_threads_allowed = 3;
    std::string message;
    try {
        const Executor executor(8, false);
    } catch (const Exception& error) {
        message = error.what();
    }
    EXPECT_EQ("Could not create enough execution threads. (3 created, 8requested)", message);
}

TEST_F(ExecutorTest, AConditionVariableThatCannotBeMadeIsAnExceptionAndNoThreadStarts) {
    g_fail_cond_init = true;
    std::string message;
    try {
        const Executor executor(8, false);
    } catch (const Exception& error) {
        message = error.what();
    }
    g_fail_cond_init = false;
    EXPECT_EQ("Condition variable for Executor could not be initialized", message);
    EXPECT_EQ(0, g_threads_created);
}

TEST_F(ExecutorTest, DestroyingItFinishesWhatRunsAndDropsWhatWaits) {
    RunRecord record;
    RecordingNode first("first", record);
    RecordingNode second("second", record);
    std::atomic<bool> started{false};
    std::atomic<bool> stopping{false};
    first.on_execute = [&] {
        started = true;
        started.notify_all();
        stopping.wait(false);
    };
    // The destructor sets its stop flag before it joins; until then the worker is held inside `first`.
    g_on_join = [&] {
        stopping = true;
        stopping.notify_all();
    };
    {
        Executor executor(1, false);
        first.ScheduleForward(executor);
        second.ScheduleForward(executor);
        started.wait(false);
    }
    EXPECT_THAT(record.names(), testing::ElementsAre("first"));
    EXPECT_EQ(NodeState::kDoneForward, first.state());
    EXPECT_EQ(NodeState::kQueuedForward, second.state());
}

TEST_F(ExecutorTest, DestroyingAnIdleOneReturnsWhenEachWorkerHasBeenJoined) {
    int joined = 0;
    g_on_join = [&] { ++joined; };
    { const Executor executor(5, false); }
    EXPECT_EQ(5, joined);
}

/// A graph of the product beside the reference's, built by the same calls.
struct TwinGraph {
    explicit TwinGraph(std::size_t size) : reference(size) {
        for (std::size_t i = 0; i < size; ++i) {
            nodes.push_back(std::make_unique<RecordingNode>(std::to_string(i), record));
        }
    }
    void SetKey(std::size_t node, std::uint32_t key) {
        nodes[node] = std::make_unique<RecordingNode>(std::to_string(node), record, key);
        reference.keys[node] = key;
    }
    void AddEdge(std::size_t provider, std::size_t dependent) {
        nodes[dependent]->AddDependency(*nodes[provider]);
        reference.AddEdge(provider, dependent);
    }

    RunRecord record;
    std::vector<std::unique_ptr<RecordingNode>> nodes;
    ReferenceGraph reference;
};

/// Random edges, some of them twice, from nodes of lower to nodes of higher rank in a random ranking.
std::unique_ptr<TwinGraph> MakeRandomGraph(std::mt19937& random) {
    const std::size_t size = 1 + random() % 40;
    auto graph = std::make_unique<TwinGraph>(size);
    for (std::size_t i = 0; i < size; ++i) {
        if (random() % 4 == 0) {
            graph->SetKey(i, 1 + static_cast<std::uint32_t>(random() % 3));
        }
    }
    std::vector<std::size_t> ranking(size);
    for (std::size_t i = 0; i < size; ++i) {
        ranking[i] = i;
    }
    std::shuffle(ranking.begin(), ranking.end(), random);
    for (std::size_t edges = random() % (2 * size); edges > 0; --edges) {
        const std::size_t low = random() % size;
        const std::size_t high = random() % size;
        if (low < high) {
            graph->AddEdge(ranking[low], ranking[high]);
            if (random() % 5 == 0) {
                graph->AddEdge(ranking[low], ranking[high]);
            }
        }
    }
    for (std::size_t i = 0; i < size; ++i) {
        if (random() % 10 == 0) {
            graph->nodes[i]->MarkDone();
            graph->reference.done[i] = true;
        }
    }
    return graph;
}

/// Not all nodes are asked for: the others run only where they are needed.
std::vector<std::size_t> ChooseScheduled(std::size_t size, std::mt19937& random) {
    std::vector<std::size_t> scheduled;
    for (std::size_t i = 0; i < size; ++i) {
        if (random() % 3 != 0) {
            scheduled.push_back(i);
        }
    }
    return scheduled;
}

std::vector<std::string> Names(const std::vector<std::size_t>& order) {
    std::vector<std::string> names;
    for (const std::size_t node : order) {
        names.push_back(std::to_string(node));
    }
    return names;
}

void RunTwin(TwinGraph& graph, const std::vector<std::size_t>& scheduled, std::int32_t workers,
             bool randomize) {
    Executor executor(workers, randomize);
    {
        const ProcessLockGuard lock;
        for (const std::size_t node : scheduled) {
            graph.nodes[node]->ScheduleForward(executor);
        }
    }
    for (const std::size_t node : scheduled) {
        graph.nodes[node]->WaitForward();
    }
}

class ExecutorOrderTest : public ExecutorTest, public testing::WithParamInterface<bool> {};

TEST_P(ExecutorOrderTest, OneWorkerRunsEveryGraphInTheOrderOfTheSlowComputation) {
    const bool randomize = GetParam();
    std::mt19937 random(20261115);  // NOLINT(cert-msc51-cpp): the same graphs every time
    for (unsigned round = 0; round < 400; ++round) {
        const auto graph = MakeRandomGraph(random);
        const std::vector<std::size_t> scheduled = ChooseScheduled(graph->nodes.size(), random);
        std::srand(round);
        RunTwin(*graph, scheduled, 1, randomize);
        std::srand(round);
        const auto expected = Names(ReferenceScheduler(graph->reference, randomize).Run(scheduled));
        ASSERT_EQ(expected, graph->record.names()) << "round " << round;
    }
}

INSTANTIATE_TEST_SUITE_P(PlainAndRandomised, ExecutorOrderTest, testing::Bool());

// One value of rand per choice, also where there is nothing to choose.
TEST_F(ExecutorTest, ARandomisedChoiceTakesOneValueOfRand) {
    TwinGraph graph(3);
    graph.AddEdge(0, 1);
    graph.AddEdge(1, 2);
    std::srand(7);
    RunTwin(graph, {0, 1, 2}, 1, true);
    const int next = std::rand();
    std::srand(7);
    for (int i = 0; i < 3; ++i) {
        std::rand();
    }
    EXPECT_EQ(std::rand(), next);
}

TEST_F(ExecutorTest, APlainRunLeavesRandAlone) {
    TwinGraph graph(3);
    std::srand(7);
    RunTwin(graph, {0, 1, 2}, 1, false);
    const int next = std::rand();
    std::srand(7);
    EXPECT_EQ(std::rand(), next);
}

// Invariant: a node starts only when everything it depends on has ended, and no node runs twice.
TEST_F(ExecutorTest, AnyNumberOfWorkersKeepsEveryDependency) {
    std::mt19937 random(4711);  // NOLINT(cert-msc51-cpp)
    for (const int workers : {1, 2, 3, 8, 32}) {
        for (int round = 0; round < 20; ++round) {
            const auto graph = MakeRandomGraph(random);
            const std::size_t size = graph->nodes.size();
            std::vector<std::atomic<int>> ended(size);
            std::atomic<int> violations{0};
            for (std::size_t i = 0; i < size; ++i) {
                const auto jitter = std::chrono::microseconds(random() % 200);
                graph->nodes[i]->on_execute = [&, i, jitter] {
                    for (const std::size_t provider : graph->reference.before[i]) {
                        violations += ended[provider] == 0 && !graph->reference.done[provider] ? 1 : 0;
                    }
                    std::this_thread::sleep_for(jitter);
                    ++ended[i];
                };
            }
            std::vector<std::size_t> all;
            for (std::size_t i = 0; i < size; ++i) {
                all.push_back(i);
            }
            RunTwin(*graph, all, workers, round % 2 == 0);
            ASSERT_EQ(0, violations) << workers << " workers, round " << round;
            for (std::size_t i = 0; i < size; ++i) {
                ASSERT_EQ(graph->reference.done[i] ? 0 : 1, ended[i])
                    << workers << " workers, round " << round;
            }
        }
    }
}

}  // namespace
}  // namespace bootweave
