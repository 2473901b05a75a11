// SPDX-License-Identifier: Apache-2.0
#include "hostcli/executor_client.h"

#include <atomic>
#include <cerrno>
#include <csignal>
#include <filesystem>
#include <functional>
#include <iterator>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include "gmock/gmock.h"
#include "hostcli/control_socket.h"
#include "tests/support/executor_sandbox.h"
#include "tests/support/fake_executor.h"
#include "tests/support/fake_platform.h"
#include "tests/support/system_calls.h"
#include "util/exception.h"
#include "util/scope_guard.h"

namespace bootweave {
namespace {

using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::IsEmpty;

const LogMessage kResetRequested{5, "Setting up Executor - Reset Requested\n"};
const LogMessage kRefused{2, "Failed connecting to executor Connection refused\n"};
const LogMessage kAbsent{2, "Failed connecting to executor No such file or directory\n"};
const LogMessage kForkFailed{
    2, "Resetting Executor failed, retrying: Failed to forkResource temporarily unavailable\n"};

class ExecutorClientTest : public testing::Test {
  protected:
    void SetUp() override { FakePlatform::Reset(); }

    /// Stands in for the executor from now on. Without an answer each request succeeds.
    FakeExecutor& Answer(FakeExecutor::Answer answer = {}) {
        if (!answer) {
            answer = [](const std::string&) { return FakeExecutor::Status(0); };
        }
        executor_ = std::make_unique<FakeExecutor>(sandbox_.socket_path(), std::move(answer));
        return *executor_;
    }

    static std::string FailureOf(const std::function<void()>& action) {
        try {
            action();
        } catch (const Exception& error) {
            return error.what();
        }
        return "none";
    }
    std::string FailureOfCommand(const std::string& command) {
        return FailureOf([&] { client_.RunCommand(command); });
    }
    std::string FailureOfReset() {
        return FailureOf([&] { client_.Reset(); });
    }
    std::string FailureOfStop() {
        return FailureOf([&] { client_.Stop(); });
    }

    static std::ptrdiff_t OpenDescriptors() {
        return std::distance(std::filesystem::directory_iterator("/proc/self/fd"), {});
    }

