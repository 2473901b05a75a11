// SPDX-License-Identifier: Apache-2.0
#include "platform/linux/log_stream.h"

#include <atomic>
#include <chrono>
#include <csignal>
#include <string>
#include <thread>

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include "gmock/gmock.h"
#include "platform/linux/log_test_support.h"
#include "platform/log.h"
#include "tests/support/temp_dir.h"
#include "util/retry.h"

namespace bootweave {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;
using std::chrono::steady_clock;

class LogStreamTest : public LogFixture {
  protected:
    static void SetFlags(const UniqueFd& end, int flags) { ASSERT_EQ(0, ::fcntl(end.get(), F_SETFL, flags)); }

    /// Fills a pipe whose writing end does not block; returns how much went in.
    static std::size_t Fill(const Pipe& pipe) {
        const std::string block(4096, '-');
        std::size_t total = 0;
        ssize_t written = 0;
        while ((written = ::write(pipe.write_end.get(), block.data(), block.size())) > 0) {
            total += static_cast<std::size_t>(written);
        }
        return total;
    }

    static std::string ReadToEnd(const UniqueFd& end) {
        std::string all;
        char part[4096];
        ssize_t size = 0;
        while ((size = RetryOnEintr([&] { return ::read(end.get(), part, sizeof part); })) > 0) {
            all.append(part, static_cast<std::size_t>(size));
        }
        return all;
    }
};

TEST_F(LogStreamTest, ALineThatThePipeTakesInPartsArrivesWhole) {
    const std::string line(300'000, 'x');
    for (const int flags : {0, O_NONBLOCK}) {
        std::string received;
        for (int attempt = 0; attempt < 20 && received != line; ++attempt) {  // a reader may come too late
            ResetStreamsForTest();
            Pipe pipe = Pipe::Create();
            SetFlags(pipe.write_end, flags);
            std::thread reader([&] { received = ReadToEnd(pipe.read_end); });
            WriteLine(pipe.write_end.get(), line, ::getpid());
            pipe.write_end.Reset();
            reader.join();
        }
        EXPECT_TRUE(received == line) << received.size() << " bytes with flags " << flags;
    }
}

TEST_F(LogStreamTest, AFullStreamThatDoesNotBlockHoldsUpTheProcessTwoSecondsInAll) {
    const Pipe pipe = Pipe::Create();
    SetFlags(pipe.write_end, O_NONBLOCK);
    const std::size_t filled = Fill(pipe);
    const auto start = steady_clock::now();
    for (int count = 0; count < 50; ++count) {
        WriteLine(pipe.write_end.get(), "lost\n", ::getpid());
    }
    const auto elapsed = steady_clock::now() - start;
    EXPECT_GE(elapsed, milliseconds(1900)) << "it did not wait";
    EXPECT_LE(elapsed, seconds(5));

    std::string old(filled, ' ');
    std::size_t read = 0;
    while (read < filled) {
        const ssize_t size = ::read(pipe.read_end.get(), old.data() + read, filled - read);
        ASSERT_GT(size, 0);
        read += static_cast<std::size_t>(size);
    }
    WriteLine(pipe.write_end.get(), "again\n", ::getpid());
    char next[16] = {};
    EXPECT_EQ(6, ::read(pipe.read_end.get(), next, sizeof next));
    EXPECT_STREQ("again\n", next);
}

TEST_F(LogStreamTest, ASignalDoesNotTearALine) {
    struct sigaction action {};
    action.sa_handler = [](int) {};
    struct sigaction old {};
    ::sigaction(SIGUSR1, &action, &old);  // no SA_RESTART: a blocked write is interrupted
    Pipe pipe = Pipe::Create();
    SetFlags(pipe.write_end, O_NONBLOCK);
    const std::size_t filled = Fill(pipe);
    SetFlags(pipe.write_end, 0);
    std::atomic<pid_t> tid = 0;
    std::thread writer([&] {
        tid = ::gettid();
        WriteLine(pipe.write_end.get(), "the line\n", ::getpid());
        pipe.write_end.Reset();
    });
    while (tid == 0) {
        std::this_thread::yield();
    }
    for (int count = 0; count < 10; ++count) {
        WaitUntilSleeping(tid);
        ::pthread_kill(writer.native_handle(), SIGUSR1);
    }
    const std::string all = ReadToEnd(pipe.read_end);
    writer.join();
    ::sigaction(SIGUSR1, &old, nullptr);
    EXPECT_EQ("the line\n", all.substr(filled));
}

TEST_F(LogStreamTest, AReaderThatGoesAwayDoesNotEndTheProcess) {
    const int status = RunInChild([this] {
        ::signal(SIGPIPE, SIG_DFL);
        Pipe pipe = Pipe::Create();
        ::dup2(pipe.write_end.get(), STDOUT_FILENO);
        SetUpLog();
        pipe = Pipe();
        Log_Level(5, "to nobody");
        Log_Level(5, "to nobody");
        return 7;
    });
    ASSERT_TRUE(WIFEXITED(status)) << "signal " << WTERMSIG(status);
    EXPECT_EQ(7, WEXITSTATUS(status));
}

TEST_F(LogStreamTest, AFileThatHasReachedItsLimitDoesNotEndTheProcess) {
    const int status = RunInChild([this] {
        ::signal(SIGXFSZ, SIG_DFL);
        TempDir dir;
        const UniqueFd file(::open(dir.File("log").c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600));
        ::dup2(file.get(), STDOUT_FILENO);
        SetUpLog();
        const rlimit none{.rlim_cur = 0, .rlim_max = 0};
        ::setrlimit(RLIMIT_FSIZE, &none);
        Log_Level(5, "too much");
        return 7;
    });
    ASSERT_TRUE(WIFEXITED(status)) << "signal " << WTERMSIG(status);
    EXPECT_EQ(7, WEXITSTATUS(status));
}

TEST_F(LogStreamTest, HandlersOfTheProgramsOwnForFailedWritesAreKept) {
    for (const int number : {SIGPIPE, SIGXFSZ}) {
        const int status = RunInChild([number] {
            const auto handler = [](int) {};
            ::signal(number, handler);
            IgnoreWriteSignals();
            return ::signal(number, SIG_DFL) == +handler ? 0 : 1;
        });
        EXPECT_EQ(0, status);
    }
}

TEST_F(LogStreamTest, AClosedOrFullStreamIsNobodysBusiness) {
    WriteLine(-1, "x\n", ::getpid());
    const UniqueFd full(::open("/dev/full", O_WRONLY | O_CLOEXEC));
    WriteLine(full.get(), "x\n", ::getpid());
    const UniqueFd reading(::open("/dev/null", O_RDONLY | O_CLOEXEC));
    WriteLine(reading.get(), "x\n", ::getpid());
}

}  // namespace
}  // namespace bootweave
