// SPDX-License-Identifier: Apache-2.0
#include "graph/virtual_run.h"

#include <algorithm>
#include <cstdlib>
#include <map>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "gmock/gmock.h"
#include "graph/run_all.h"
#include "graph/stall.h"
#include "tests/support/fake_platform.h"
#include "tests/support/recording_node.h"

namespace bootweave {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

/// Nodes whose names end in the number of microseconds that they take: "a5"; "a6/2" takes two shared steps.
class Nodes {
  public:
    RecordingNode& Make(const std::string& name, std::uint32_t key = 1) {
        nodes_.push_back(std::make_unique<RecordingNode>(name, record_, key));
        all_.push_back(nodes_.back().get());
        return *nodes_.back();
    }
    RecordingNode& operator[](std::size_t index) { return *nodes_[index]; }
    [[nodiscard]] std::span<Node* const> all() const { return all_; }
    [[nodiscard]] std::vector<std::string> executed() const { return record_.names(); }

    VirtualOutcome Run(std::size_t workers, bool randomize = false) {
        return RunInVirtualTime(all_, workers, randomize, [](const Node& node) {
            const std::string& name = node.name();
            const std::size_t slash = name.find('/');
            return VirtualWork{
                .time = VirtualTime(std::stoi(name.substr(name.find_first_of("0123456789")))),
                .shared_steps = slash == std::string::npos ? 0 : std::stoul(name.substr(slash + 1))};
        });
    }

    /// Each span as "NAME START-END".
    std::vector<std::string> Spans(std::size_t workers) {
        std::vector<std::string> spans;
        for (const VirtualSpan& span : Run(workers).spans) {
            spans.push_back(span.node->name() + " " + std::to_string(span.start.count()) + "-" +
                            std::to_string(span.end.count()));
        }
        return spans;
    }

  private:
    RunRecord record_;
    std::vector<std::unique_ptr<RecordingNode>> nodes_;
    std::vector<Node*> all_;
};

class VirtualRunTest : public testing::Test {
  protected:
    void SetUp() override {
        FakePlatform::Reset();
        StallWatch::Reset();
    }
    void TearDown() override { StallWatch::Reset(); }

