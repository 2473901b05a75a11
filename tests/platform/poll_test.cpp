// SPDX-License-Identifier: Apache-2.0
#include "platform/poll.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <functional>
#include <sstream>
#include <string>
#include <vector>

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include "gmock/gmock.h"

#include "platform/log.h"
#include "tests/support/temp_dir.h"
#include "util/child_process.h"
#include "util/standard_streams.h"
#include "util/thread.h"
#include "util/unique_fd.h"

namespace {

using namespace std::chrono_literals;
using bootweave::Pipe;
using bootweave::UniqueFd;
using testing::ElementsAre;

constexpr int kClass = 1;
constexpr int kFlags = 0x15;
constexpr int kType = 2;

/// A pipe whose reading end is watched, and what to do when it is readable.
struct Source {
    Pipe pipe = Pipe::Create();
    std::function<void()> action;

    static void Callback(void* source) { static_cast<Source*>(source)->action(); }

    bool Register() {
        return Poll_Callback(kClass, kFlags, Callback, this, kType, pipe.read_end.get(), nullptr);
    }
    bool Remove() { return Poll_CallbackRemove(kClass, kFlags, Callback, this, kType); }
    void Write() const { ASSERT_EQ(1, ::write(pipe.write_end.get(), "x", 1)); }
    char Read() const {
        char c = 0;
        EXPECT_EQ(1, ::read(pipe.read_end.get(), &c, 1));
        return c;
    }
};

class PollTest : public testing::Test {
  protected:
    PollTest() { Poll_InitDefault(); }

    void Loop() { Poll_Loop(kClass, &exit_, 0); }

