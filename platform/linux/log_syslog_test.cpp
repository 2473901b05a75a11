// SPDX-License-Identifier: Apache-2.0
#include "platform/linux/log_syslog.h"

#include <atomic>
#include <chrono>
#include <optional>
#include <regex>
#include <string>
#include <thread>
#include <vector>

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

#include "gmock/gmock.h"
#include "platform/linux/log_test_support.h"
#include "platform/log.h"
#include "util/retry.h"

namespace bootweave {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;
using std::chrono::steady_clock;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

class LogSyslogTest : public LogFixture {
  protected:
    /// What the log says on standard output about copies that were dropped.
    [[nodiscard]] static std::string Dropped(int count) {
        return "Messages not sent to the system log, its daemon reads too slowly: " + std::to_string(count);
    }

    std::string head_ = "<28>" + Origin(::getpid());
};

/// How long a full run of messages that all wait may take: what the process has for it, and as much again for
/// a machine under load. Without the bound each of fifty messages would wait its own 200 ms.
constexpr seconds kGenerousLimit{5};
constexpr int kMessages = 50;
constexpr int kAttempts = 20;

TEST_F(LogSyslogTest, AMessageHasPriorityLocalTimeNameAndProcess) {
    LogDaemon daemon(socket_path());
    SetSyslogTimeZone();  // the C library remembers the zone it saw first
    ASSERT_EQ(0, ::setenv("TZ", "UTC-5:30", 1));
    SetSyslogTimeZone();
    const auto time = std::chrono::sys_days(std::chrono::year(2026) / 11 / 5) + std::chrono::hours(20);
    EXPECT_EQ(0, SendToSyslog(
                     {.severity = 5, .identifier = "name", .pid = ::getpid(), .time = time, .text = "text"}));
    ASSERT_EQ(0, ::unsetenv("TZ"));
    SetSyslogTimeZone();
    EXPECT_EQ("<29>Nov  6 01:30:00 name[" + std::to_string(::getpid()) + "]: text", daemon.ReceiveRaw());
}

TEST_F(LogSyslogTest, ADaemonThatComesLateGetsTheNextMessage) {
    Log_Syslog(4, "lost");
    LogDaemon daemon(socket_path());
    Log_Syslog(4, "kept");
    EXPECT_THAT(daemon.Drain(), ElementsAre(head_ + "kept"));
}

TEST_F(LogSyslogTest, ADaemonThatWasStartedAnewGetsTheVeryNextMessage) {
    {
        LogDaemon first(socket_path());
        Log_Syslog(4, "one");
        EXPECT_EQ(head_ + "one", first.Receive());
    }
    Log_Syslog(4, "lost");
    LogDaemon second(socket_path());
    Log_Syslog(4, "two");
    EXPECT_THAT(second.Drain(), ElementsAre(head_ + "two"));
}

TEST_F(LogSyslogTest, AMessageTooLargeForADatagramIsCut) {
    LogDaemon daemon(socket_path());
    std::string text;
    while (text.size() < 1'000'000) {
        text += "\xE2\x82\xAC";
    }
    Log_Syslog(4, "%s", text.c_str());
    const std::string message = daemon.ReceiveRaw();
    EXPECT_LE(message.size(), 8192U);
    EXPECT_GE(message.size(), 8190U);
    EXPECT_TRUE(
        std::regex_match(message, std::regex("<28>[^:]+:..:.. bootweave[^:]+: (\xE2\x82\xAC)+[.]{3}")));
}

TEST_F(LogSyslogTest, ASlowDaemonIsWaitedFor) {
    LogDaemon daemon(socket_path());
    std::vector<std::string> messages;
    // On a busy machine this thread may come too late for the 200 ms; a log that does not wait never gets
    // through.
    for (int attempt = 0; attempt < kAttempts && messages.empty(); ++attempt) {
        ResetSyslogForTest();
        daemon.Fill();
        std::atomic<pid_t> tid = 0;
        std::thread logger([&] {
            tid = ::gettid();
            Log_Syslog(4, "patient");
        });
        while (tid == 0) {
            std::this_thread::yield();
        }
        WaitUntilSleeping(tid);
        messages = daemon.Drain();
        logger.join();
        for (const std::string& message : daemon.Drain()) {
            messages.push_back(message);
        }
    }
    EXPECT_THAT(messages, ElementsAre(head_ + "patient"));
}

TEST_F(LogSyslogTest, WaitingIsBoundedInAllAndTheLossIsToldWhenTheDaemonReadsAgain) {
    LogDaemon daemon(socket_path());
    daemon.Fill();
    const auto start = steady_clock::now();
    for (int count = 0; count < kMessages; ++count) {
        Log_Syslog(4, "lost");
    }
    const auto elapsed = steady_clock::now() - start;
    EXPECT_GE(elapsed, milliseconds(1900)) << "it did not wait";
    EXPECT_LE(elapsed, kGenerousLimit);
    EXPECT_THAT(daemon.Drain(), IsEmpty());

    Log_Syslog(4, "again");
    Log_Syslog(4, "and on");
    EXPECT_THAT(daemon.Drain(), ElementsAre(head_ + Dropped(kMessages), head_ + "again", head_ + "and on"));

    // Nothing is left of the process's two seconds: the next slow phase costs no time worth speaking of.
    daemon.Fill();
    const auto second = steady_clock::now();
    for (int count = 0; count < kMessages; ++count) {
        Log_Syslog(4, "lost");
    }
    EXPECT_LE(steady_clock::now() - second, milliseconds(1900));
    daemon.Drain();
    Log_Syslog(5, "third");
    EXPECT_THAT(daemon.Drain(),
                ElementsAre(head_ + Dropped(kMessages), "<29>" + Origin(::getpid()) + "third"));
}

TEST_F(LogSyslogTest, TheBoundHoldsForAllThreadsTogether) {
    LogDaemon daemon(socket_path());
    daemon.Fill();
    const auto start = steady_clock::now();
    {
        std::vector<std::jthread> threads;
        for (int thread = 0; thread < 8; ++thread) {
            threads.emplace_back([] {
                for (int count = 0; count < kMessages; ++count) {
                    Log_Syslog(4, "lost");
                }
            });
        }
    }
    EXPECT_LE(steady_clock::now() - start, kGenerousLimit);
    daemon.Drain();
    Log_Syslog(4, "again");
    EXPECT_THAT(daemon.Drain(), ElementsAre(head_ + Dropped(8 * kMessages), head_ + "again"));
}

TEST_F(LogSyslogTest, TheOutputIsToldOfTheLossToo) {
    LogDaemon daemon(socket_path());
    SetUpLog();
    daemon.Fill();
    const std::string path = dir_.WriteFile("stdout", "");
    {
        const StdoutToFile redirected(path);
        Log_Level(5, "one");
        daemon.Drain();
        Log_Level(5, "two");
    }
    const std::string origin = Origin(::getpid());
    EXPECT_THAT(LinesWithoutStamp(ReadFile(path)),
                ElementsAre(origin + "one", origin + "two", origin + Dropped(1)));
}

TEST_F(LogSyslogTest, AMessageIsNotCountedWhenThereIsNoDaemonAtAll) {
    Log_Syslog(4, "lost");
    { const LogDaemon died(socket_path()); }
    Log_Syslog(4, "lost");
    LogDaemon daemon(socket_path());
    Log_Syslog(4, "kept");
    EXPECT_THAT(daemon.Drain(), ElementsAre(head_ + "kept"));
}

TEST_F(LogSyslogTest, AChildHasItsOwnPatienceAndTellsOnlyItsOwnLoss) {
    LogDaemon daemon(socket_path());
    daemon.Fill();
    for (int count = 0; count < kMessages; ++count) {
        Log_Syslog(4, "lost");
    }
    pid_t child = -1;
    const int status = RunInChild(
        [] {
            const auto start = steady_clock::now();
            Log_Syslog(4, "lost");
            return steady_clock::now() - start >= milliseconds(190) ? 0 : 1;
        },
        &child);
    EXPECT_EQ(0, status) << "the child did not wait";
    daemon.Drain();
    EXPECT_EQ(0, RunInChild(
                     [] {
                         Log_Syslog(4, "child");
                         return 0;
                     },
                     &child));
    EXPECT_THAT(daemon.Drain(), ElementsAre("<28>" + Origin(child) + "child"));
    Log_Syslog(4, "parent");
    EXPECT_THAT(daemon.Drain(), ElementsAre(head_ + Dropped(kMessages), head_ + "parent"));
}

TEST_F(LogSyslogTest, AChildThatClosedEverythingStillReachesTheSystemLog) {
    LogDaemon daemon(socket_path());
    SetUpLog();
    Log_Syslog(4, "parent");
    pid_t child = -1;
    const int status = RunInChild(
        [] {
            ::close_range(0, ~0U, 0);
            Warning("exec failed");
            Warning("still here");
            // The standard numbers stay free for what belongs there.
            return ::fcntl(0, F_GETFD) == -1 && ::fcntl(1, F_GETFD) == -1 && ::fcntl(2, F_GETFD) == -1 ? 0
                                                                                                       : 1;
        },
        &child);
    EXPECT_EQ(0, status);
    const std::string head = "<28>" + Origin(child);
    EXPECT_THAT(daemon.Drain(), ElementsAre(head_ + "parent", head + "exec failed", head + "still here"));
}

TEST_F(LogSyslogTest, ANumberThatIsSomebodyElsesByNowIsLeftAlone) {
    LogDaemon daemon(socket_path());
    const std::string file = dir_.WriteFile("file", "");
    pid_t child = -1;
    const int status = RunInChild(
        [&] {
            const int first_free = ::open("/dev/null", O_RDONLY | O_CLOEXEC);
            ::close(first_free);
            Log_Syslog(4, "one");  // the socket has this number now
            ::close_range(static_cast<unsigned>(first_free), ~0U, 0);
            int pair[2];
            if (::socketpair(AF_UNIX, SOCK_STREAM, 0, pair) != 0 || pair[0] != first_free) {
                return 1;
            }
            Log_Syslog(4, "two");
            char byte = 0;
            if (::recv(pair[1], &byte, 1, MSG_DONTWAIT) != -1 || ::send(pair[0], "x", 1, 0) != 1) {
                return 2;
            }
            ::close_range(static_cast<unsigned>(first_free), ~0U, 0);
            Log_Syslog(4, "three");  // on a socket that has the first number again
            ::close(first_free);
            if (::open(file.c_str(), O_WRONLY) != first_free) {
                return 3;
            }
            Log_Syslog(4, "four");
            return ::write(first_free, "mine", 4) == 4 ? 0 : 4;
        },
        &child);
    EXPECT_EQ(0, status);
    const std::string head = "<28>" + Origin(child);
    EXPECT_THAT(daemon.Drain(), ElementsAre(head + "one", head + "two", head + "three", head + "four"));
    EXPECT_EQ("mine", ReadFile(file));
}

TEST_F(LogSyslogTest, OneSocketServesAllMessagesAndEndsWithExec) {
    LogDaemon daemon(socket_path());
    const int status = RunInChild([&] {
        const int before = ::open("/dev/null", O_RDONLY | O_CLOEXEC);
        for (int count = 0; count < 8; ++count) {
            Log_Syslog(4, "x");
        }
        const int after = ::open("/dev/null", O_RDONLY | O_CLOEXEC);
        return after == before + 2 && ::fcntl(before + 1, F_GETFD) == FD_CLOEXEC ? 0 : 1;
    });
    EXPECT_EQ(0, status);
    EXPECT_THAT(daemon.Drain(), SizeIs(8));
}

TEST_F(LogSyslogTest, WithoutADescriptorToSpareTheMessageIsLostAndNothingElse) {
    LogDaemon daemon(socket_path());
    const int status = RunInChild([&] {
        const rlimit none{.rlim_cur = 0, .rlim_max = 0};
        ::setrlimit(RLIMIT_NOFILE, &none);
        Log_Syslog(4, "lost");
        return 0;
    });
    EXPECT_EQ(0, status);
    EXPECT_THAT(daemon.Drain(), IsEmpty());
}

/// Takes one connection and reads it to its end.
std::string AcceptAndRead(const LogDaemon& daemon) {
    const UniqueFd connection(RetryOnEintr([&] { return ::accept(daemon.descriptor(), nullptr, nullptr); }));
    std::string all;
    char part[65536];
    ssize_t size = 0;
    while ((size = RetryOnEintr([&] { return ::read(connection.get(), part, sizeof part); })) > 0) {
        all.append(part, static_cast<std::size_t>(size));
    }
    return WithoutSyslogStamp(all);
}

TEST_F(LogSyslogTest, ADaemonOnAStreamSocketGetsAMessageEndedByNull) {
    LogDaemon daemon(socket_path(), SOCK_STREAM);
    Log_Syslog(4, "streamed\n");
    EXPECT_EQ(head_ + "streamed\n" + '\0', AcceptAndRead(daemon));
    Log_Syslog(4, "again");
    EXPECT_EQ(head_ + "again" + '\0', AcceptAndRead(daemon));
}

TEST_F(LogSyslogTest, ADaemonOnAStreamSocketGetsALongMessageWhole) {
    LogDaemon daemon(socket_path(), SOCK_STREAM);
    const std::string text(100'000, 'x');
    Log_Syslog(4, "%s", text.c_str());
    EXPECT_EQ(head_ + text + '\0', AcceptAndRead(daemon));
}

TEST_F(LogSyslogTest, AStreamDaemonThatDoesNotAcceptIsWaitedForWithinTheSameBounds) {
    LogDaemon daemon(socket_path(), SOCK_STREAM);
    Log_Syslog(4, "queued");  // the one connection that listen() leaves waiting
    const auto start = steady_clock::now();
    for (int count = 0; count < kMessages; ++count) {
        Log_Syslog(4, "lost");
    }
    const auto elapsed = steady_clock::now() - start;
    EXPECT_GE(elapsed, milliseconds(1900)) << "it did not wait";
    EXPECT_LE(elapsed, kGenerousLimit);
    EXPECT_EQ(head_ + "queued" + '\0', AcceptAndRead(daemon));
    Log_Syslog(4, "again");  // behind the line about the loss there is no room for it yet
    EXPECT_EQ(head_ + Dropped(kMessages) + '\0', AcceptAndRead(daemon));
}

}  // namespace
}  // namespace bootweave
