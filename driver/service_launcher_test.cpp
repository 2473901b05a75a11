// SPDX-License-Identifier: Apache-2.0
#include "driver/service_launcher.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <climits>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include <fcntl.h>
#include <unistd.h>

#include "gmock/gmock.h"
#include "tests/support/fake_platform.h"
#include "tests/support/system_calls.h"
#include "tests/support/temp_dir.h"
#include "tests/support/test_main.h"
#include "util/child_process.h"
#include "util/retry.h"
#include "util/scope_guard.h"
#include "util/unique_fd.h"

namespace {

int g_spared_descriptor = -1;

}  // namespace

// The linker gives these names to the wrapped function.
extern "C" {
// NOLINTBEGIN(bugprone-reserved-identifier)
int __real_close_range(unsigned first, unsigned last, int flags);
int __wrap_close_range(unsigned first, unsigned last, int flags);

/// Spares one descriptor, on which a test hears what the child logs when it has closed all others.
int __wrap_close_range(unsigned first, unsigned last, int flags) {
    if (g_spared_descriptor < 0) {
        return __real_close_range(first, last, flags);
    }
    const auto spared = static_cast<unsigned>(g_spared_descriptor);
    __real_close_range(first, spared - 1, flags);
    return __real_close_range(spared + 1, last, flags);
}
// NOLINTEND(bugprone-reserved-identifier)
}

namespace bootweave {
namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr const char* kSelf = "/proc/self/exe";

std::string ReadWhole(const char* path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

/// Each open descriptor with what it stands for, but for the one that lists them.
std::string OpenDescriptors() {
    std::vector<std::string> open;
    for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
        std::error_code gone;
        const std::string target = std::filesystem::read_symlink(entry.path(), gone).string();
        if (!target.ends_with("/fd")) {
            open.push_back(entry.path().filename().string() + "=" + target);
        }
    }
    std::sort(open.begin(), open.end());
    std::string text;
    for (const std::string& item : open) {
        text += item + "\n";
    }
    return text;
}

std::string StatusLine(const std::string& field) {
    const std::string status = ReadWhole("/proc/self/status");
    const std::size_t start = status.find(field + ":");
    return status.substr(start, status.find('\n', start) - start);
}

/// A service that says how it was started: in files of the directory that its first argument names.
int Report(int argc, char** argv) {
    if (argc < 1) {
        return 98;
    }
    const std::string directory = argv[0];
    const std::string descriptors = OpenDescriptors();  // before the files below are open
    std::ofstream(directory + "/descriptors") << descriptors;
    std::ofstream(directory + "/arguments") << ReadWhole("/proc/self/cmdline");
    std::ofstream(directory + "/environment") << ReadWhole("/proc/self/environ");
    std::ofstream(directory + "/signals") << StatusLine("SigIgn") << "\n" << StatusLine("SigBlk") << "\n";
    return 0;
}

int ExitWith(int argc, char** argv) {
    return argc < 1 ? 98 : std::atoi(argv[0]);
}

int KillItself(int /*argc*/, char** /*argv*/) {
    ::raise(SIGKILL);
    return 0;
}

int DisturbParent(int /*argc*/, char** /*argv*/) {
    for (int times = 0; times < 20; ++times) {
        ::kill(::getppid(), SIGUSR1);
    }
    return 0;
}

[[maybe_unused]] const bool kRoles =
    RegisterChildRole("report", Report) && RegisterChildRole("exit", ExitWith) &&
    RegisterChildRole("kill-itself", KillItself) && RegisterChildRole("disturb-parent", DisturbParent);

class ServiceLauncherTest : public testing::Test {
  protected:
    void SetUp() override {
        FakePlatform::Reset();
        SystemCalls::Reset();
        g_spared_descriptor = -1;
    }
    void TearDown() override {
        SystemCalls::Reset();
        g_spared_descriptor = -1;
    }

    /// Starts a program that cannot be executed. Returns the lines that the child logged.
    static std::string LogOfFailedStart(const std::string& path) {
        Pipe pipe = Pipe::Create();
        FakePlatform::EchoTo(pipe.write_end.get());
        g_spared_descriptor = pipe.write_end.get();
        EXPECT_FALSE(RunService(path, {"-i"}));
        FakePlatform::EchoTo(-1);
        pipe.write_end.Reset();
        std::string lines;
        char buffer[512];
        ssize_t count = 0;
        while ((count = RetryOnEintr([&] { return ::read(pipe.read_end.get(), buffer, sizeof buffer); })) >
               0) {
            lines.append(buffer, static_cast<std::size_t>(count));
        }
        return lines;
    }

