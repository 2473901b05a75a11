// SPDX-License-Identifier: Apache-2.0
#include "platform/linux/command_process.h"

#include <cerrno>
#include <chrono>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <iterator>

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/wait.h>

#include "gmock/gmock.h"

#include "tests/support/temp_dir.h"
#include "util/exception.h"

namespace {

bool g_kernel_has_pidfd = true;

}  // namespace

// NOLINTBEGIN(bugprone-reserved-identifier,readability-identifier-naming)
extern "C" {
int __real_pidfd_open(pid_t pid, unsigned flags);
int __wrap_pidfd_open(pid_t pid, unsigned flags);

int __wrap_pidfd_open(pid_t pid, unsigned flags) {
    if (!g_kernel_has_pidfd) {
        errno = ENOSYS;
        return -1;
    }
    return __real_pidfd_open(pid, flags);
}
}
// NOLINTEND(bugprone-reserved-identifier,readability-identifier-naming)

namespace bootweave {
namespace {

using namespace std::chrono_literals;
using std::chrono::steady_clock;

constexpr std::size_t kBound = 65536;
constexpr auto kLong = 60s;  ///< what is left behind lives this long

SpawnOptions Shell(const std::string& script) {
    SpawnOptions options;
    options.path = "/bin/sh";
    options.argv = {"sh", "-c", script};
    options.environment = {"PATH=/usr/bin:/bin"};
    return options;
}

CapturedRun RunScript(const std::string& script) {
    return RunCapturingErrors(Shell(script), kBound);
}

std::ptrdiff_t OpenDescriptors() {
    return std::distance(std::filesystem::directory_iterator("/proc/self/fd"), {});
}

std::chrono::microseconds ProcessorTime() {
    rusage usage{};
    ::getrusage(RUSAGE_SELF, &usage);
    return std::chrono::seconds(usage.ru_utime.tv_sec + usage.ru_stime.tv_sec) +
           std::chrono::microseconds(usage.ru_utime.tv_usec + usage.ru_stime.tv_usec);
}

/// Each fact holds on a kernel with descriptors for processes and on one without.
class CommandProcessTest : public testing::TestWithParam<bool> {
  protected:
    CommandProcessTest() { g_kernel_has_pidfd = GetParam(); }
    ~CommandProcessTest() override { g_kernel_has_pidfd = true; }

    void TearDown() override {
        EXPECT_EQ(descriptors_, OpenDescriptors());
        EXPECT_EQ(-1, ::waitpid(-1, nullptr, WNOHANG));
        EXPECT_EQ(ECHILD, errno);
    }

    /// Ends the process whose id the script wrote down; fails when it is not there any more.
    void EndLeftBehind() const {
        pid_t pid = -1;
        std::ifstream(dir_.File("pid")) >> pid;
        ASSERT_GT(pid, 1);
        EXPECT_EQ(0, ::kill(pid, SIGKILL));
    }

    std::ptrdiff_t descriptors_ = OpenDescriptors();
    TempDir dir_;
};

INSTANTIATE_TEST_SUITE_P(, CommandProcessTest, testing::Bool(),
                         [](const auto& test) { return test.param ? "WithPidfd" : "WithoutPidfd"; });

TEST_P(CommandProcessTest, TellsHowTheProgramEndedAndWhatItWroteToStandardError) {
    const CapturedRun exited = RunScript("echo one >&2; printf two >&2; exit 3");
    EXPECT_EQ(3, exited.status.code);
    EXPECT_EQ("one\ntwo", exited.error_output);
    const CapturedRun killed = RunScript("echo before >&2; kill -9 $$");
    EXPECT_EQ(9, killed.status.signal);
    EXPECT_EQ("before\n", killed.error_output);
    const CapturedRun quiet = RunScript("exit 0");
    EXPECT_TRUE(quiet.status.success());
    EXPECT_EQ("", quiet.error_output);
}

TEST_P(CommandProcessTest, OutputBeyondTheBoundIsDroppedWithoutBlockingTheProgram) {
    const CapturedRun run = RunScript("head -c 1000000 /dev/zero | tr '\\0' x >&2; echo end >&2; exit 4");
    EXPECT_EQ(4, run.status.code);
    EXPECT_EQ(std::string(kBound, 'x'), run.error_output);
}

TEST_P(CommandProcessTest, OutputThatIsStillInThePipeAtTheEndIsRead) {
    // As much as a pipe holds, written at once, so that the end is as near as it can be.
    const CapturedRun run = RunScript("exec dd if=/dev/zero bs=65536 count=1 status=none of=/proc/self/fd/2");
    EXPECT_EQ(std::string(kBound, '\0'), run.error_output);
}

TEST_P(CommandProcessTest, AProcessLeftBehindWithStandardErrorOpenIsNotWaitedFor) {
    const auto begin = steady_clock::now();
    const CapturedRun run = RunScript("sleep 60 & echo $! > " + dir_.File("pid") + "; echo said >&2; exit 5");
    EXPECT_LT(steady_clock::now() - begin, kLong / 2);
    EXPECT_EQ(5, run.status.code);
    EXPECT_EQ("said\n", run.error_output);
    EndLeftBehind();
}

TEST_P(CommandProcessTest, AProcessLeftBehindThatNeverStopsWritingDoesNotHoldUpTheReturn) {
    const auto begin = steady_clock::now();
    const CapturedRun run = RunScript("yes >&2 & exit 0");  // ends by a broken pipe
    EXPECT_LT(steady_clock::now() - begin, kLong / 2);
    EXPECT_TRUE(run.status.success());
}

TEST_P(CommandProcessTest, AProgramWithoutStandardErrorIsWaitedForInTheKernel) {
    const auto begin = ProcessorTime();
    const CapturedRun run = RunScript("exec 2>&-; sleep 1; exit 6");
    EXPECT_LT(ProcessorTime() - begin, 500ms);
    EXPECT_EQ(6, run.status.code);
}

TEST_P(CommandProcessTest, AProgramThatCannotBeStartedIsTheSystemsErrorText) {
    SpawnOptions options = Shell("");
    options.path = dir_.File("missing");
    try {
        static_cast<void>(RunCapturingErrors(std::move(options), kBound));
        ADD_FAILURE() << "started";
    } catch (const Exception& error) {
        EXPECT_STREQ("No such file or directory", error.what());
    }
}

TEST_P(CommandProcessTest, RunsInOneProcessFollowEachOther) {
    for (int i = 0; i < 50; ++i) {
        const CapturedRun run = RunScript("echo x >&2; exit 1");
        ASSERT_EQ(1, run.status.code);
        ASSERT_EQ("x\n", run.error_output);
    }
}

}  // namespace
}  // namespace bootweave
