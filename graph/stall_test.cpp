// SPDX-License-Identifier: Apache-2.0
#include "graph/stall.h"

#include <atomic>
#include <functional>
#include <memory>
#include <thread>
#include <vector>

#include <poll.h>
#include <unistd.h>

#include "gmock/gmock.h"
#include "graph/barrier.h"
#include "graph/executor.h"
#include "graph/run_all.h"
#include "tests/support/fake_platform.h"
#include "tests/support/recording_node.h"
#include "util/child_process.h"
#include "util/unique_fd.h"

namespace bootweave {
namespace {

using testing::IsEmpty;

/// Builds a graph, runs it in a child that waits for ever when the graph has a cycle, and reads what it logs.
class StallTest : public testing::Test {
  protected:
    void SetUp() override {
        FakePlatform::Reset();
        StallWatch::Reset();
    }

    RecordingNode& Make(const std::string& name) {
        nodes_.push_back(std::make_unique<RecordingNode>(name, record_));
        return *nodes_.back();
    }
    InitBarrier& MakeBarrier(const std::string& name) {
        barriers_.push_back(std::make_unique<InitBarrier>(name));
        return *barriers_.back();
    }

    std::string LogOfStalledRun(int workers) {
        return LogOf(workers, [&](Executor& executor) {
            {
                const ProcessLockGuard lock;
                for (const auto& node : nodes_) {
                    node->ScheduleForward(executor);
                }
            }
            for (const auto& node : nodes_) {
                node->WaitForward();
            }
        });
    }

    /// Everything logged until the child is silent for a while; it is killed then. The log of one that does
    /// not wait for ever ends in "ended".
    static std::string LogOf(int workers, const std::function<void(Executor&)>& run) {
        Pipe pipe = Pipe::Create();
        auto child = ChildProcess::Fork([&] {
            FakePlatform::EchoTo(pipe.write_end.get());
            Executor executor(workers, false);
            run(executor);
            return ::write(pipe.write_end.get(), "ended", 5) == 5 ? 0 : 1;
        });
        pipe.write_end.Reset();
        std::string log;
        pollfd readable{.fd = pipe.read_end.get(), .events = POLLIN, .revents = 0};
        int patience = 20'000;  // milliseconds for the first line, then briefly for a second one
        while (::poll(&readable, 1, patience) > 0) {
            char buffer[4096];
            const ssize_t count = ::read(pipe.read_end.get(), buffer, sizeof buffer);
            if (count <= 0) {
                break;
            }
            log.append(buffer, static_cast<std::size_t>(count));
            patience = 300;
        }
        return log;
    }

    RunRecord record_;
    std::vector<std::unique_ptr<RecordingNode>> nodes_;
    std::vector<std::unique_ptr<InitBarrier>> barriers_;
};

TEST_F(StallTest, ACircleThroughBarriersIsNamedByItsPluginsOnce) {
    RecordingNode& a = Make("a");
    RecordingNode& b = Make("b");
    InitBarrier& x = MakeBarrier("x");
    InitBarrier& y = MakeBarrier("y");
    a.AddDependency(x);
    b.AddDependent(x);
    b.AddDependency(y);
    a.AddDependent(y);
    for (const int workers : {1, 4}) {
        EXPECT_EQ("2 Bootweave is stalled: plugins wait for each other: a -> b -> a\n",
                  LogOfStalledRun(workers));
    }
}

TEST_F(StallTest, TheLineComesAfterEverythingThatCanRunHasRun) {
    RecordingNode& ahead = Make("ahead");
    RecordingNode& waits = Make("waits");
    RecordingNode& a = Make("a");
    RecordingNode& b = Make("b");
    RecordingNode& c = Make("c");
    waits.AddDependency(a);
    a.AddDependency(ahead);
    a.AddDependency(b);
    b.AddDependency(c);
    c.AddDependency(a);
    // Its failure is logged when it has run: before the stall, which is there only afterwards.
    ahead.on_execute = [] {
        std::this_thread::sleep_for(std::chrono::milliseconds(30));
        throw 1;  // NOLINT(hicpp-exception-baseclass)
    };
    EXPECT_EQ(
        "2 unhandled exception whilst running ahead\n"
        "2 Bootweave is stalled: plugins wait for each other: a -> b -> c -> a\n",
        LogOfStalledRun(2));
}

TEST_F(StallTest, APluginThatRequiresWhatItProvidesWaitsForItself) {
    RecordingNode& a = Make("a");
    InitBarrier& x = MakeBarrier("x");
    a.AddDependency(x);
    a.AddDependent(x);
    EXPECT_EQ("2 Bootweave is stalled: plugins wait for each other: a -> a\n", LogOfStalledRun(1));
}

TEST_F(StallTest, ARunThatIsOnlySlowSaysNothing) {
    RecordingNode& slow = Make("slow");
    RecordingNode& next = Make("next");
    next.AddDependency(slow);
    slow.on_execute = [] { std::this_thread::sleep_for(std::chrono::milliseconds(100)); };
    EXPECT_EQ("ended", LogOfStalledRun(4));
}

TEST_F(StallTest, ARunOfAllNodesNamesTheCircleAndGoesOnWaitingInEitherDirection) {
    RecordingNode& first = Make("first");
    RecordingNode& a = Make("a");
    RecordingNode& b = Make("b");
    a.AddDependency(first);
    a.AddDependency(b);
    b.AddDependency(a);
    std::vector<Node*> all;
    for (const auto& node : nodes_) {
        all.push_back(node.get());
    }
    for (const int workers : {1, 4}) {
        EXPECT_EQ("2 Bootweave is stalled: plugins wait for each other: a -> b -> a\n",
                  LogOf(workers, [&](Executor& executor) { RunAllForward(all, executor); }));
        EXPECT_EQ("2 Bootweave is stalled: plugins wait for each other: a -> b -> a\n",
                  LogOf(workers, [&](Executor& executor) { RunAllReverse(all, executor); }));
    }
}

}  // namespace
}  // namespace bootweave