    const TempDir dir_;
};

TEST_F(ServiceLauncherTest, TheServiceHasTheNullDeviceForStreamsAndNothingElse) {
    // Deliberately not close-on-exec.
    const UniqueFd inherited(::open("/dev/zero", O_RDONLY));
    ASSERT_TRUE(inherited.valid());
    ASSERT_TRUE(RunService(kSelf, {"--role=report", dir_.path()}));
    EXPECT_EQ("0=/dev/null\n1=/dev/null\n2=/dev/null\n", ReadFile(dir_.File("descriptors")));
}

TEST_F(ServiceLauncherTest, ThePathIsTheFirstArgument) {
    ASSERT_TRUE(RunService(kSelf, {"--role=report", dir_.path(), "", "two words"}));
    const std::string expected =
        std::string(kSelf) + '\0' + "--role=report" + '\0' + dir_.path() + '\0' + '\0' + "two words" + '\0';
    EXPECT_EQ(expected, ReadFile(dir_.File("arguments")));
}

TEST_F(ServiceLauncherTest, TheServiceHasTheDriversEnvironment) {
    ::setenv("BOOTWEAVE_TEST_MARK", "kept = as it is", 1);
    const ScopeGuard restore([] { ::unsetenv("BOOTWEAVE_TEST_MARK"); });
    ASSERT_TRUE(RunService(kSelf, {"--role=report", dir_.path()}));
    std::string expected;
    for (char** entry = environ; *entry != nullptr; ++entry) {
        expected += std::string(*entry) + '\0';
    }
    EXPECT_EQ(expected, ReadFile(dir_.File("environment")));
}

TEST_F(ServiceLauncherTest, TheServiceIgnoresAndBlocksNoSignal) {
    const auto before = ::signal(SIGPIPE, SIG_IGN);
    sigset_t blocked;
    sigset_t mask_before;
    sigemptyset(&blocked);
    sigaddset(&blocked, SIGUSR2);
    ::pthread_sigmask(SIG_BLOCK, &blocked, &mask_before);
    const ScopeGuard restore([&] {
        ::signal(SIGPIPE, before);
        ::pthread_sigmask(SIG_SETMASK, &mask_before, nullptr);
    });
    ASSERT_TRUE(RunService(kSelf, {"--role=report", dir_.path()}));
    EXPECT_EQ("SigIgn:\t0000000000000000\nSigBlk:\t0000000000000000\n", ReadFile(dir_.File("signals")));
}

TEST_F(ServiceLauncherTest, OnlyStatusZeroIsSuccess) {
    EXPECT_TRUE(RunService(kSelf, {"--role=exit", "0"}));
    EXPECT_FALSE(RunService(kSelf, {"--role=exit", "1"}));
    EXPECT_FALSE(RunService(kSelf, {"--role=exit", "255"}));
    EXPECT_FALSE(RunService(kSelf, {"--role=kill-itself"}));
    EXPECT_THAT(FakePlatform::log(), IsEmpty());
}

TEST_F(ServiceLauncherTest, SignalsDoNotEndTheWait) {
    static std::atomic<int> signals = 0;
    struct sigaction note {};
    struct sigaction before {};
    note.sa_handler = [](int) { ++signals; };  // and no SA_RESTART
    ASSERT_EQ(0, ::sigaction(SIGUSR1, &note, &before));
    const ScopeGuard restore([&] { ::sigaction(SIGUSR1, &before, nullptr); });
    EXPECT_TRUE(RunService(kSelf, {"--role=disturb-parent"}));
    EXPECT_GT(signals, 0);
}

TEST_F(ServiceLauncherTest, AProgramThatCannotBeExecutedIsLoggedInTheChild) {
    const std::string missing = dir_.File("logrelayd");
    EXPECT_EQ("2 execve(" + missing + ") failure: No such file or directory\n", LogOfFailedStart(missing));
    EXPECT_THAT(FakePlatform::log(), IsEmpty());  // nothing in this process
    EXPECT_EQ("exited with status 1",
              ExitStatus::FromRaw(static_cast<int>(SystemCalls::Seen().wait_status)).Describe());

    const std::string plain_file = dir_.WriteFile("obsvd", "#!/bin/sh\n");
    EXPECT_EQ("2 execve(" + plain_file + ") failure: Permission denied\n", LogOfFailedStart(plain_file));
    // No shell stands in for a script without an interpreter line.
    const std::string script = dir_.WriteProgram("script", "exit 0\n");
    EXPECT_EQ("2 execve(" + script + ") failure: Exec format error\n", LogOfFailedStart(script));
}

TEST_F(ServiceLauncherTest, WithoutAProcessTheServiceDoesNotRunAndTheReasonIsSaid) {
    SystemCalls::Fail(SystemCall::kFork, {.error = EAGAIN});
    EXPECT_FALSE(RunService(kSelf, {"--role=report", dir_.path()}));
    EXPECT_THAT(dir_.Names(), IsEmpty());
    const LogMessage reason{2, "execve(/proc/self/exe) failure: Resource temporarily unavailable\n"};
    EXPECT_THAT(FakePlatform::log(), ElementsAre(reason));
}

}  // namespace
}  // namespace bootweave
