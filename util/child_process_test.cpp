// SPDX-License-Identifier: Apache-2.0
#include "util/child_process.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <optional>
#include <stdexcept>
#include <thread>
#include <utility>

#include <fcntl.h>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include "gtest/gtest.h"
#include "util/child_process_test_support.h"
#include "util/retry.h"
#include "util/signals.h"
#include "util/unique_fd.h"

extern "C" pid_t __real_fork();
extern "C" pid_t __wrap_fork();
extern "C" int __real_pidfd_open(pid_t pid, unsigned flags);
extern "C" int __wrap_pidfd_open(pid_t pid, unsigned flags);

namespace {

/// What the calls fail with; 0 lets them through.
std::atomic<int> g_fork_error = 0;
std::atomic<int> g_pidfd_error = 0;

}  // namespace

extern "C" pid_t __wrap_fork() {
    if (g_fork_error != 0) {
        errno = g_fork_error;
        return -1;
    }
    return __real_fork();
}

extern "C" int __wrap_pidfd_open(pid_t pid, unsigned flags) {
    if (g_pidfd_error != 0) {
        errno = g_pidfd_error;
        return -1;
    }
    return __real_pidfd_open(pid, flags);
}

namespace bootweave {
namespace {

using std::chrono::milliseconds;

TEST(ExitStatusTest, SaysHowAChildEnded) {
    const struct {
        int raw;
        std::optional<int> code;
        std::optional<int> signal;
        const char* text;
    } table[] = {
        {0, 0, {}, "exited with status 0"},
        {3 << 8, 3, {}, "exited with status 3"},
        {255 << 8, 255, {}, "exited with status 255"},
        {SIGKILL, {}, 9, "killed by signal 9"},
        {SIGABRT | 0x80, {}, 6, "killed by signal 6"},  // with a core file
        {64, {}, 64, "killed by signal 64"},
    };
    for (const auto& row : table) {
        const ExitStatus status = ExitStatus::FromRaw(row.raw);
        EXPECT_EQ(row.code, status.code) << row.raw;
        EXPECT_EQ(row.signal, status.signal) << row.raw;
        EXPECT_EQ(row.text, status.Describe()) << row.raw;
        EXPECT_EQ(row.raw == 0, status.success()) << row.raw;
    }
}

TEST(ChildProcessTest, WaitReturnsTheRawStatusOfTheEnd) {
    Waiter exits(7);
    exits.input.Reset();
    EXPECT_EQ(7 << 8, exits.child->Wait());

    Waiter killed(0);
    ASSERT_EQ(0, ::kill(killed.child->pid(), SIGTERM));
    EXPECT_EQ(SIGTERM, killed.child->Wait());
}

TEST(ChildProcessTest, AStoppedChildHasNotEnded) {
    Waiter waiter(5);
    const pid_t pid = waiter.child->pid();
    ASSERT_EQ(0, ::kill(pid, SIGSTOP));
    siginfo_t stopped{};
    ASSERT_EQ(0, ::waitid(P_PID, static_cast<id_t>(pid), &stopped, WSTOPPED | WNOWAIT));
    std::optional<int> raw;
    std::atomic<bool> ended = false;
    std::thread waiting([&] {
        raw = waiter.child->Wait();
        ended = true;
    });
    EXPECT_FALSE(ended);
    waiter.input.Reset();
    ASSERT_EQ(0, ::kill(pid, SIGCONT));
    waiting.join();
    EXPECT_EQ(5 << 8, raw);
}

TEST(ChildProcessTest, ASignalDoesNotEndTheWait) {
    struct sigaction action {};
    action.sa_handler = [](int) {};  // and no SA_RESTART
    struct sigaction old {};
    ASSERT_EQ(0, ::sigaction(SIGUSR1, &action, &old));
    Waiter waiter(4);
    const pthread_t self = ::pthread_self();
    std::thread disturber([&] {
        for (int count = 0; count < 100; ++count) {
            ::pthread_kill(self, SIGUSR1);
            std::this_thread::yield();
        }
        waiter.input.Reset();
    });
    EXPECT_EQ(4 << 8, waiter.child->Wait());
    disturber.join();
    ::sigaction(SIGUSR1, &old, nullptr);
}

TEST(ChildProcessTest, WaitingTwiceReapsNobodyElsesChild) {
    Waiter other(0);
    Waiter first(1);
    first.input.Reset();
    EXPECT_EQ(1 << 8, first.child->Wait());
    other.input.Reset();
    errno = 0;
    EXPECT_EQ(std::nullopt, first.child->Wait());
    EXPECT_EQ(ECHILD, errno);
    EXPECT_EQ(0, other.child->Wait());
}

TEST(ChildProcessTest, AChildThatTheKernelReapedCannotBeWaitedFor) {
    struct sigaction ignore {};
    ignore.sa_handler = SIG_IGN;
    struct sigaction old {};
    ASSERT_EQ(0, ::sigaction(SIGCHLD, &ignore, &old));
    Waiter waiter(0);
    waiter.input.Reset();
    EXPECT_EQ(std::nullopt, waiter.child->Wait());
    EXPECT_EQ(ECHILD, errno);
    ::sigaction(SIGCHLD, &old, nullptr);
}

TEST(ChildProcessTest, DestructionKillsAndReaps) {
    pid_t pid = -1;
    {
        const Waiter waiter(0);
        pid = waiter.child->pid();
        ASSERT_EQ(0, ::kill(pid, 0));
    }
    EXPECT_EQ(-1, ::kill(pid, 0));
    EXPECT_EQ(ESRCH, errno);
    EXPECT_TRUE(HasNoChild());
}

TEST(ChildProcessTest, MovingHandsTheChildOver) {
    Waiter waiter(2);
    const pid_t pid = waiter.child->pid();
    ChildProcess moved(std::move(*waiter.child));
    waiter.child.reset();
    EXPECT_EQ(pid, moved.pid());
    EXPECT_EQ(0, ::kill(pid, 0));
    waiter.input.Reset();
    EXPECT_EQ(2 << 8, moved.Wait());
}

TEST(ChildProcessTest, AReleasedChildRunsOn) {
    Waiter waiter(6);
    const pid_t pid = waiter.child->Release();
    waiter.child.reset();
    EXPECT_EQ(0, ::kill(pid, 0));
    waiter.input.Reset();
    int raw = -1;
    EXPECT_EQ(pid, RetryOnEintr([&] { return ::waitpid(pid, &raw, 0); }));
    EXPECT_EQ(6 << 8, raw);
}

TEST(ChildProcessTest, TheEndOfAChildCanBePolledFor) {
    Waiter waiter(0);
    const UniqueFd end = waiter.child->OpenEndFd();
    ASSERT_TRUE(end.valid()) << std::strerror(errno);
    EXPECT_EQ(FD_CLOEXEC, ::fcntl(end.get(), F_GETFD));
    pollfd watched{.fd = end.get(), .events = POLLIN, .revents = 0};
    EXPECT_EQ(0, ::poll(&watched, 1, 0));
    waiter.input.Reset();
    EXPECT_EQ(1, RetryOnEintr([&] { return ::poll(&watched, 1, 60'000); }));
    EXPECT_EQ(0, waiter.child->Wait());
}

TEST(ChildProcessTest, AWaitThatIsTooShortLeavesTheChildOwnedAndRunning) {
    Waiter waiter(3);
    const pid_t pid = waiter.child->pid();
    for (const auto timeout : {milliseconds(-5), milliseconds(0), milliseconds(1)}) {
        const auto result = waiter.child->WaitFor(timeout);
        EXPECT_TRUE(result.timed_out);
        EXPECT_EQ(std::nullopt, result.raw);
        EXPECT_EQ(pid, waiter.child->pid());
    }
    waiter.input.Reset();
    EXPECT_EQ(3 << 8, waiter.child->Wait());
}

TEST(ChildProcessTest, AWaitWithALimitSeesTheEnd) {
    // With what the kernel has for it and without, and for a time that the clock could not be advanced by.
    for (const int error : {0, ENOSYS}) {
        for (const auto timeout : {milliseconds(60'000), milliseconds::max()}) {
            Waiter waiter(3);
            std::thread ending([&] { waiter.input.Reset(); });
            g_pidfd_error = error;
            const auto result = waiter.child->WaitFor(timeout);
            g_pidfd_error = 0;
            ending.join();
            EXPECT_FALSE(result.timed_out);
            EXPECT_EQ(3 << 8, result.raw);
            EXPECT_EQ(-1, waiter.child->pid()) << "still owned";
        }
    }
    EXPECT_TRUE(HasNoChild());
}

TEST(ChildProcessTest, AWaitWithALimitWakesForTheEndAlone) {
    Waiter waiter(3);
    std::thread ending([&] {
        std::this_thread::sleep_for(milliseconds(300));  // thirty ticks
        waiter.input.Reset();
    });
    rusage before{};
    rusage after{};
    ::getrusage(RUSAGE_THREAD, &before);
    EXPECT_EQ(3 << 8, waiter.child->WaitFor(milliseconds(60'000)).raw);
    ::getrusage(RUSAGE_THREAD, &after);
    ending.join();
    EXPECT_LT(after.ru_nvcsw - before.ru_nvcsw, 10);
}

TEST(ChildProcessTest, AWaitOfNoTimeSeesAnEndThatHasCome) {
    Waiter waiter(3);
    const UniqueFd end = waiter.child->OpenEndFd();
    waiter.input.Reset();
    pollfd watched{.fd = end.get(), .events = POLLIN, .revents = 0};
    ASSERT_EQ(1, RetryOnEintr([&] { return ::poll(&watched, 1, 60'000); }));
    const auto result = waiter.child->WaitFor(milliseconds(0));
    EXPECT_FALSE(result.timed_out);
    EXPECT_EQ(3 << 8, result.raw);
}

TEST(ChildProcessTest, AWaitWithALimitForAChildThatIsNoLongerOwnedReapsNobodyElses) {
    Waiter other(0);
    Waiter first(1);
    first.input.Reset();
    EXPECT_EQ(1 << 8, first.child->Wait());
    other.input.Reset();
    errno = 0;
    const auto result = first.child->WaitFor(milliseconds(60'000));
    EXPECT_EQ(ECHILD, errno);
    EXPECT_FALSE(result.timed_out);
    EXPECT_EQ(std::nullopt, result.raw);
    EXPECT_EQ(0, other.child->Wait());
}

TEST(ChildProcessTest, AnAdoptedChildIsOwned) {
    Waiter waiter(0);
    const pid_t pid = waiter.child->Release();
    {
        const ChildProcess adopted = ChildProcess::Adopt(pid);
        EXPECT_EQ(pid, adopted.pid());
    }
    EXPECT_EQ(-1, ::kill(pid, 0));
    EXPECT_TRUE(HasNoChild());
}

TEST(ChildProcessTest, AForkedBodyEndsWithItsStatus) {
    for (const int status : {0, 1, 42, 255}) {
        auto child = ChildProcess::Fork([status] { return status; });
        ASSERT_TRUE(child.has_value());
        EXPECT_EQ(status << 8, child->Wait());
    }
}

TEST(ChildProcessTest, AForkedBodyThatThrowsEndsWith255) {
    auto known = ChildProcess::Fork([]() -> int { throw std::runtime_error("x"); });
    ASSERT_TRUE(known.has_value());
    EXPECT_EQ(255 << 8, known->Wait());
    auto unknown = ChildProcess::Fork([]() -> int { throw 7; });
    ASSERT_TRUE(unknown.has_value());
    EXPECT_EQ(255 << 8, unknown->Wait());
}

struct WritesAtDestruction {
    int fd;
    ~WritesAtDestruction() { WriteAll(fd, "destroyed"); }
};

TEST(ChildProcessTest, AForkedBodyRunsNoExitHandlersAndNoDestructorsOfTheCaller) {
    Pipe pipe = Pipe::Create();
    static int s_handler_fd = -1;
    s_handler_fd = pipe.write_end.get();
    {
        const int fd = ::dup(pipe.write_end.get());
        const WritesAtDestruction in_the_caller{fd};
        auto child = ChildProcess::Fork([] {
            std::atexit([] { WriteAll(s_handler_fd, "exit handler"); });
            return 0;
        });
        ASSERT_TRUE(child.has_value());
        EXPECT_EQ(0, child->Wait());
        pipe.write_end.Reset();
    }
    char text[64] = {};
    EXPECT_EQ(9, ::read(pipe.read_end.get(), text, sizeof text));  // this process's own
    EXPECT_STREQ("destroyed", text);
}

TEST(ChildProcessTest, AForkThatBecomesAProgramReturnsOnceItIsThatProgram) {
    auto child = ChildProcess::ForkToExec([] {
        ResetChangedSignals();
        ::execl("/bin/sh", "sh", "-c", "exit 7", nullptr);
        return errno;
    });
    ASSERT_TRUE(child.has_value());
    EXPECT_EQ(7 << 8, child->Wait());
}

TEST(ChildProcessTest, AForkThatBecomesNoProgramIsAnErrorOfTheCall) {
    const auto child =
        ChildProcess::ForkToExec([] { return ::execl("/nowhere", "x", nullptr) == -1 ? errno : 0; });
    EXPECT_EQ(ENOENT, errno);
    EXPECT_FALSE(child.has_value());
    EXPECT_TRUE(HasNoChild());
}

TEST(ChildProcessTest, AForkThatBecomesAProgramRunsNoHandlerAndLeavesTheParentItsMask) {
    static constexpr std::array kSignals{SIGHUP, SIGTERM, SIGCHLD, SIGUSR1, SIGALRM};
    const auto blocked = [] {
        sigset_t mask;
        ::pthread_sigmask(SIG_SETMASK, nullptr, &mask);
        return static_cast<int>(std::count_if(kSignals.begin(), kSignals.end(),
                                              [&](int signal) { return ::sigismember(&mask, signal) == 1; }));
    };
    EXPECT_FALSE(ChildProcess::ForkToExec(blocked).has_value());
    EXPECT_EQ(static_cast<int>(kSignals.size()), errno);
    EXPECT_EQ(0, blocked());
}

/// From now on this process cannot have a child; the call says EAGAIN.
void ForbidChildren() {
    sock_filter rules[] = {
        BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr)),
        BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, SYS_clone, 1, 0),
        BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW),
        BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ERRNO | EAGAIN),
    };
    const sock_fprog program{.len = std::size(rules), .filter = rules};
    ASSERT_EQ(0, ::prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0));
    ASSERT_EQ(0, ::prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &program));
}

TEST(ChildProcessTest, WithoutAProcessToBeHadNothingBecomesAProgram) {
    auto forbidden = ChildProcess::Fork([] {
        ForbidChildren();
        const auto child = ChildProcess::ForkToExec([] { return ENOENT; });
        return !child.has_value() && errno == EAGAIN ? 0 : 1;
    });
    EXPECT_EQ(0, forbidden->Wait());
}

TEST(ChildProcessTest, WithoutAProcessToBeHadForkingFails) {
    g_fork_error = EAGAIN;
    const auto child = ChildProcess::Fork([] { return 0; });
    const int error = errno;
    const bool detached = ChildProcess::SpawnDetached(Role("report"));
    const int detached_error = errno;
    g_fork_error = 0;
    EXPECT_FALSE(child.has_value());
    EXPECT_EQ(EAGAIN, error);
    EXPECT_FALSE(detached);
    EXPECT_EQ(EAGAIN, detached_error);
}

}  // namespace
}  // namespace bootweave
