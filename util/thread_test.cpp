// SPDX-License-Identifier: Apache-2.0
#include "util/thread.h"

#include <atomic>
#include <cerrno>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include <unistd.h>

#include "gtest/gtest.h"
#include "util/exception.h"

extern "C" int __real_pthread_create(pthread_t* thread, const pthread_attr_t* attributes,
                                     void* (*start)(void*), void* argument);
extern "C" int __wrap_pthread_create(pthread_t* thread, const pthread_attr_t* attributes,
                                     void* (*start)(void*), void* argument);

namespace {

std::atomic<int> g_create_error = 0;

}  // namespace

extern "C" int __wrap_pthread_create(pthread_t* thread, const pthread_attr_t* attributes,
                                     void* (*start)(void*), void* argument) {
    return g_create_error != 0 ? g_create_error.load()
                               : __real_pthread_create(thread, attributes, start, argument);
}

namespace bootweave {
namespace {

TEST(ThreadTest, RunsItsBodyOnAThreadOfItsOwn) {
    pthread_t body_thread = pthread_self();
    Thread thread([&] { body_thread = pthread_self(); });
    thread.Join();
    EXPECT_FALSE(pthread_equal(body_thread, pthread_self()));
}

TEST(ThreadTest, DestructionWaitsForTheBody) {
    int number = 0;
    {
        const Thread thread([&] { number = 7; });
    }
    EXPECT_EQ(7, number);
}

TEST(ThreadTest, ItsStackIsLargeEnoughWhateverTheLimitOnThose) {
    pthread_attr_t before{};
    ASSERT_EQ(0, pthread_getattr_default_np(&before));
    pthread_attr_t tiny{};
    ASSERT_EQ(0, pthread_getattr_default_np(&tiny));
    const long least = ::sysconf(_SC_THREAD_STACK_MIN);
    ASSERT_EQ(0, pthread_attr_setstacksize(&tiny, static_cast<std::size_t>(least)));
    ASSERT_EQ(0, pthread_setattr_default_np(&tiny));  // as the C library does where the limit is that
    std::size_t size = 0;
    {
        const Thread thread([&] {
            pthread_attr_t own{};
            if (pthread_getattr_np(pthread_self(), &own) == 0) {
                static_cast<void>(pthread_attr_getstacksize(&own, &size));
                pthread_attr_destroy(&own);
            }
        });
    }
    ASSERT_EQ(0, pthread_setattr_default_np(&before));
    EXPECT_LE(262'144U, size);
    pthread_attr_destroy(&tiny);
    pthread_attr_destroy(&before);
}

TEST(ThreadTest, JoiningAgainIsHarmless) {
    int runs = 0;
    Thread thread([&] { ++runs; });
    thread.Join();
    thread.Join();
    EXPECT_EQ(1, runs);
}

TEST(ThreadTest, MovingHandsTheThreadOver) {
    int number = 0;
    Thread first([&] { number = 7; });
    Thread second(std::move(first));
    first.Join();  // joins nothing
    second.Join();
    EXPECT_EQ(7, number);

    std::atomic<int> runs = 0;
    std::vector<Thread> threads;
    for (int count = 0; count < 8; ++count) {
        threads.emplace_back([&] { ++runs; });
    }
    threads.clear();
    EXPECT_EQ(8, runs);
}

TEST(ThreadTest, TheBodyIsDestroyedWithItsThread) {
    const auto token = std::make_shared<int>();
    Thread thread([token] {});
    thread.Join();
    EXPECT_EQ(1, token.use_count());
}

TEST(ThreadTest, WithoutAThreadToBeHadTheSystemsTextIsRaisedAndTheBodyDestroyed) {
    const auto token = std::make_shared<int>();
    std::string text = "none";
    g_create_error = EAGAIN;
    try {
        const Thread thread([token] {});
    } catch (const Exception& error) {
        text = error.what();
    }
    g_create_error = 0;
    EXPECT_EQ("Resource temporarily unavailable", text);
    EXPECT_EQ(1, token.use_count());
}

}  // namespace
}  // namespace bootweave
