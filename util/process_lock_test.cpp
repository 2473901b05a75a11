// SPDX-License-Identifier: Apache-2.0
#include "util/process_lock.h"

#include <atomic>
#include <cerrno>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "gtest/gtest.h"
#include "util/child_process.h"
#include "util/exception.h"

// The tests take the lock in ways that the static analysis is there to forbid.
#if defined(__clang__)
#pragma clang diagnostic ignored "-Wthread-safety-analysis"
#endif

extern "C" int __real_pthread_cond_init(pthread_cond_t* condition, const pthread_condattr_t* attributes);
extern "C" int __wrap_pthread_cond_init(pthread_cond_t* condition, const pthread_condattr_t* attributes);

namespace {

std::atomic<int> g_condition_error = 0;

}  // namespace

extern "C" int __wrap_pthread_cond_init(pthread_cond_t* condition, const pthread_condattr_t* attributes) {
    return g_condition_error != 0 ? g_condition_error.load()
                                  : __real_pthread_cond_init(condition, attributes);
}

namespace bootweave {
namespace {

/// What `question` answers on another thread.
template <typename Question>
bool OnAnotherThread(Question question) {
    bool answer = false;
    std::thread([&] { answer = question(); }).join();
    return answer;
}

TEST(ProcessLockTest, CountsHowOftenItsOwnerTookIt) {
    EXPECT_FALSE(g_process_lock.HeldByThisThread());
    {
        const ProcessLockGuard once;
        EXPECT_TRUE(g_process_lock.HeldByThisThread());
        EXPECT_EQ(1U, g_process_lock.depth());
        {
            const ProcessLockGuard twice;
            g_process_lock.Lock();
            EXPECT_EQ(3U, g_process_lock.depth());
            g_process_lock.Unlock();
        }
        EXPECT_TRUE(g_process_lock.HeldByThisThread());
        EXPECT_EQ(1U, g_process_lock.depth());
    }
    EXPECT_FALSE(g_process_lock.HeldByThisThread());
}

TEST(ProcessLockTest, IsHeldByItsOwnerAlone) {
    const ProcessLockGuard lock;
    EXPECT_FALSE(OnAnotherThread([] { return g_process_lock.HeldByThisThread(); }));
}

TEST(ProcessLockTest, AnotherThreadWaitsForTheLastUnlock) {
    std::atomic<bool> unlocked = false;
    bool waited = false;
    g_process_lock.Lock();
    g_process_lock.Lock();
    std::thread other([&] {
        const ProcessLockGuard lock;
        waited = unlocked;
    });
    g_process_lock.Unlock();
    std::this_thread::yield();
    unlocked = true;
    g_process_lock.Unlock();
    other.join();
    EXPECT_TRUE(waited);
}

// Invariant: never two threads inside at once, at whatever depth, so that no increment of a plain number is
// lost.
TEST(ProcessLockTest, KeepsThreadsApart) {
    const unsigned seed = std::random_device()();
    SCOPED_TRACE("seed " + std::to_string(seed));
    for (const int threads : {1, 2, 3, 8, 32}) {
        constexpr int kRounds = 500;
        long number = 0;
        int inside = 0;
        std::atomic<int> violations = 0;
        std::vector<std::thread> running;
        for (int index = 0; index < threads; ++index) {
            running.emplace_back([&, index] {
                std::mt19937 random(seed + static_cast<unsigned>(index));
                for (int round = 0; round < kRounds; ++round) {
                    const ProcessLockGuard outer;
                    violations += ++inside != 1;
                    if (random() % 2 == 0) {
                        const ProcessLockGuard inner;
                        violations += g_process_lock.depth() != 2;
                        ++number;
                    } else {
                        ++number;
                    }
                    if (random() % 8 == 0) {
                        std::this_thread::yield();
                    }
                    violations += !g_process_lock.HeldByThisThread() || g_process_lock.depth() != 1;
                    --inside;
                }
            });
        }
        for (std::thread& thread : running) {
            thread.join();
        }
        EXPECT_EQ(0, violations) << threads << " threads";
        EXPECT_EQ(static_cast<long>(threads) * kRounds, number) << threads << " threads";
    }
}

TEST(ProcessLockTest, AChildForkedUnderTheLockHoldsIt) {
    const ProcessLockGuard lock;
    auto child = ChildProcess::Fork([] {
        if (!g_process_lock.HeldByThisThread() || g_process_lock.depth() != 1) {
            return 1;
        }
        g_process_lock.Unlock();
        if (g_process_lock.HeldByThisThread()) {
            return 2;
        }
        g_process_lock.Lock();
        return g_process_lock.HeldByThisThread() ? 0 : 3;
    });
    ASSERT_TRUE(child.has_value());
    EXPECT_EQ(0, child->Wait());
}

TEST(ConditionVariableTest, OneThatCannotBeMadeRaisesTheTextGiven) {
    g_condition_error = ENOMEM;
    std::string text = "none";
    try {
        const ConditionVariable condition("Failed to initialize node condition");
    } catch (const Exception& error) {
        text = error.what();
    }
    g_condition_error = 0;
    EXPECT_EQ("Failed to initialize node condition", text);
}

TEST(ConditionVariableTest, WaitingFreesTheLockAndTakesItAgain) {
    ConditionVariable condition("none");
    bool done = false;
    g_process_lock.Lock();
    std::thread other([&] {
        const ProcessLockGuard lock;  // not to be had before the wait frees it
        done = true;
        condition.Broadcast();
    });
    while (!done) {
        condition.Wait();
    }
    EXPECT_TRUE(g_process_lock.HeldByThisThread());
    EXPECT_EQ(1U, g_process_lock.depth());
    g_process_lock.Unlock();
    EXPECT_FALSE(g_process_lock.HeldByThisThread());
    other.join();
}

// Invariant: a broadcast that follows a change of the predicate under the lock wakes every waiter there is.
TEST(ConditionVariableTest, ABroadcastWakesAllWaiters) {
    for (const int threads : {1, 2, 3, 8, 32}) {
        ConditionVariable condition("none");
        bool go = false;
        int waiting = 0;
        int woken = 0;
        std::vector<std::thread> running;
        for (int index = 0; index < threads; ++index) {
            running.emplace_back([&] {
                const ProcessLockGuard lock;
                ++waiting;
                condition.Broadcast();
                while (!go) {
                    condition.Wait();
                }
                ++woken;
            });
        }
        {
            const ProcessLockGuard lock;
            while (waiting < threads) {
                condition.Wait();
            }
            EXPECT_EQ(0, woken);
            go = true;
            condition.Broadcast();
        }
        for (std::thread& thread : running) {
            thread.join();
        }
        EXPECT_EQ(threads, woken);
    }
}

}  // namespace
}  // namespace bootweave
