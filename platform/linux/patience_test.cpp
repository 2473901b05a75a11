// SPDX-License-Identifier: Apache-2.0
#include "platform/linux/patience.h"

#include <memory>
#include <vector>

#include <unistd.h>

#include "gtest/gtest.h"

namespace bootweave {
namespace {

using std::chrono::microseconds;
using std::chrono::milliseconds;

TEST(PatienceTest, AMessageHasNoMoreThan200Milliseconds) {
    Patience::Budget budget;
    Patience patience(budget, ::getpid());
    const microseconds left = patience.Left();
    EXPECT_LE(left, milliseconds(200));
    EXPECT_LE(patience.Left(), left);
}

TEST(PatienceTest, TimeIsTakenOnlyFromWhenItIsAskedFor) {
    Patience::Budget budget;
    {
        const Patience patience(budget, ::getpid());
        EXPECT_EQ(2'000'000, budget.Get(::getpid()));
    }
    EXPECT_EQ(2'000'000, budget.Get(::getpid()));
}

TEST(PatienceTest, WhatWasNotUsedIsGivenBack) {
    Patience::Budget budget;
    const auto start = Patience::Clock::now();
    {
        Patience patience(budget, ::getpid());
        static_cast<void>(patience.Left());
        EXPECT_EQ(1'800'000, budget.Get(::getpid()));
    }
    const auto elapsed = std::chrono::ceil<microseconds>(Patience::Clock::now() - start).count();
    EXPECT_GE(budget.Get(::getpid()), 2'000'000 - elapsed);
    EXPECT_LE(budget.Get(::getpid()), 2'000'000);
}

// Invariant: what all messages that wait at once may wait never sums up to more than two seconds.
TEST(PatienceTest, MessagesThatWaitAtOnceShareTwoSeconds) {
    Patience::Budget budget;
    std::vector<std::unique_ptr<Patience>> waiting;
    for (int count = 0; count < 10; ++count) {
        waiting.push_back(std::make_unique<Patience>(budget, ::getpid()));
        EXPECT_NE(microseconds(0), waiting.back()->Left());
    }
    EXPECT_EQ(0, budget.Get(::getpid()));
    Patience late(budget, ::getpid());
    EXPECT_EQ(microseconds(0), late.Left());
    waiting.clear();
    EXPECT_EQ(microseconds(0), late.Left()) << "a message that was refused once is not made to wait later";
}

TEST(PatienceTest, ALastShareIsWhatTheBudgetHasLeft) {
    Patience::Budget budget;
    budget.Update(::getpid(), [](std::int32_t) { return 30; });
    {
        Patience patience(budget, ::getpid());
        EXPECT_LE(patience.Left(), microseconds(30));
        EXPECT_EQ(0, budget.Get(::getpid()));
        while (patience.Left().count() > 0) {
        }
    }
    EXPECT_LE(budget.Get(::getpid()), 0) << "a wait that took longer than planned is paid for in full";
    Patience next(budget, ::getpid());
    EXPECT_EQ(microseconds(0), next.Left());
}

}  // namespace
}  // namespace bootweave