    Nodes nodes_;
};

TEST_F(VirtualRunTest, OneWorkerTakesOneNodeAfterAnother) {
    RecordingNode& first = nodes_.Make("a5");
    nodes_.Make("b7").AddDependency(first);
    nodes_.Make("c1");
    EXPECT_THAT(nodes_.Spans(1), ElementsAre("a5 0-5", "c1 5-6", "b7 6-13"));
    EXPECT_THAT(nodes_.executed(), IsEmpty());
    EXPECT_EQ(NodeState::kDoneForward, first.state());
}

TEST_F(VirtualRunTest, WorkersRunSideBySideAndTakeTheNextNodeWhenTheyAreFree) {
    for (const char* name : {"a5", "b7", "c1", "d4"}) {
        nodes_.Make(name);
    }
    EXPECT_THAT(nodes_.Spans(2), ElementsAre("a5 0-5", "b7 0-7", "c1 5-6", "d4 6-10"));
}

TEST_F(VirtualRunTest, ANodeWaitsForTheLastOfThoseItDependsOn) {
    RecordingNode& one = nodes_.Make("a5");
    RecordingNode& other = nodes_.Make("b7");
    RecordingNode& last = nodes_.Make("c1");
    last.AddDependency(one);
    last.AddDependency(other);
    last.AddDependency(one);
    EXPECT_THAT(nodes_.Spans(9), ElementsAre("a5 0-5", "b7 0-7", "c1 7-8"));
}

TEST_F(VirtualRunTest, TheLongerChainAndTheSmallerKeyGoFirst) {
    nodes_.Make("late1", 3);
    nodes_.Make("leaf1");
    RecordingNode& head = nodes_.Make("head1");
    nodes_.Make("tail1").AddDependency(head);
    EXPECT_THAT(nodes_.Spans(1), ElementsAre("head1 0-1", "leaf1 1-2", "tail1 2-3", "late1 3-4"));
}

TEST_F(VirtualRunTest, SharedStepsAreServedOneAtATimeAndTheFirstToComeFirst) {
    for (const char* name : {"a6/2", "b4/1", "c5", "d2/1"}) {
        nodes_.Make(name);
    }
    // a to 3, b to 7, a to 10; d comes at 5, when c has ended, and is served behind a.
    EXPECT_THAT(nodes_.Spans(3), ElementsAre("a6/2 0-10", "b4/1 0-7", "c5 0-5", "d2/1 5-12"));
}

TEST_F(VirtualRunTest, StepsThatDoNotDivideEvenlyTakeTheWholeTimeAllTheSame) {
    nodes_.Make("a10/3");
    EXPECT_THAT(nodes_.Spans(1), ElementsAre("a10/3 0-10"));
}

TEST_F(VirtualRunTest, WithOneWorkerNobodyWaitsForAShare) {
    nodes_.Make("a6/2");
    nodes_.Make("b4/1");
    EXPECT_THAT(nodes_.Spans(1), ElementsAre("a6/2 0-6", "b4/1 6-10"));
}

TEST_F(VirtualRunTest, WhatIsMarkedDoneHoldsNobodyUp) {
    RecordingNode& done = nodes_.Make("a5");
    nodes_.Make("b7").AddDependency(done);
    done.MarkDone();
    EXPECT_THAT(nodes_.Spans(1), ElementsAre("b7 0-7"));
}

TEST_F(VirtualRunTest, WithoutWorkersNothingRuns) {
    nodes_.Make("a5");
    EXPECT_THAT(nodes_.Spans(0), IsEmpty());
}

TEST_F(VirtualRunTest, NodesThatWaitForEachOtherAreNamedAndTheOthersRun) {
    RecordingNode& one = nodes_.Make("a1");
    RecordingNode& other = nodes_.Make("b1");
    nodes_.Make("c1").AddDependency(other);
    nodes_.Make("d1");
    one.AddDependency(other);
    other.AddDependency(one);
    const VirtualOutcome outcome = nodes_.Run(2);
    EXPECT_EQ("a1 -> b1 -> a1", outcome.circle);
    ASSERT_EQ(1U, outcome.spans.size());
    EXPECT_EQ("d1", outcome.spans[0].node->name());
}

/// A random graph, the same for the same seed.
void Fill(Nodes& nodes, unsigned seed) {
    std::mt19937 random(seed);
    for (std::size_t index = 0; index < 60; ++index) {
        nodes.Make("n" + std::to_string(index), random() % 8 == 0 ? 3 : 1);
        for (std::size_t edge = random() % 4; edge > 0 && index > 0; --edge) {
            nodes[index].AddDependency(nodes[random() % index]);
        }
    }
}

TEST_F(VirtualRunTest, TheOrderIsThatOfARealRunWithOneWorker) {
    for (unsigned seed = 0; seed < 50; ++seed) {
        for (const bool randomize : {false, true}) {
            StallWatch::Reset();
            Nodes real;
            Fill(real, seed);
            std::srand(seed);  // NOLINT(cert-msc51-cpp): what is compared are two runs of one seed
            {
                Executor executor(1, randomize);
                RunAllForward(real.all(), executor);
            }
            Nodes imagined;
            Fill(imagined, seed);
            std::srand(seed);  // NOLINT(cert-msc51-cpp)
            std::vector<std::string> order;
            for (const VirtualSpan& span : imagined.Run(1, randomize).spans) {
                order.push_back(span.node->name());
            }
            EXPECT_EQ(real.executed(), order) << "seed " << seed;
        }
    }
}

TEST_F(VirtualRunTest, NoNodeStartsBeforeWhatItNeedsAndNoMoreRunThanThereAreWorkers) {
    for (unsigned seed = 0; seed < 50; ++seed) {
        StallWatch::Reset();
        Nodes nodes;
        Fill(nodes, seed);
        const std::size_t workers = 1 + seed % 7;
        const std::vector<VirtualSpan> spans = nodes.Run(workers).spans;
        ASSERT_EQ(nodes.all().size(), spans.size());
        std::map<const Node*, VirtualSpan> by_node;
        for (const VirtualSpan& span : spans) {
            by_node.emplace(span.node, span);
            const auto running = std::count_if(spans.begin(), spans.end(), [&](const VirtualSpan& other) {
                return other.start <= span.start && other.end > span.start;
            });
            EXPECT_LE(static_cast<std::size_t>(running), workers);
        }
        for (const VirtualSpan& span : spans) {
            for (const Node* before : span.node->dependencies()) {
                EXPECT_LE(by_node.at(before).end, span.start);
            }
        }
    }
}

}  // namespace
}  // namespace bootweave
