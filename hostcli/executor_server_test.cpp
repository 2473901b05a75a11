// SPDX-License-Identifier: Apache-2.0
#include "hostcli/executor_server.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include "gmock/gmock.h"
#include "hostcli/control_socket.h"
#include "hostcli/executor_client.h"
#include "tests/support/executor_sandbox.h"
#include "tests/support/fake_platform.h"
#include "tests/support/system_calls.h"
#include "util/error_text.h"
#include "util/exception.h"
#include "util/process_lock.h"
#include "util/scope_guard.h"

// A child that was forked while other threads ran starts a thread here. The address sanitizer's allocator may
// stay locked in it, unlike the C library's; the thread sanitizer does not support it.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#define SKIP_FORK_FROM_THREADS_WHEN_SANITIZED() GTEST_SKIP() << "sanitizers do not survive such a fork"
#else
#define SKIP_FORK_FROM_THREADS_WHEN_SANITIZED() static_cast<void>(0)
#endif

namespace bootweave {
namespace {

using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::HasSubstr;
using testing::IsEmpty;

const LogMessage kResetRequested{5, "Setting up Executor - Reset Requested\n"};
constexpr const char* kPolling = "5 Executor Reset - polling for commands\n";
constexpr const char* kStopped = "5 Bootweave executor signalled to stop\n";
constexpr const char* kNotSent = "Failed sending command to executor: Broken pipe";
constexpr const char* kNoStatus = "Failed to recieve command status from Executor: Connection reset by peer";

/// What a command fails with when the executor closes the connection before it has read it all: the client
/// may not even have sent it yet.
const testing::Matcher<std::string> kClosedUnread = testing::AnyOf(kNoStatus, kNotSent);

std::string StatusField(pid_t process, const std::string& field) {
    std::ifstream file("/proc/" + std::to_string(process) + "/status");
    for (std::string line; std::getline(file, line);) {
        if (line.starts_with(field + ":\t")) {
            return line.substr(field.size() + 2);
        }
    }
    return "no " + field;
}

std::string LinkTarget(const std::filesystem::path& link) {
    std::error_code gone;
    return std::filesystem::read_symlink(link, gone).string();
}

/// What the descriptors of a process stand for, by number.
std::vector<std::string> Descriptors(const std::string& process) {
    std::vector<std::string> targets;
    for (const auto& entry : std::filesystem::directory_iterator("/proc/" + process + "/fd")) {
        const auto number = static_cast<std::size_t>(std::stoi(entry.path().filename().string()));
        targets.resize(std::max(targets.size(), number + 1));
        targets[number] = LinkTarget(entry.path());
    }
    return targets;
}

class ExecutorServerTest : public testing::Test {
  protected:
    void SetUp() override { FakePlatform::Reset(); }

    /// Waits until the executor's event loop has its descriptor, which may be after it says that it is there.
    static bool WaitForEventLoop() {
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
        bool ready = false;
        while (!ready && std::chrono::steady_clock::now() < deadline) {
            const std::vector<std::string> open = Descriptors(std::to_string(Executor()));
            ready = std::find(open.begin(), open.end(), "anon_inode:[eventfd]") != open.end();
            std::this_thread::yield();
        }
        return ready;
    }

    /// Starts the executor and waits until it says that it is there.
    void Start() {
        {
            const ProcessLockGuard lock;
            client_.Reset();
        }
        ASSERT_TRUE(sandbox_.WaitForLog(kPolling)) << sandbox_.Log();
        ASSERT_EQ(1U, ExecutorSandbox::Executors().size());
    }
    [[nodiscard]] static pid_t Executor() { return ExecutorSandbox::Executors().at(0); }

    /// What the executor logged behind its first line.
    [[nodiscard]] std::string Log() const {
        const std::string log = sandbox_.Log();
        EXPECT_TRUE(log.starts_with(kPolling)) << log;
        return log.substr(std::min(log.size(), std::strlen(kPolling)));
    }

    std::string FailureOfCommand(const std::string& command) {
        try {
            client_.RunCommand(command);
        } catch (const Exception& error) {
            return error.what();
        }
        return "none";
    }
    std::string FailureOfReset() {
        try {
            client_.Reset();
        } catch (const Exception& error) {
            return error.what();
        }
        return "none";
    }