    bool exit_ = false;
    std::vector<int> calls_;
};

TEST_F(PollTest, ALoopWhoseFlagIsSetAlreadyReturnsAtOnce) {
    Source source;
    source.action = [this] { calls_.push_back(1); };
    ASSERT_TRUE(source.Register());
    source.Write();
    exit_ = true;
    Loop();
    EXPECT_THAT(calls_, ElementsAre());
}

TEST_F(PollTest, ACallbackIsCalledForAsLongAsItsDescriptorIsReadable) {
    Source source;
    source.action = [&] {
        calls_.push_back(1);
        if (calls_.size() == 3) {
            source.Read();
            exit_ = true;
        }
    };
    ASSERT_TRUE(source.Register());
    source.Write();
    Loop();
    EXPECT_THAT(calls_, ElementsAre(1, 1, 1));
}

TEST_F(PollTest, ACallbackIsCalledAgainEachTimeItsDescriptorBecomesReadable) {
    Source source;
    source.action = [&] {
        calls_.push_back(source.Read());
        if (calls_.size() < 3) {
            source.Write();
        } else {
            exit_ = true;
        }
    };
    ASSERT_TRUE(source.Register());
    source.Write();
    Loop();
    EXPECT_THAT(calls_, ElementsAre('x', 'x', 'x'));
}

TEST_F(PollTest, AnEndOfStreamIsSomethingToRead) {
    Source source;
    source.action = [this] { exit_ = true; };
    ASSERT_TRUE(source.Register());
    source.pipe.write_end.Reset();
    Loop();
    EXPECT_TRUE(exit_);
}

TEST_F(PollTest, ACallbackMayRemoveItself) {
    Source first;
    Source second;
    first.action = [&] {
        calls_.push_back(1);
        EXPECT_TRUE(first.Remove());
        second.Write();
    };
    second.action = [&] {
        calls_.push_back(2);
        exit_ = calls_.size() == 4;
    };
    ASSERT_TRUE(first.Register());
    ASSERT_TRUE(second.Register());
    first.Write();
    Loop();
    EXPECT_THAT(calls_, ElementsAre(1, 2, 2, 2));
    EXPECT_FALSE(first.Remove());
}

TEST_F(PollTest, ACallbackThatAnotherOneRemovedIsNotCalledAnyMore) {
    Source first;
    Source second;
    first.action = [&] {
        calls_.push_back(1);
        EXPECT_TRUE(second.Remove());
        second.pipe = Pipe();  // and its number may be somebody else's
        exit_ = true;
    };
    second.action = [this] { calls_.push_back(2); };
    ASSERT_TRUE(first.Register());
    ASSERT_TRUE(second.Register());
    first.Write();
    second.Write();
    Loop();
    EXPECT_THAT(calls_, ElementsAre(1));
}

TEST_F(PollTest, ARegistrationMadeInACallbackWaitsForTheNextRoundEvenOnAReusedNumber) {
    Source first;
    Source second;
    Source third;
    first.action = [&] {
        calls_.push_back(1);
        first.Read();
        EXPECT_TRUE(second.Remove());
        second.pipe.read_end.Reset();
        third.pipe = Pipe::Create();  // gets the number of the removed one
        ASSERT_TRUE(third.Register());
        third.Write();
    };
    second.action = [this] { calls_.push_back(2); };
    third.action = [this] {
        calls_.push_back(3);
        exit_ = true;
    };
    third.pipe = Pipe();
    ASSERT_TRUE(first.Register());
    ASSERT_TRUE(second.Register());
    const int number = second.pipe.read_end.get();
    first.Write();
    second.Write();
    Loop();
    EXPECT_EQ(number, third.pipe.read_end.get());
    EXPECT_THAT(calls_, ElementsAre(1, 3));
}

TEST_F(PollTest, OneRemovalRemovesOneRegistration) {
    Source source;
    source.action = [&] {
        calls_.push_back(1);
        exit_ = true;
    };
    ASSERT_TRUE(source.Register());
    ASSERT_TRUE(source.Register());
    EXPECT_TRUE(source.Remove());
    source.Write();
    Loop();
    EXPECT_THAT(calls_, ElementsAre(1));
    EXPECT_TRUE(source.Remove());
    EXPECT_FALSE(source.Remove());
}

TEST_F(PollTest, ARemovalWithOtherValuesRemovesNothing) {
    Source source;
    Source other;
    ASSERT_TRUE(source.Register());
    EXPECT_FALSE(other.Remove());
    EXPECT_FALSE(Poll_CallbackRemove(kClass + 1, kFlags, Source::Callback, &source, kType));
    EXPECT_FALSE(Poll_CallbackRemove(kClass, kFlags + 1, Source::Callback, &source, kType));
    EXPECT_FALSE(Poll_CallbackRemove(kClass, kFlags, Source::Callback, &source, kType + 1));
    EXPECT_FALSE(Poll_CallbackRemove(kClass, kFlags, nullptr, &source, kType));
    EXPECT_TRUE(source.Remove());
}

TEST_F(PollTest, WhatTheLoopCannotWatchIsNotRegistered) {
    const Pipe pipe = Pipe::Create();
    const int fd = pipe.read_end.get();
    const auto function = Source::Callback;
    EXPECT_FALSE(Poll_Callback(kClass, kFlags, function, nullptr, kType, -1, nullptr));
    EXPECT_FALSE(Poll_Callback(kClass, kFlags, function, nullptr, kType, 100000, nullptr));
    EXPECT_FALSE(Poll_Callback(kClass, kFlags, nullptr, nullptr, kType, fd, nullptr));
    EXPECT_FALSE(Poll_Callback(kClass, 0x14, function, nullptr, kType, fd, nullptr));
    EXPECT_FALSE(Poll_Callback(kClass, kFlags, function, nullptr, 1, fd, nullptr));
    int lock = 0;
    EXPECT_FALSE(Poll_Callback(kClass, kFlags, function, nullptr, kType, fd, &lock));
}

TEST_F(PollTest, ADescriptorClosedUnderItsCallbackLosesItAndDoesNotSpin) {
    Source closed;
    Source open;
    closed.action = [this] { calls_.push_back(1); };
    open.action = [this] {
        calls_.push_back(2);
        exit_ = true;
    };
    ASSERT_TRUE(closed.Register());
    ASSERT_TRUE(open.Register());
    closed.pipe = Pipe();
    open.Write();
    Loop();
    EXPECT_THAT(calls_, ElementsAre(2));
    EXPECT_FALSE(closed.Remove());
}

TEST_F(PollTest, InitialisingAgainForgetsEveryCallbackAndNotification) {
    Source forgotten;
    Source kept;
    forgotten.action = [this] { calls_.push_back(1); };
    kept.action = [this] {
        calls_.push_back(2);
        exit_ = true;
    };
    ASSERT_TRUE(forgotten.Register());
    Poll_NotifyChange(kClass);
    Poll_InitDefault();
    EXPECT_FALSE(forgotten.Remove());
    ASSERT_TRUE(kept.Register());
    forgotten.Write();
    kept.Write();
    Loop();
    EXPECT_THAT(calls_, ElementsAre(2));
}

/// Invariant: a flag that is set before a notification ends the loop, whenever the two come.
TEST_F(PollTest, ANotificationFromAnotherThreadEndsTheLoopWhoseFlagIsSet) {
    for (int i = 0; i < 200; ++i) {
        exit_ = false;
        bootweave::Thread thread([this] {
            std::atomic_ref<bool>(exit_).store(true, std::memory_order_release);
            Poll_NotifyChange(kClass);
        });
        Loop();
        thread.Join();
        EXPECT_TRUE(exit_);
    }
}

TEST_F(PollTest, ANotificationWithoutTheFlagDoesNotEndTheLoop) {
    Source source;
    source.action = [this] { exit_ = true; };
    ASSERT_TRUE(source.Register());
    bootweave::Thread thread([&source] {
        Poll_NotifyChange(kClass);
        Poll_NotifyChange(kClass);
        source.Write();
    });
    Loop();
    thread.Join();
    EXPECT_TRUE(exit_);
}

TEST_F(PollTest, AnIdleLoopSleepsInTheKernel) {
    const auto processor_time = [] {
        rusage usage{};
        ::getrusage(RUSAGE_THREAD, &usage);
        return std::chrono::seconds(usage.ru_utime.tv_sec + usage.ru_stime.tv_sec) +
               std::chrono::microseconds(usage.ru_utime.tv_usec + usage.ru_stime.tv_usec);
    };
    Poll_NotifyChange(kClass);  // one that is not taken up would keep the loop awake
    bootweave::Thread thread([this] {
        const timespec second{1, 0};
        ::clock_nanosleep(CLOCK_MONOTONIC, 0, &second, nullptr);
        std::atomic_ref<bool>(exit_).store(true, std::memory_order_release);
        Poll_NotifyChange(kClass);
    });
    const auto begin = processor_time();
    Loop();
    EXPECT_LT(processor_time() - begin, 500ms);
}

int OpenDescriptors() {
    int count = 0;
    for (int fd = 0; fd < 256; ++fd) {
        count += ::fcntl(fd, F_GETFD) == -1 ? 0 : 1;
    }
    return count;
}

/// Makes a loop in a child and uses it. \return 0 when it works
int UseLoopOfItsOwn() {
    const int inherited = OpenDescriptors();
    Poll_InitDefault();
    if (OpenDescriptors() != inherited + 1) {
        return 1;  // the old loop's descriptor is closed, or used together with the parent
    }
    Source source;
    bool exit = false;
    source.action = [&exit] { exit = true; };
    if (!source.Register()) {
        return 2;
    }
    source.Write();
    Poll_Loop(kClass, &exit, 0);
    return 0;
}

TEST_F(PollTest, AForkedChildMakesALoopOfItsOwn) {
    Source source;
    source.action = [this] { exit_ = true; };
    ASSERT_TRUE(source.Register());
    auto child = bootweave::ChildProcess::Fork(UseLoopOfItsOwn);
    ASSERT_TRUE(child.has_value());
    EXPECT_EQ(0, child->Wait());
    source.Write();  // and the parent's goes on
    Loop();
    EXPECT_TRUE(exit_);
}

TEST_F(PollTest, AForkedChildThatReusedTheOldLoopsNumberKeepsItsFile) {
    auto child = bootweave::ChildProcess::Fork([] {
        bootweave::CloseDescriptorsFrom(3);
        std::vector<UniqueFd> files(64);  // among them the number of the parent's wake-up descriptor
        for (UniqueFd& file : files) {
            file.Reset(::open("/dev/null", O_RDWR | O_CLOEXEC));
        }
        const int failure = UseLoopOfItsOwn();
        const bool all_kept = std::all_of(files.begin(), files.end(), [](const UniqueFd& file) {
            struct stat status {};
            return ::fstat(file.get(), &status) == 0 && status.st_rdev == ::makedev(1, 3);
        });
        return all_kept ? failure : 3;
    });
    ASSERT_TRUE(child.has_value());
    EXPECT_EQ(0, child->Wait());
}

/// What a child logs while it does something, without the time and the origin of each line.
std::vector<std::string> LogOf(const std::function<void()>& action) {
    const bootweave::TempDir dir;
    const std::string out = dir.WriteFile("out", "");
    auto child = bootweave::ChildProcess::Fork([&] {
        const UniqueFd file(::open(out.c_str(), O_WRONLY | O_CLOEXEC));
        ::dup2(file.get(), STDOUT_FILENO);
        Dictionary* dictionary = Dictionary_Create();
        Dict_SetString(dictionary, "log.stdoutLevel", "info");
        Log_AddOutput(Log_NewStdioOutput("test", dictionary, 0));
        action();
        return 0;
    });
    const std::string origin = "test[" + std::to_string(child->pid()) + "]: ";
    EXPECT_EQ(0, child->Wait());
    std::vector<std::string> lines;
    std::istringstream text(bootweave::ReadFile(out));
    for (std::string line; std::getline(text, line);) {
        const std::size_t start = line.find(origin);
        lines.push_back(start == std::string::npos ? line : line.substr(start + origin.size()));
    }
    return lines;
}

void AllowNoMoreDescriptors() {
    const rlimit none{.rlim_cur = 0, .rlim_max = 0};
    ::setrlimit(RLIMIT_NOFILE, &none);
}

TEST(PollFailureTest, ALoopThatCouldNotBeInitialisedEndsWithALine) {
    EXPECT_THAT(LogOf([] {
                    AllowNoMoreDescriptors();
                    Poll_InitDefault();
                    const bool exit = false;
                    Poll_Loop(kClass, &exit, 0);
                }),
                ElementsAre("Poll loop failed: not initialised"));
}

TEST(PollFailureTest, ALoopThatCannotSleepEndsWithALine) {
    EXPECT_THAT(LogOf([] {
                    Poll_InitDefault();
                    AllowNoMoreDescriptors();  // and poll refuses more than that
                    const bool exit = false;
                    Poll_Loop(kClass, &exit, 0);
                }),
                ElementsAre("Poll loop failed: Invalid argument"));
}

TEST(PollFailureTest, ADescriptorClosedUnderItsCallbackIsALine) {
    EXPECT_THAT(LogOf([] {
                    Poll_InitDefault();
                    bool exit = false;
                    Source closed;
                    Source open;
                    open.action = [&] { exit = true; };
                    ASSERT_TRUE(closed.Register() && open.Register());
                    ASSERT_EQ(77, ::dup2(closed.pipe.read_end.get(), 77));
                    ASSERT_TRUE(closed.Remove());
                    ASSERT_TRUE(Poll_Callback(kClass, kFlags, Source::Callback, &closed, kType, 77, nullptr));
                    ::close(77);
                    open.Write();
                    Poll_Loop(kClass, &exit, 0);
                }),
                ElementsAre("Poll loop: descriptor 77 is not open, its callback is removed"));
}

}  // namespace
