// SPDX-License-Identifier: Apache-2.0
#include "platform/linux/per_process.h"

#include <thread>
#include <vector>

#include <sys/wait.h>
#include <unistd.h>

#include "gtest/gtest.h"

namespace bootweave {
namespace {

TEST(PerProcessTest, StartsAtItsInitialValueAndKeepsWhatItIsSetTo) {
    const pid_t pid = ::getpid();
    PerProcess number(-1);
    EXPECT_EQ(-1, number.Get(pid));
    EXPECT_EQ(-1, number.Update(pid, [](std::int32_t) { return 7; }));
    EXPECT_EQ(7, number.Get(pid));
    EXPECT_EQ(7, number.Update(pid, [](std::int32_t before) { return before - 107; }));
    EXPECT_EQ(-100, number.Get(pid));
    number.Reset();
    EXPECT_EQ(-1, number.Get(pid));
}

TEST(PerProcessTest, AChildStartsAtTheInitialValueAndLeavesTheParentsAlone) {
    PerProcess number(5);
    number.Update(::getpid(), [](std::int32_t) { return 9; });
    const pid_t child = ::fork();
    if (child == 0) {
        const std::int32_t first = number.Get(::getpid());
        number.Update(::getpid(), [](std::int32_t before) { return before + 1; });
        ::_exit(first * 10 + number.Get(::getpid()));
    }
    int status = -1;
    ASSERT_EQ(child, ::waitpid(child, &status, 0));
    EXPECT_EQ(56, WEXITSTATUS(status));
    EXPECT_EQ(9, number.Get(::getpid()));
}

// Invariant: no update is lost, however many threads make theirs at once.
TEST(PerProcessTest, UpdatesOfManyThreadsAllCount) {
    for (const int threads : {1, 2, 3, 8, 32}) {
        PerProcess number(0);
        std::vector<std::jthread> running;
        for (int index = 0; index < threads; ++index) {
            running.emplace_back([&number] {
                for (int count = 0; count < 1000; ++count) {
                    number.Update(::getpid(), [](std::int32_t before) { return before + 1; });
                }
            });
        }
        running.clear();
        EXPECT_EQ(threads * 1000, number.Get(::getpid()));
    }
}

}  // namespace
}  // namespace bootweave