    /// Sends bytes on a connection of their own and reads to the end of the stream.
    std::string Exchange(const std::string& request) {
        const UniqueFd connection = client_.Connect(true);
        EXPECT_TRUE(SendAll(connection, request.data(), request.size()));
        ::shutdown(connection.get(), SHUT_WR);
        std::string reply;
        std::array<char, 64> buffer;
        ssize_t count = 0;
        while ((count = ::read(connection.get(), buffer.data(), buffer.size())) > 0) {
            reply.append(buffer.data(), static_cast<std::size_t>(count));
        }
        return reply;
    }
    static std::string Bytes(std::int32_t status) {
        std::string bytes(sizeof status, '\0');
        std::memcpy(bytes.data(), &status, sizeof status);
        return bytes;
    }

    ExecutorSandbox sandbox_;
    HostcliExecutor client_;
    const TempDir results_;
};

// Commands.

TEST_F(ExecutorServerTest, CommandsRunInAProcessOfItsOwn) {
    sandbox_.AddCommand("say.hello", "echo hello from $PPID");
    Start();
    EXPECT_EQ("none", FailureOfCommand("say hello"));
    EXPECT_EQ("hello from " + std::to_string(Executor()) + "\n", Log());
    EXPECT_THAT(FakePlatform::log(), ElementsAre(kResetRequested));
}

TEST_F(ExecutorServerTest, ACommandThatFailsIsLoggedThereAndIsAStatusHere) {
    sandbox_.AddCommand("a.b", "echo boom >&2; exit 1");
    Start();
    EXPECT_EQ("Executor failed executing hostcli command: a b --x=%s", FailureOfCommand("a b --x=%s"));
    EXPECT_EQ(
        "2 execution of 'a b --x=%s' failed : boom\n"
        "2 Executor failed to execute command: a b --x=%s\n",
        Log());
    EXPECT_THAT(FakePlatform::log(), ElementsAre(kResetRequested));
}

TEST_F(ExecutorServerTest, ACommandThatDoesNotParseIsLoggedThereAndIsAStatusHere) {
    Start();
    EXPECT_EQ("Executor failed executing hostcli command: a/b", FailureOfCommand("a/b"));
    EXPECT_EQ(
        "2 Executor was unable to parse command: invalid command word 'a/b'\n"
        "2 Executor failed to parse command a/b\n",
        Log());
}

TEST_F(ExecutorServerTest, AnEmptyCommandFailsLikeAnyOther) {
    Start();
    EXPECT_EQ("Executor failed executing hostcli command: ", FailureOfCommand(""));
    EXPECT_EQ(
        "2 Executor was unable to parse command: empty command\n"
        "2 Executor failed to parse command \n",
        Log());
}

TEST_F(ExecutorServerTest, TheAnswerIsFourBytesAndTheEnd) {
    sandbox_.AddCommand("good", "exit 0");
    sandbox_.AddCommand("bad", "exit 7");
    Start();
    EXPECT_EQ(Bytes(0), Exchange("good"));
    EXPECT_EQ(Bytes(1), Exchange("bad"));
    EXPECT_EQ(Bytes(1), Exchange("none"));
    EXPECT_EQ(Bytes(1), Exchange(""));
    EXPECT_EQ(Bytes(1), Exchange("a/b"));
}

TEST_F(ExecutorServerTest, ARequestEndsAtItsFirstNul) {
    sandbox_.AddCommand("good", "exit 0");
    Start();
    EXPECT_EQ(Bytes(0), Exchange(std::string("good\0 /", 7)));
    EXPECT_EQ(Bytes(1), Exchange(std::string("\0good", 5)));
}

TEST_F(ExecutorServerTest, WhatExceeds1023BytesIsLost) {
    sandbox_.AddCommand("log", "printf %s \"$1\" >> " + results_.File("words"));
    Start();
    const std::string start = "log --text=";
    const std::string longest = start + std::string(1023 - start.size(), 'x');
    const std::string expected = longest.substr(4);
    EXPECT_EQ("none", FailureOfCommand(longest));
    EXPECT_EQ(expected, ReadFile(results_.File("words")));
    EXPECT_EQ("none", FailureOfCommand(longest + "y"));
    EXPECT_EQ(expected + expected, ReadFile(results_.File("words")));
    EXPECT_EQ("none", FailureOfCommand(longest + std::string(5000, 'y')));
    EXPECT_EQ(expected + expected + expected, ReadFile(results_.File("words")));
}

TEST_F(ExecutorServerTest, OneCommandRunsAtATime) {
    sandbox_.AddCommand("mark", "echo in; echo out");
    Start();
    std::vector<std::thread> threads;
    std::atomic<int> failures = 0;
    constexpr int kThreads = 24;  // more than the backlog
    for (int i = 0; i < kThreads; ++i) {
        threads.emplace_back([&] { failures += FailureOfCommand("mark") == "none" ? 0 : 1; });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(0, failures);
    std::string expected;
    for (int i = 0; i < kThreads; ++i) {
        expected += "in\nout\n";
    }
    EXPECT_EQ(expected, Log());
}

TEST_F(ExecutorServerTest, TheDispatcherIsMadeForTheFirstCommandThatParses) {
    std::filesystem::remove_all(sandbox_.dir().File("hostcli"));
    Start();
    EXPECT_EQ(Bytes(1), Exchange(""));
    EXPECT_EQ(Bytes(1), Exchange("a b"));
    EXPECT_EQ(Bytes(1), Exchange("a b"));
    const std::string missing =
        "2 unable to add external directory to the hostcli dispatcher: No such file or directory\n";
    const std::string unknown =
        "2 execution of 'a b' failed : unknown command: a b\n"
        "2 Executor failed to execute command: a b\n";
    EXPECT_EQ(
        "2 Executor was unable to parse command: empty command\n"
        "2 Executor failed to parse command \n" +
            missing + missing + missing + missing + unknown + unknown,
        Log());
}

// The process.

TEST_F(ExecutorServerTest, ItHoldsNothingOfItsParent) {
    // Deliberately not close-on-exec, as a descriptor that somebody passed on would be.
    std::array<int, 2> ends{};
    ASSERT_EQ(0, ::pipe(ends.data()));
    const UniqueFd read_end(ends[0]);
    const UniqueFd write_end(ends[1]);
    Start();
    EXPECT_EQ(Bytes(1), Exchange(""));
    const std::vector<std::string> own = Descriptors("self");
    const std::set<std::string> parents(own.begin() + 3, own.end());
    const std::string log = sandbox_.dir().File("executor.log");
    const std::vector<std::string> executors = Descriptors(std::to_string(Executor()));
    EXPECT_THAT(executors, ElementsAre("/dev/null", log, log, testing::StartsWith("socket:"), "/dev/null",
                                       "anon_inode:[eventfd]"));
    EXPECT_FALSE(parents.contains(executors[3])) << executors[3];
}

TEST_F(ExecutorServerTest, ItIsADaemonInTheRootDirectory) {
    Start();
    const std::string process = std::to_string(Executor());
    EXPECT_EQ("/", LinkTarget("/proc/" + process + "/cwd"));
    EXPECT_EQ(Executor(), ::getsid(Executor()));
    EXPECT_EQ(1, SystemCalls::Seen().daemon_arguments);  // to the root directory, streams kept
}

TEST_F(ExecutorServerTest, TheSocketBelongsToItsUserAloneFromTheFirstInstant) {
    for (const mode_t mask : {mode_t{0}, mode_t{022}, mode_t{077}}) {
        const mode_t before = ::umask(mask);
        const ScopeGuard restore([&] { ::umask(before); });
        // Without listen, the mode is the one that bind made.
        SystemCalls::Fail(SystemCall::kListen, {.error = EADDRINUSE, .in_child = true});
        EXPECT_EQ("Bootweave executor failed to start", FailureOfReset());
        struct stat status {};
        ASSERT_EQ(0, ::stat(sandbox_.socket_path().c_str(), &status));
        EXPECT_EQ(static_cast<mode_t>(S_IFSOCK | 0600), status.st_mode);
        std::filesystem::remove(sandbox_.socket_path());
        SystemCalls::Fail(SystemCall::kListen, {.error = 0, .times = 0});
    }
}

TEST_F(ExecutorServerTest, ItKeepsTheUmaskOfItsParent) {
    const mode_t before = ::umask(027);
    const ScopeGuard restore([&] { ::umask(before); });
    Start();
    EXPECT_EQ("0027", StatusField(Executor(), "Umask"));
    EXPECT_EQ("0027", StatusField(::getpid(), "Umask"));
    struct stat status {};
    ASSERT_EQ(0, ::stat(sandbox_.socket_path().c_str(), &status));
    EXPECT_EQ(static_cast<mode_t>(S_IFSOCK | 0600), status.st_mode);
}

TEST_F(ExecutorServerTest, TheSocketIsMadeAsClientsExpectIt) {
    Start();
    const SeenCalls seen = SystemCalls::Seen();
    EXPECT_EQ(SOCK_STREAM | SOCK_CLOEXEC, seen.socket_type);
    EXPECT_EQ(static_cast<std::int64_t>(sizeof(sockaddr_un)), seen.address_length);
    EXPECT_EQ(16, seen.listen_backlog);
}

TEST_F(ExecutorServerTest, ItsLogIsAppendedTo) {
    sandbox_.dir().WriteFile("executor.log", kPolling);
    client_.Reset();
    ASSERT_TRUE(sandbox_.WaitForLog(std::string(kPolling) + kPolling));
    struct stat status {};
    ASSERT_EQ(0, ::stat(sandbox_.dir().File("executor.log").c_str(), &status));
    EXPECT_EQ(static_cast<mode_t>(S_IFREG | 0644), status.st_mode);
}

TEST_F(ExecutorServerTest, WithoutItsLogItServesAllTheSame) {
    sandbox_.AddCommand("good", "exit 0");
    std::filesystem::create_directory(sandbox_.dir().File("executor.log"));
    testing::internal::CaptureStderr();
    const std::string failure = FailureOfReset() + ", " + FailureOfCommand("good");
    client_.Stop();
    EXPECT_EQ("exited with status 0", ExecutorSandbox::WaitForEnd());
    EXPECT_THAT(testing::internal::GetCapturedStderr(),
                testing::StartsWith("3 Failed opening log file /var/log/bootweave-hostcli-stdout.log\n"));
    EXPECT_EQ("none, none", failure);
}

TEST_F(ExecutorServerTest, LocksOfOtherThreadsDoNotHoldItUp) {
    SKIP_FORK_FROM_THREADS_WHEN_SANITIZED();
    sandbox_.AddCommand("good", "exit 0");
    std::atomic<bool> held = false;
    std::atomic<bool> done = false;
    std::thread holder([&] {
        ::flockfile(stdout);
        ::flockfile(stderr);
        held = true;
        held.notify_one();
        done.wait(false);
        ::funlockfile(stderr);
        ::funlockfile(stdout);
    });
    held.wait(false);
    std::string failure;
    {
        const ProcessLockGuard lock;  // held by this thread; the event loop is another one
        failure = FailureOfReset() + ", " + FailureOfCommand("good") + ", " + FailureOfCommand("a/b");
    }
    done = true;
    done.notify_one();
    holder.join();
    EXPECT_EQ("none, none, Executor failed executing hostcli command: a/b", failure) << sandbox_.Log();
}

// Its end.

TEST_F(ExecutorServerTest, AStopRequestEndsItAndLeavesTheSocketFile) {
    Start();
    client_.Stop();
    EXPECT_EQ("exited with status 0", ExecutorSandbox::WaitForEnd());
    EXPECT_EQ(kStopped, Log());
    EXPECT_THAT(FakePlatform::log(),
                ElementsAre(kResetRequested, LogMessage{5, "Executor has been Successfully Stopped\n"}));
    EXPECT_TRUE(std::filesystem::is_socket(sandbox_.socket_path()));
}

TEST_F(ExecutorServerTest, ACommandThatStartsWithStopStopsIt) {
    for (const std::string command : {"STOPxyz", "stop", "sToPwatch show"}) {
        Start();
        EXPECT_EQ(kNoStatus, FailureOfCommand(command));
        EXPECT_EQ("exited with status 0", ExecutorSandbox::WaitForEnd()) << command;
        EXPECT_EQ(kStopped, Log());
        std::filesystem::remove(sandbox_.socket_path());
        std::filesystem::remove(sandbox_.dir().File("executor.log"));
    }
}

TEST_F(ExecutorServerTest, AStopRequestLongerThanItReadsStopsItToo) {
    Start();
    EXPECT_EQ(kNoStatus, FailureOfCommand("stop" + std::string(3000, 'x')));
    EXPECT_EQ("exited with status 0", ExecutorSandbox::WaitForEnd());
}

TEST_F(ExecutorServerTest, WhoeverSeesTheEndOfAStopNeverReachesTheDyingExecutor) {
    SystemCalls::HoldDyingExecutor();
    SystemCalls::DelayShutdown(
        50'000);  // were the connection closed first, the next connect would get through
    Start();
    FakePlatform::Reset();
    client_.Stop();
    EXPECT_FALSE(client_.Connect(true).valid());
    EXPECT_EQ(ECONNREFUSED, errno);
    EXPECT_THAT(FakePlatform::log(),
                ElementsAre(LogMessage{5, "Executor has been Successfully Stopped\n"},
                            LogMessage{2, "Failed connecting to executor Connection refused\n"}));
}

TEST_F(ExecutorServerTest, AnotherOneMayBeStartedBehindAStop) {
    sandbox_.AddCommand("good", "exit 0");
    for (int round = 0; round < 10; ++round) {
        FakePlatform::Reset();
        client_.Reset();
        EXPECT_EQ("none", FailureOfCommand("good"));
        client_.Stop();
        std::filesystem::remove(sandbox_.socket_path());
        EXPECT_THAT(FakePlatform::log(),
                    ElementsAre(kResetRequested, LogMessage{5, "Executor has been Successfully Stopped\n"}));
    }
}

// Starting on demand.

TEST_F(ExecutorServerTest, ACommandStartsAnExecutorWhenNoneIsThere) {
    sandbox_.AddCommand("good", "exit 0");
    EXPECT_EQ("none", FailureOfCommand("good"));
    EXPECT_EQ(1U, ExecutorSandbox::Executors().size());
    EXPECT_THAT(FakePlatform::log(),
                ElementsAre(LogMessage{2, "Failed connecting to executor No such file or directory\n"},
                            kResetRequested));
}

TEST_F(ExecutorServerTest, ThreadsThatAllFailToConnectStartOneExecutor) {
    SKIP_FORK_FROM_THREADS_WHEN_SANITIZED();
    sandbox_.AddCommand("good", "exit 0");
    for (int round = 0; round < 5; ++round) {
        FakePlatform::Reset();
        std::vector<std::thread> threads;
        std::atomic<int> failures = 0;
        for (int i = 0; i < 8; ++i) {
            threads.emplace_back([&] { failures += FailureOfCommand("good") == "none" ? 0 : 1; });
        }
        for (std::thread& thread : threads) {
            thread.join();
        }
        EXPECT_EQ(0, failures) << sandbox_.Log();
        EXPECT_EQ(1U, ExecutorSandbox::Executors().size());
        EXPECT_THAT(FakePlatform::log(), testing::Contains(kResetRequested).Times(1));
        ExecutorSandbox::KillExecutors();
        std::filesystem::remove(sandbox_.socket_path());
    }
    EXPECT_EQ(5, SystemCalls::Seen().forks);
    EXPECT_EQ(5, SystemCalls::Seen().forks_under_lock);
}

TEST_F(ExecutorServerTest, ASecondResetFindsTheFirstOnesExecutor) {
    Start();
    client_.Reset();
    EXPECT_EQ(1U, ExecutorSandbox::Executors().size());
    EXPECT_THAT(FakePlatform::log(), ElementsAre(kResetRequested));
}

TEST_F(ExecutorServerTest, ASocketFileLeftBehindMakesEveryStartFail) {
    Start();
    ExecutorSandbox::KillExecutors();
    std::filesystem::remove(sandbox_.dir().File("executor.log"));
    FakePlatform::Reset();
    EXPECT_EQ("Could not connect to Executor:Connection refused", FailureOfCommand("a b"));
    std::vector<LogMessage> expected;
    std::string executors;
    for (int attempt = 0; attempt < 10; ++attempt) {
        expected.insert(
            expected.end(),
            {LogMessage{2, "Failed connecting to executor Connection refused\n"}, kResetRequested,
             LogMessage{2, "Resetting Executor failed, retrying: Bootweave executor failed to start\n"}});
        executors +=
            "2 Unable to start executor: Failed to bind to executor control socket: Address already in use\n";
    }
    EXPECT_THAT(FakePlatform::log(), ElementsAreArray(expected));
    EXPECT_EQ(executors, sandbox_.Log());
    EXPECT_THAT(ExecutorSandbox::Executors(), IsEmpty());
    EXPECT_TRUE(std::filesystem::is_socket(sandbox_.socket_path()));  // left to whoever starts the program
}

TEST_F(ExecutorServerTest, AnExecutorThatDiesUnderItsCommandFailsItAndTheNextOneIsServedAnew) {
    sandbox_.AddCommand("die", "kill -9 $PPID");
    sandbox_.AddCommand("good", "exit 0");
    Start();
    EXPECT_EQ(kNoStatus, FailureOfCommand("die"));
    ExecutorSandbox::KillExecutors();
    std::filesystem::remove(sandbox_.socket_path());
    EXPECT_EQ("none", FailureOfCommand("good"));
}

// Failures at its start.

struct FailedStart {
    SystemCall call;
    int error;
    const char* line;
};

class FailedExecutorStartTest : public ExecutorServerTest, public testing::WithParamInterface<FailedStart> {};

TEST_P(FailedExecutorStartTest, IsLoggedThereAndFailsTheReset) {
    const FailedStart& expected = GetParam();
    SystemCalls::Fail(expected.call, {.error = expected.error, .in_child = true});
    EXPECT_EQ("Bootweave executor failed to start", FailureOfReset());
    EXPECT_EQ(std::string(expected.line) + "\n", sandbox_.Log());
    EXPECT_THAT(ExecutorSandbox::Executors(), IsEmpty());
    EXPECT_THAT(FakePlatform::log(), ElementsAre(kResetRequested));
}

INSTANTIATE_TEST_SUITE_P(
    Calls, FailedExecutorStartTest,
    testing::Values(FailedStart{SystemCall::kSocket, EMFILE,
                                "2 Unable to start executor: Error opening control socket for executor:"
                                " Too many open files"},
                    FailedStart{SystemCall::kBind, EACCES,
                                "2 Unable to start executor: Failed to bind to executor control socket:"
                                " Permission denied"},
                    FailedStart{SystemCall::kListen, EADDRINUSE,
                                "2 Unable to start executor: Failed to listen on executor control socket:"
                                " Address already in use"},
                    FailedStart{SystemCall::kDaemon, EAGAIN,
                                "2 Unable to start executor: Failed to daemonize"}));

TEST_F(ExecutorServerTest, AStartThatRaisesSomethingElseIsLoggedWithoutAReason) {
    SystemCalls::Fail(SystemCall::kOpen, {.error = SystemFault::kRaise, .in_child = true});
    testing::internal::CaptureStderr();  // the output log is not there yet
    const std::string failure = FailureOfReset();
    EXPECT_EQ("2 Unable to start executor\n", testing::internal::GetCapturedStderr());
    EXPECT_EQ("Bootweave executor failed to start", failure);
}

TEST_F(ExecutorServerTest, WithoutAnEventLoopThreadItEndsBehindAStartThatWasReported) {
    SystemCalls::Fail(SystemCall::kPthreadCreate, {.error = EAGAIN, .in_child = true});
    EXPECT_EQ("none", FailureOfReset());
    EXPECT_EQ("exited with status 255", ExecutorSandbox::WaitForEnd());
    EXPECT_EQ("2 Unable to start executor: Failed creating Executor Event Loop thread\n", sandbox_.Log());
}

TEST_F(ExecutorServerTest, WithoutAPollLoopItEnds) {
    SystemCalls::Fail(SystemCall::kEventFd, {.error = EMFILE, .in_child = true});
    EXPECT_EQ("none", FailureOfReset());
    EXPECT_EQ("exited with status 0", ExecutorSandbox::WaitForEnd());
    EXPECT_THAT(sandbox_.Log(), HasSubstr("2 Failed setting up Poll Loop for executor\n"));
    EXPECT_THAT(sandbox_.Log(), HasSubstr(kPolling));
}

// Failures while it serves.

TEST_F(ExecutorServerTest, AFailedAcceptIsALineAndTheConnectionIsServedLater) {
    sandbox_.AddCommand("good", "exit 0");
    SystemCalls::Fail(SystemCall::kAccept, {.error = ECONNABORTED, .in_child = true});
    Start();
    EXPECT_EQ("none", FailureOfCommand("good"));
    EXPECT_EQ("3 Error accepting connection on contol socket - Software caused connection abort\n\n", Log());
}

TEST_F(ExecutorServerTest, WithoutADescriptorForItAConnectionIsTurnedAwayAndTheNextOneIsServed) {
    sandbox_.AddCommand("good", "exit 0");
    for (const int error : {EMFILE, ENFILE}) {
        SystemCalls::Fail(SystemCall::kAccept, {.error = error, .in_child = true});
        Start();
        EXPECT_EQ(kNoStatus, FailureOfCommand("good"));
        EXPECT_EQ("none", FailureOfCommand("good"));
        EXPECT_EQ("3 Error accepting connection on contol socket - " + ErrorText(error) + "\n\n", Log());
        ExecutorSandbox::KillExecutors();
        std::filesystem::remove(sandbox_.socket_path());
        std::filesystem::remove(sandbox_.dir().File("executor.log"));
    }
}

TEST_F(ExecutorServerTest, WithoutADescriptorLeftEveryConnectionIsTurnedAwayAndAStopIsHeeded) {
    sandbox_.AddCommand("good", "touch " + results_.File("ran"));
    Start();
    ASSERT_TRUE(WaitForEventLoop());  // which needs a descriptor of its own
    const auto open = static_cast<rlim_t>(Descriptors(std::to_string(Executor())).size());
    const rlimit none_left{.rlim_cur = open, .rlim_max = open};
    ASSERT_EQ(0, ::prlimit(Executor(), RLIMIT_NOFILE, &none_left, nullptr));
    EXPECT_EQ(kNoStatus, FailureOfCommand("good"));
    EXPECT_EQ(kNoStatus, FailureOfCommand("good"));
    client_.Stop();
    EXPECT_EQ("exited with status 0", ExecutorSandbox::WaitForEnd());
    const std::string line = "3 Error accepting connection on contol socket - Too many open files\n\n";
    EXPECT_EQ(line + line + line + kStopped, Log());
    EXPECT_THAT(results_.Names(), IsEmpty());
}

TEST_F(ExecutorServerTest, WhenTheSpareDescriptorDoesNotHelpItPausesBeforeItTriesAgain) {
    sandbox_.AddCommand("good", "exit 0");
    SystemCalls::Fail(SystemCall::kAccept, {.error = ENFILE, .times = 6, .in_child = true});
    Start();
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ("none", FailureOfCommand("good"));
    EXPECT_LE(std::chrono::milliseconds(300), std::chrono::steady_clock::now() - start);
    const std::string line =
        "3 Error accepting connection on contol socket - Too many open files in system\n\n";
    EXPECT_EQ(line + line + line, Log());
}

TEST_F(ExecutorServerTest, AFailedReceiveIsALineAndClosesTheConnection) {
    sandbox_.AddCommand("good", "exit 0");
    SystemCalls::Fail(SystemCall::kRecv, {.error = EIO, .in_child = true});
    Start();
    EXPECT_THAT(FailureOfCommand("good"), kClosedUnread);
    EXPECT_EQ("none", FailureOfCommand("good"));
    EXPECT_EQ("3 Failed to read message from socket - Input/output error\n\n", Log());
}

// A stop that went unheard would leave the executor behind: its client takes the end of the stream for
// success.
TEST_F(ExecutorServerTest, ARequestThatThereIsNoMemoryForIsHeardLater) {
    sandbox_.AddCommand("good", "exit 0");
    for (const SystemCall call : {SystemCall::kGetSockOpt, SystemCall::kRecv}) {
        SystemCalls::Fail(call, {.error = ENOMEM, .times = 2, .in_child = true});
    }
    Start();
    EXPECT_EQ("none", FailureOfCommand("good"));
    EXPECT_EQ("", Log());
}

TEST_F(ExecutorServerTest, ARequestThatThereIsNeverMemoryForIsALine) {
    SystemCalls::Fail(SystemCall::kRecv, {.error = ENOBUFS, .times = SystemFault::kAlways, .in_child = true});
    Start();
    EXPECT_THAT(FailureOfCommand("good"), kClosedUnread);
    EXPECT_EQ("3 Failed to read message from socket - No buffer space available\n\n", Log());
}

TEST_F(ExecutorServerTest, AStatusThatCannotBeSentIsALine) {
    sandbox_.AddCommand("good", "exit 0");
    SystemCalls::Fail(SystemCall::kSend, {.error = EPIPE, .in_child = true});
    Start();
    EXPECT_EQ(kNoStatus, FailureOfCommand("good"));
    EXPECT_EQ("none", FailureOfCommand("good"));
    EXPECT_EQ("3 Sending command status to bootweave failed\n", Log());
}

TEST_F(ExecutorServerTest, AClientThatHasGoneIsALine) {
    sandbox_.AddCommand("good", "exit 0");
    Start();
    static_cast<void>(client_.Connect(true));
    EXPECT_EQ("none", FailureOfCommand("good"));  // served behind that one
    EXPECT_EQ(
        "2 Executor was unable to parse command: empty command\n"
        "2 Executor failed to parse command \n"
        "3 Sending command status to bootweave failed\n",
        Log());
}

TEST_F(ExecutorServerTest, InterruptedCallsAreRepeated) {
    sandbox_.AddCommand("good", "exit 0");
    for (const SystemCall call : {SystemCall::kAccept, SystemCall::kRecv, SystemCall::kSend}) {
        SystemCalls::Fail(call, {.error = EINTR, .times = 3, .in_child = true});
    }
    Start();
    EXPECT_EQ("none", FailureOfCommand("good"));
    EXPECT_EQ("", Log());
}

TEST_F(ExecutorServerTest, AnotherUserIsRefusedUnanswered) {
    sandbox_.AddCommand("good", "touch " + results_.File("ran"));
    SystemCalls::PretendForeignPeer();
    Start();
    EXPECT_THAT(FailureOfCommand("good"), kClosedUnread);
    EXPECT_THAT(FailureOfCommand("stop"), kClosedUnread);
    EXPECT_THAT(FailureOfCommand("good"), kClosedUnread);  // it still answers the door
    const std::string line = "3 refusing a connection on the control socket from user " +
                             std::to_string(::geteuid() + 4242) + " (process " + std::to_string(::getpid()) +
                             ")\n";
    EXPECT_EQ(line + line + line, Log());
    EXPECT_THAT(results_.Names(), IsEmpty());
}

TEST_F(ExecutorServerTest, APeerThatCannotBeToldIsRefused) {
    sandbox_.AddCommand("good", "exit 0");
    SystemCalls::Fail(SystemCall::kGetSockOpt, {.error = ENOTSOCK, .in_child = true});
    Start();
    EXPECT_THAT(FailureOfCommand("good"), kClosedUnread);
    EXPECT_EQ("none", FailureOfCommand("good"));
    EXPECT_EQ("3 refusing a connection on the control socket: Socket operation on non-socket\n", Log());
}

TEST_F(ExecutorServerTest, WhatIsNoExceptionFailsACommandWithItsOwnLine) {
    sandbox_.AddCommand("good", "exit 0");
    // The first open is that of the output log, the second one that of the first command directory.
    SystemCalls::Fail(SystemCall::kOpen, {.error = SystemFault::kRaise, .skip = 1, .in_child = true});
    Start();
    EXPECT_EQ("Executor failed executing hostcli command: good --x=%s", FailureOfCommand("good --x=%s"));
    EXPECT_EQ("none", FailureOfCommand("good"));
    EXPECT_EQ("2 unknown exception whilst executing 'good --x=%s'\n", Log());
}

TEST_F(ExecutorServerTest, ASilentClientHoldsUpTheOthersForTenSecondsAtMost) {
    Start();
    EXPECT_EQ(Bytes(1), Exchange(""));
    EXPECT_EQ(10'000'000, SystemCalls::Seen().receive_timeout);
}

}  // namespace
}  // namespace bootweave
