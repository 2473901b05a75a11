// SPDX-License-Identifier: Apache-2.0
// Threads log while children are forked, which log too.

#include <atomic>
#include <map>
#include <random>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include "gmock/gmock.h"
#include "platform/linux/log_test_support.h"
#include "platform/log.h"

namespace bootweave {
namespace {

constexpr int kChildren = 20;
constexpr int kMessagesOfAChild = 4;

class LogForkTest : public LogFixture, public testing::WithParamInterface<int> {};

/// Message number `count`, every fourth of the length `longest`.
std::string Text(const std::string& who, int count, std::size_t longest = 3000) {
    const std::size_t length = count % 4 == 3 ? longest : static_cast<std::size_t>(count % 50);
    return who + " " + std::to_string(count) + " " + std::string(length, 'x') + " end";
}

/// Reads messages as they come, until told to stop.
class Reader {
  public:
    explicit Reader(LogDaemon& daemon) : thread_([this, &daemon] { Run(daemon); }) {}
    std::vector<std::string> Stop() {
        stop_ = true;
        thread_.join();
        return messages_;
    }

  private:
    void Run(LogDaemon& daemon) {
        bool last = false;
        while (!last) {
            last = stop_;  // one more look after the end, for what came before it
            pollfd watched{.fd = daemon.descriptor(), .events = POLLIN, .revents = 0};
            ::poll(&watched, 1, 10);
            for (std::string& message : daemon.Drain()) {
                messages_.push_back(std::move(message));
            }
        }
    }

    std::atomic<bool> stop_ = false;
    std::vector<std::string> messages_;
    std::thread thread_;
};

/// Messages that threads and children have logged, and how often.
using Counts = std::map<std::string, int>;

/// Threads that log as fast as they can.
class Hammer {
  public:
    explicit Hammer(int threads) : counts_(static_cast<std::size_t>(threads)) {
        for (std::size_t thread = 0; thread < counts_.size(); ++thread) {
            threads_.emplace_back([this, thread] {
                for (int& count = counts_[thread]; !stop_; ++count) {
                    Log_Level(5, "%s\n", Text(Name(thread), count).c_str());
                }
            });
        }
    }
    /// Ends the threads and adds what they logged.
    void Stop(Counts& expected, const std::string& origin) {
        stop_ = true;
        for (std::thread& thread : threads_) {
            thread.join();
        }
        for (std::size_t thread = 0; thread < counts_.size(); ++thread) {
            for (int count = 0; count < counts_[thread]; ++count) {
                ++expected[origin + Text(Name(thread), count)];
            }
        }
    }

  private:
    static std::string Name(std::size_t thread) { return "thread " + std::to_string(thread); }

    std::atomic<bool> stop_ = false;
    std::vector<int> counts_;
    std::vector<std::thread> threads_;
};

bool IsNotice(const std::string& message) {
    return message.find("Messages not sent") != std::string::npos;
}

/// The messages of a child. A long one needs memory of its own; the address sanitizer's allocator, unlike the
/// C library's, may be held by another thread at the fork, and never answers in the child then.
std::vector<std::string> TextsOfAChild() {
#ifdef __SANITIZE_ADDRESS__
    constexpr std::size_t kLongest = 900;
#else
    constexpr std::size_t kLongest = 3000;
#endif
    std::vector<std::string> texts;
    for (int count = 0; count < kMessagesOfAChild; ++count) {
        texts.push_back(Text("child", count, kLongest));
    }
    return texts;
}

/// Forks children that log, one of four after it closed everything it inherited; returns their wait statuses.
std::vector<int> ForkChildren(std::mt19937& random, Counts& expected) {
    const std::vector<std::string> texts = TextsOfAChild();
    std::vector<int> statuses;
    for (int index = 0; index < kChildren; ++index) {
        const bool close_all = random() % 4 == 0;
        pid_t child = -1;
        statuses.push_back(RunInChild(
            [close_all, &texts] {
                if (close_all) {
                    ::close_range(3, ~0U, 0);
                }
                for (const std::string& text : texts) {
                    Log_Level(5, "%s\n", text.c_str());
                }
                return 0;
            },
            &child));
        for (const std::string& text : texts) {
            ++expected["bootweave[" + std::to_string(child) + "]: " + text];
        }
    }
    return statuses;
}

// Invariant: whatever threads are doing inside the log when a child is forked, the child's messages go out
// whole, each on a line of its own, and nobody hangs. Copies for the system log may be dropped under load,
// but none is torn, foreign or doubled.
TEST_P(LogForkTest, ChildrenLogWhileThreadsAreInsideTheLog) {
    const unsigned seed = std::random_device()();
    SCOPED_TRACE("seed " + std::to_string(seed));
    std::mt19937 random(seed);
    LogDaemon daemon(socket_path());
    SetUpLog();
    Reader reader(daemon);
    const std::string path = dir_.WriteFile("stdout", "");
    Counts expected;
    std::vector<int> statuses;
    {
        const StdoutToFile redirected(path);
        Hammer hammer(GetParam());
        statuses = ForkChildren(random, expected);
        hammer.Stop(expected, Origin(::getpid()));
    }
    EXPECT_THAT(statuses, testing::Each(0));

    Counts lines;
    for (const std::string& line : LinesWithoutStamp(ReadFile(path))) {
        if (!IsNotice(line)) {
            ++lines[line];
        }
    }
    EXPECT_TRUE(lines == expected);

    Counts copies;
    for (const std::string& message : reader.Stop()) {
        if (!IsNotice(message)) {
            ++copies[message];
        }
    }
    EXPECT_FALSE(copies.empty());
    for (const auto& [message, count] : copies) {
        ASSERT_THAT(message, testing::AllOf(testing::StartsWith("<29>"), testing::EndsWith(" end\n")));
        ASSERT_EQ(1, count) << message;
        ASSERT_EQ(1U, expected.count(message.substr(4, message.size() - 5))) << message;
    }
}

INSTANTIATE_TEST_SUITE_P(Threads, LogForkTest, testing::Values(1, 2, 3, 8, 32),
                         testing::PrintToStringParamName());

}  // namespace
}  // namespace bootweave
