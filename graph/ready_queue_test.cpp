// SPDX-License-Identifier: Apache-2.0
#include "graph/ready_queue.h"

#include <algorithm>
#include <memory>
#include <random>

#include "graph/executor.h"
#include "gtest/gtest.h"
#include "tests/support/recording_node.h"

namespace bootweave {
namespace {

class ArrivalListTest : public testing::Test {
  protected:
    Node& Make() {
        nodes_.push_back(std::make_unique<RecordingNode>(std::to_string(nodes_.size()), record_));
        return *nodes_.back();
    }

    RunRecord record_;
    std::vector<std::unique_ptr<RecordingNode>> nodes_;
};

TEST_F(ArrivalListTest, TakesTheFirstInOrderOfArrival) {
    ArrivalList list;
    Node& a = Make();
    Node& b = Make();
    list.Append(a);
    list.Append(b);
    EXPECT_EQ(&a, &list.TakeFirst());
    EXPECT_EQ(&b, &list.TakeFirst());
    EXPECT_EQ(0U, list.size());
}

TEST_F(ArrivalListTest, AnyMixOfAppendingAndTakingEqualsAPlainVector) {
    std::mt19937 random(99);  // NOLINT(cert-msc51-cpp): the same steps every time
    ArrivalList list;
    std::vector<Node*> plain;
    for (int step = 0; step < 20'000; ++step) {
        if (plain.empty() || random() % 5 < (step % 4000 < 2000 ? 3U : 2U)) {
            Node& node = Make();
            list.Append(node);
            plain.push_back(&node);
        } else {
            const std::size_t place = random() % 3 == 0 ? 0 : random() % plain.size();
            Node& taken = random() % 2 == 0 && place == 0 ? list.TakeFirst() : list.TakeAt(place);
            ASSERT_EQ(plain[place], &taken) << "step " << step;
            plain.erase(plain.begin() + static_cast<std::ptrdiff_t>(place));
        }
        ASSERT_EQ(plain.size(), list.size());
    }
}

TEST_F(ArrivalListTest, WithoutChoiceAtRandomAnyMixEqualsAPlainQueue) {
    std::mt19937 random(5);  // NOLINT(cert-msc51-cpp)
    ArrivalList list;
    std::size_t next = 0;
    for (int step = 0; step < 5'000; ++step) {
        if (next == nodes_.size() || random() % 2 == 0) {
            list.Append(Make());
        } else {
            ASSERT_EQ(nodes_[next++].get(), &list.TakeFirst());
        }
    }
}

TEST_F(ArrivalListTest, AQueueThatNeverEmptiesStaysSmall) {
    ArrivalList list;
    list.Append(Make());
    for (int step = 0; step < 100'000; ++step) {
        Node& node = list.TakeFirst();
        list.Append(node);
        list.Append(node);
        list.TakeFirst();
    }
    EXPECT_EQ(1U, list.size());
}

/// The depth of a node before a cycle is the greater the earlier it is asked for.
TEST(ReadyQueueTest, ANodeThatCameAloneWasRankedBeforeThoseThatCameAfterIt) {
    RunRecord record;
    RecordingNode alone("alone", record);
    RecordingNode later("later", record);
    RecordingNode deep("deep", record);
    RecordingNode middle("middle", record);
    RecordingNode last("last", record);
    RecordingNode circle_a("circle a", record);
    RecordingNode circle_b("circle b", record);
    circle_a.AddDependency(circle_b);
    circle_b.AddDependency(circle_a);
    circle_a.AddDependency(alone);
    circle_b.AddDependency(later);  // 1 when it comes second, 2 when it comes first
    middle.AddDependency(deep);
    last.AddDependency(middle);
    Executor executor(1, false);
    alone.ScheduleForward(executor);
    alone.WaitForward();
    {
        const ProcessLockGuard lock;
        later.ScheduleForward(executor);
        deep.ScheduleForward(executor);
    }
    executor.WaitUntilIdle();
    EXPECT_EQ((std::vector<std::string>{"alone", "deep", "later"}), record.names());
}

TEST(ReadyQueueTest, AnEmptyQueueHasNoNextNode) {
    ReadyQueue queue;
    const ProcessLockGuard lock;
    EXPECT_EQ(nullptr, queue.Pop(false));
    EXPECT_EQ(nullptr, queue.Pop(true));
}

}  // namespace
}  // namespace bootweave