    const ExecutorSandbox sandbox_;
    HostcliExecutor client_;
    std::unique_ptr<FakeExecutor> executor_;
};

// Construction.

TEST_F(ExecutorClientTest, MakingItIgnoresBrokenPipes) {
    ::signal(SIGPIPE, SIG_DFL);
    const HostcliExecutor another;
    EXPECT_EQ(SIG_IGN, ::signal(SIGPIPE, SIG_IGN));
    EXPECT_THAT(FakePlatform::log(), IsEmpty());
}

TEST_F(ExecutorClientTest, ASignalThatCannotBeIgnoredIsSaid) {
    SystemCalls::Fail(SystemCall::kSigaction, {.error = EINVAL});
    const HostcliExecutor another;
    EXPECT_THAT(FakePlatform::log(), ElementsAre(LogMessage{3, "Bootweave cannot ignore SIGPIPE\n"}));
}

TEST_F(ExecutorClientTest, ThereIsOnePerProcessForAllThreads) {
    std::vector<std::shared_ptr<HostcliExecutor>> seen(8);
    std::vector<std::thread> threads;
    for (auto& slot : seen) {
        threads.emplace_back([&slot] { slot = HostcliExecutor::Instance(); });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    ASSERT_NE(nullptr, seen[0]);
    EXPECT_THAT(seen, testing::Each(seen[0]));
}

// Connect.

TEST_F(ExecutorClientTest, AConnectionIsMadeWithTheWholeAddress) {
    Answer();
    EXPECT_TRUE(client_.Connect(true).valid());
    EXPECT_EQ(static_cast<std::int64_t>(sizeof(sockaddr_un)), SystemCalls::Seen().address_length);
    EXPECT_THAT(FakePlatform::log(), IsEmpty());
}

TEST_F(ExecutorClientTest, AFailedConnectIsALineOnRequest) {
    EXPECT_FALSE(client_.Connect(true).valid());
    EXPECT_EQ(ENOENT, errno);
    EXPECT_THAT(FakePlatform::log(), ElementsAre(kAbsent));

    FakePlatform::Reset();
    EXPECT_FALSE(client_.Connect(false).valid());
    EXPECT_EQ(ENOENT, errno);
    EXPECT_THAT(FakePlatform::log(), IsEmpty());
}

TEST_F(ExecutorClientTest, AFailedSocketIsAlwaysALine) {
    const LogMessage line{2, "Failed creating bootweave client socket Too many open files\n"};
    SystemCalls::Fail(SystemCall::kSocket, {.error = EMFILE, .times = 2});
    EXPECT_FALSE(client_.Connect(true).valid());
    EXPECT_FALSE(client_.Connect(false).valid());
    EXPECT_EQ(EMFILE, errno);
    EXPECT_THAT(FakePlatform::log(), ElementsAre(line, line));
}

TEST_F(ExecutorClientTest, AnInterruptedConnectIsRepeated) {
    Answer();
    SystemCalls::Fail(SystemCall::kConnect, {.error = EINTR, .times = 3});
    EXPECT_TRUE(client_.Connect(true).valid());
    EXPECT_THAT(FakePlatform::log(), IsEmpty());
}

// RunCommand.

TEST_F(ExecutorClientTest, ACommandIsSentAloneOnAConnectionOfItsOwn) {
    FakeExecutor& executor = Answer();
    client_.RunCommand("net ip set --name=eth0");
    client_.RunCommand("a b");
    EXPECT_THAT(executor.Requests(), ElementsAre("net ip set --name=eth0", "a b"));
    EXPECT_THAT(FakePlatform::log(), IsEmpty());
}

TEST_F(ExecutorClientTest, AnEmptyCommandIsARequestToo) {
    FakeExecutor& executor = Answer();
    client_.RunCommand("");
    EXPECT_THAT(executor.Requests(), ElementsAre(""));
}

TEST_F(ExecutorClientTest, ACommandEndsAtItsFirstNul) {
    FakeExecutor& executor = Answer();
    client_.RunCommand(std::string("a b\0c", 5));
    EXPECT_THAT(executor.Requests(), ElementsAre("a b"));
}

TEST_F(ExecutorClientTest, AnyOtherStatusIsAFailureOfTheCommand) {
    for (const std::int32_t status : {1, -1, 256, 2'000'000'000}) {
        Answer([status](const std::string&) { return FakeExecutor::Status(status); });
        EXPECT_EQ("Executor failed executing hostcli command: a b", FailureOfCommand("a b")) << status;
        executor_.reset();
        std::filesystem::remove(sandbox_.socket_path());
    }
    EXPECT_THAT(FakePlatform::log(), IsEmpty());
}

TEST_F(ExecutorClientTest, ACommandWithoutAnAnswerFails) {
    FakeExecutor& executor = Answer([](const std::string&) { return ""; });
    EXPECT_EQ("Failed to recieve command status from Executor: Connection reset by peer",
              FailureOfCommand("a b"));
    EXPECT_THAT(executor.Requests(), ElementsAre("a b"));  // and is not repeated
    EXPECT_THAT(FakePlatform::log(), IsEmpty());
}

TEST_F(ExecutorClientTest, PartOfAStatusIsNoSuccess) {
    Answer([](const std::string&) { return FakeExecutor::Status(0).substr(0, 3); });
    EXPECT_EQ("Failed to recieve command status from Executor: Connection reset by peer",
              FailureOfCommand("a b"));
}

TEST_F(ExecutorClientTest, AFailedReceiveIsFinal) {
    FakeExecutor& executor = Answer();
    SystemCalls::Fail(SystemCall::kRecv, {.error = EIO});
    EXPECT_EQ("Failed to recieve command status from Executor: Input/output error", FailureOfCommand("a b"));
    EXPECT_THAT(executor.Finish(), ElementsAre("a b"));
    EXPECT_THAT(FakePlatform::log(), IsEmpty());
}

TEST_F(ExecutorClientTest, AFailedSendIsFinal) {
    Answer();
    SystemCalls::Fail(SystemCall::kSend, {.error = EPIPE});
    EXPECT_EQ("Failed sending command to executor: Broken pipe", FailureOfCommand("a b"));
    EXPECT_THAT(FakePlatform::log(), IsEmpty());
}

TEST_F(ExecutorClientTest, InterruptedCallsOfACommandAreRepeated) {
    FakeExecutor& executor = Answer();
    for (const SystemCall call : {SystemCall::kConnect, SystemCall::kSend, SystemCall::kRecv}) {
        SystemCalls::Fail(call, {.error = EINTR, .times = 2});
    }
    client_.RunCommand("a b");
    EXPECT_THAT(executor.Requests(), ElementsAre("a b"));
}

TEST_F(ExecutorClientTest, AnExecutorThatAnswersTheResetIsTriedAgain) {
    FakeExecutor& executor = Answer();
    SystemCalls::Fail(SystemCall::kConnect, {.error = ECONNREFUSED});
    client_.RunCommand("a b");
    EXPECT_THAT(FakePlatform::log(), ElementsAre(kRefused));
    EXPECT_THAT(executor.Finish(), ElementsAre("", "a b"));  // the reset's own connection, then the command's
    EXPECT_EQ(0, SystemCalls::Seen().forks);
}

TEST_F(ExecutorClientTest, TenResetsAreTriedAndThenTheCommandFails) {
    SystemCalls::Fail(SystemCall::kFork, {.error = EAGAIN, .times = SystemFault::kAlways});
    // Not the text of the failed fork, which came last.
    EXPECT_EQ("Could not connect to Executor:No such file or directory", FailureOfCommand("a b"));
    std::vector<LogMessage> expected;
    for (int attempt = 0; attempt < 10; ++attempt) {
        expected.insert(expected.end(), {kAbsent, kResetRequested, kForkFailed});
    }
    EXPECT_THAT(FakePlatform::log(), ElementsAreArray(expected));
    EXPECT_EQ(10, SystemCalls::Seen().forks);
}

TEST_F(ExecutorClientTest, TheTenthAttemptCountsAndNoneIsMadeBehindTheTenthReset) {
    FakeExecutor& executor = Answer();
    SystemCalls::Fail(SystemCall::kFork, {.error = EAGAIN, .times = SystemFault::kAlways});
    SystemCalls::Fail(SystemCall::kConnect, {.error = ECONNREFUSED, .times = 18});  // two per attempt
    client_.RunCommand("a b");
    EXPECT_THAT(executor.Requests(), ElementsAre("a b"));

    SystemCalls::Fail(SystemCall::kConnect, {.error = ECONNREFUSED, .times = 19});
    EXPECT_EQ("Could not connect to Executor:Connection refused", FailureOfCommand("c d"));
    EXPECT_THAT(executor.Finish(), ElementsAre("a b", ""));
}

TEST_F(ExecutorClientTest, TheTextIsThatOfTheLastConnect) {
    SystemCalls::Fail(SystemCall::kFork, {.error = EAGAIN, .times = SystemFault::kAlways});
    SystemCalls::Fail(SystemCall::kConnect, {.error = EACCES, .skip = 18, .times = SystemFault::kAlways});
    EXPECT_EQ("Could not connect to Executor:Permission denied", FailureOfCommand("a b"));
}

TEST_F(ExecutorClientTest, AResetThatRaisesSomethingElseIsRetriedToo) {
    SystemCalls::Fail(SystemCall::kFork, {.error = EAGAIN, .times = SystemFault::kAlways});
    SystemCalls::Fail(SystemCall::kConnect, {.error = SystemFault::kRaise, .skip = 1});
    EXPECT_EQ("Could not connect to Executor:No such file or directory", FailureOfCommand("a b"));
    std::vector<LogMessage> expected{kAbsent, LogMessage{2, "Resetting Executor failed, retrying\n"}};
    for (int attempt = 1; attempt < 10; ++attempt) {
        expected.insert(expected.end(), {kAbsent, kResetRequested, kForkFailed});
    }
    EXPECT_THAT(FakePlatform::log(), ElementsAreArray(expected));
}

TEST_F(ExecutorClientTest, ResetsOnDemandHoldTheGraphLock) {
    SystemCalls::Fail(SystemCall::kFork, {.error = EAGAIN, .times = SystemFault::kAlways});
    std::vector<std::thread> threads;
    for (int thread = 0; thread < 4; ++thread) {
        threads.emplace_back([&] { static_cast<void>(FailureOfCommand("a b")); });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(40, SystemCalls::Seen().forks);
    EXPECT_EQ(40, SystemCalls::Seen().forks_under_lock);
}

TEST_F(ExecutorClientTest, AConnectionNumberedZeroCountsAsFailure) {
    // Nobody accepts here: an accepted connection could get the number.
    const UniqueFd listener = CreateControlSocket();
    const sockaddr_un address = ControlSocketAddress();
    ASSERT_EQ(0, ::bind(listener.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address));
    ASSERT_EQ(0, ::listen(listener.get(), 100));
    SystemCalls::Fail(SystemCall::kFork, {.error = EAGAIN, .times = SystemFault::kAlways});
    const UniqueFd standard_input(::dup(STDIN_FILENO));
    ::close(STDIN_FILENO);
    const ScopeGuard restore([&] { ::dup2(standard_input.get(), STDIN_FILENO); });
    ASSERT_EQ(0, client_.Connect(false).get());

    client_.Stop();
    EXPECT_THAT(FakePlatform::log(), ElementsAre(LogMessage{5, "Executor already gone.\n"}));

    FakePlatform::Reset();
    EXPECT_EQ("Failed to forkResource temporarily unavailable", FailureOfReset());
    EXPECT_THAT(FakePlatform::log(), ElementsAre(kResetRequested));

    FakePlatform::Reset();
    EXPECT_THAT(FailureOfCommand("a b"), testing::StartsWith("Could not connect to Executor:"));
    EXPECT_EQ(1, SystemCalls::Seen().forks);  // the command's resets got other numbers, and an answer
    EXPECT_THAT(FakePlatform::log(), IsEmpty());
}

// Reset.

TEST_F(ExecutorClientTest, AResetWithAnExecutorThatAnswersDoesNothing) {
    Answer();
    client_.Reset();
    EXPECT_THAT(FakePlatform::log(), IsEmpty());
    EXPECT_EQ(0, SystemCalls::Seen().forks);
}

TEST_F(ExecutorClientTest, AResetWithoutAProcessFails) {
    SystemCalls::Fail(SystemCall::kFork, {.error = EAGAIN});
    EXPECT_EQ("Failed to forkResource temporarily unavailable", FailureOfReset());
    EXPECT_THAT(FakePlatform::log(), ElementsAre(kResetRequested));
}

TEST_F(ExecutorClientTest, AResetThatCannotWaitFails) {
    SystemCalls::Fail(SystemCall::kWaitPid, {.error = ECHILD});
    EXPECT_EQ("Failed collecting executor's exit status", FailureOfReset());
}

TEST_F(ExecutorClientTest, AnInterruptedWaitGoesOn) {
    SystemCalls::Fail(SystemCall::kWaitPid, {.error = EINTR, .times = 3});
    client_.Reset();
    EXPECT_EQ(1U, ExecutorSandbox::Executors().size());
}

TEST_F(ExecutorClientTest, AResetWhoseExecutorDoesNotStartFails) {
    SystemCalls::Fail(SystemCall::kListen, {.error = EADDRINUSE, .in_child = true});
    EXPECT_EQ("Bootweave executor failed to start", FailureOfReset());
    EXPECT_THAT(ExecutorSandbox::Executors(), IsEmpty());
}

// Stop.

TEST_F(ExecutorClientTest, StoppingNoExecutorIsFine) {
    client_.Stop();
    EXPECT_THAT(FakePlatform::log(), ElementsAre(LogMessage{5, "Executor already gone.\n"}));
}

TEST_F(ExecutorClientTest, AStopThatLacksADescriptorOrMemoryIsTriedAgain) {
    const LogMessage no_socket{2, "Failed creating bootweave client socket Too many open files\n"};
    const LogMessage stopped{5, "Executor has been Successfully Stopped\n"};
    FakeExecutor& executor = Answer([](const std::string&) { return ""; });
    SystemCalls::Fail(SystemCall::kSocket, {.error = EMFILE, .times = 2});
    client_.Stop();
    EXPECT_THAT(FakePlatform::log(), ElementsAre(no_socket, no_socket, stopped));

    FakePlatform::Reset();
    SystemCalls::Fail(SystemCall::kConnect, {.error = ENOMEM, .times = 2});
    client_.Stop();
    EXPECT_THAT(FakePlatform::log(), ElementsAre(stopped));
    EXPECT_THAT(executor.Requests(), ElementsAre("stop", "stop"));
}

TEST_F(ExecutorClientTest, AStopThatNeverGetsADescriptorComesToAnEnd) {
    Answer();
    SystemCalls::Fail(SystemCall::kSocket, {.error = EMFILE, .times = SystemFault::kAlways});
    client_.Stop();
    EXPECT_EQ(FakePlatform::log().back(), (LogMessage{5, "Executor already gone.\n"}));
}

TEST_F(ExecutorClientTest, StopSendsFourLettersAndWaitsForTheEnd) {
    FakeExecutor& executor = Answer([](const std::string&) { return ""; });
    client_.Stop();
    EXPECT_THAT(executor.Requests(), ElementsAre("stop"));
    EXPECT_THAT(FakePlatform::log(), ElementsAre(LogMessage{5, "Executor has been Successfully Stopped\n"}));
}

TEST_F(ExecutorClientTest, AReceiveErrorCountsAsStopped) {
    Answer([](const std::string&) { return ""; });
    SystemCalls::Fail(SystemCall::kRecv, {.error = ECONNRESET});
    client_.Stop();
    EXPECT_THAT(FakePlatform::log(), ElementsAre(LogMessage{5, "Executor has been Successfully Stopped\n"}));
}

TEST_F(ExecutorClientTest, AnAnswerToStopIsNoSuccessAndNoFailure) {
    Answer();
    client_.Stop();
    EXPECT_THAT(FakePlatform::log(), IsEmpty());
}

TEST_F(ExecutorClientTest, AStopThatCannotBeSentFails) {
    Answer();
    SystemCalls::Fail(SystemCall::kSend, {.error = EPIPE});
    EXPECT_EQ("Failed sending STOP to executorBroken pipe", FailureOfStop());
    EXPECT_THAT(FakePlatform::log(), IsEmpty());
}

TEST_F(ExecutorClientTest, InterruptedCallsOfAStopAreRepeated) {
    FakeExecutor& executor = Answer([](const std::string&) { return ""; });
    for (const SystemCall call : {SystemCall::kConnect, SystemCall::kSend, SystemCall::kRecv}) {
        SystemCalls::Fail(call, {.error = EINTR, .times = 2});
    }
    client_.Stop();
    EXPECT_THAT(executor.Requests(), ElementsAre("stop"));
    EXPECT_THAT(FakePlatform::log(), ElementsAre(LogMessage{5, "Executor has been Successfully Stopped\n"}));
}

// All of it.

TEST_F(ExecutorClientTest, NoFailureLeavesADescriptorOpen) {
    Answer([](const std::string& request) { return request == "good" ? FakeExecutor::Status(1) : ""; });
    const std::ptrdiff_t before = OpenDescriptors();
    for (const SystemCall call : {SystemCall::kConnect, SystemCall::kSend, SystemCall::kRecv}) {
        SystemCalls::Fail(call, {.error = EIO, .times = 5});
        static_cast<void>(FailureOfCommand("good"));
        static_cast<void>(FailureOfStop());
        SystemCalls::Fail(call, {.error = EIO, .times = 0});
    }
    static_cast<void>(FailureOfCommand("good"));
    static_cast<void>(FailureOfCommand("silence"));
    executor_.reset();
    EXPECT_EQ(before - 1, OpenDescriptors());  // all but the listening one
}

TEST_F(ExecutorClientTest, ManyThreadsMayRunCommandsAtOnce) {
    FakeExecutor& executor = Answer(
        [](const std::string& request) { return FakeExecutor::Status(request.ends_with("bad") ? 1 : 0); });
    constexpr int kThreads = 8;
    constexpr int kCommands = 20;
    std::atomic<int> failures = 0;
    std::vector<std::thread> threads;
    for (int thread = 0; thread < kThreads; ++thread) {
        threads.emplace_back([&, thread] {
            for (int command = 0; command < kCommands; ++command) {
                const std::string line = "run " + std::to_string(thread) + (command % 2 == 0 ? " bad" : "");
                const std::string failure = FailureOfCommand(line);
                failures += failure == "Executor failed executing hostcli command: " + line ? 1 : 0;
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(kThreads * kCommands / 2, failures);
    EXPECT_EQ(static_cast<std::size_t>(kThreads * kCommands), executor.Requests().size());
    EXPECT_THAT(FakePlatform::log(), IsEmpty());
}

}  // namespace
}  // namespace bootweave
