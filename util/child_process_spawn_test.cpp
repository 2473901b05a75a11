// SPDX-License-Identifier: Apache-2.0
// What a program that is started finds, and what happens when it cannot be started.
#include "util/child_process.h"

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <set>
#include <string>

#include <fcntl.h>
#include <sys/syscall.h>
#include <unistd.h>

#include "gmock/gmock.h"
#include "tests/support/temp_dir.h"
#include "tests/support/test_main.h"
#include "util/child_process_test_support.h"
#include "util/signals.h"
#include "util/unique_fd.h"

namespace bootweave {
namespace {

using testing::ElementsAre;

/// Ends well if this process has signals ignored and a program that it starts has none.
int StartReporter(int /*argc*/, char** /*argv*/) {
    const bool any_here = StatusLine("SigIgn") != kNoSignals;
    const bool none_there =
        Lines(OutputOf(Role("report")), "ignored") == std::vector<std::string>{kNoSignals};
    return any_here && none_there ? 0 : 1;
}

const bool kRegistered = RegisterChildRole("start-reporter", StartReporter);

TEST(ChildProcessSpawnTest, AProgramGetsItsArgumentsAndOnlyTheEnvironmentGiven) {
    SpawnOptions options = Role("report", {"one", "", "two words"});
    options.environment = {"A=1", "B="};
    const std::string report = OutputOf(options);
    EXPECT_THAT(Lines(report, "argument"), ElementsAre("one", "", "two words"));
    EXPECT_THAT(Lines(report, "environment"), ElementsAre("A=1", "B="));
    EXPECT_THAT(Lines(OutputOf(Role("report")), "environment"), ElementsAre());
}

TEST(ChildProcessSpawnTest, AProgramMayInheritTheEnvironment) {
    ASSERT_EQ(0, ::setenv("BOOTWEAVE_TEST_VARIABLE", "kept", 1));
    SpawnOptions options = Role("report");
    options.environment = {"A=1"};
    options.inherit_environment = true;
    const std::string report = OutputOf(options);
    EXPECT_THAT(Lines(report, "environment"), testing::Contains("BOOTWEAVE_TEST_VARIABLE=kept"));
    EXPECT_THAT(Lines(report, "environment"), testing::Not(testing::Contains("A=1")));
    ::unsetenv("BOOTWEAVE_TEST_VARIABLE");
}

TEST(ChildProcessSpawnTest, AProgramStartsInTheDirectoryGiven) {
    const TempDir dir;
    SpawnOptions options = Role("report");
    options.directory = dir.path().c_str();
    EXPECT_THAT(Lines(OutputOf(options), "directory"), ElementsAre(dir.path()));
    options.directory = nullptr;
    char own[4096];
    EXPECT_THAT(Lines(OutputOf(options), "directory"), ElementsAre(::getcwd(own, sizeof own)));
}

TEST(ChildProcessSpawnTest, AProgramStartsWithDefaultDispositionsAndAnEmptyMask) {
    const DisturbedSignals disturbed;
    const std::string report = OutputOf(Role("report"));
    EXPECT_THAT(Lines(report, "blocked"), ElementsAre(kNoSignals));
    EXPECT_THAT(Lines(report, "ignored"), ElementsAre(kNoSignals));
}

/// As a parent that was careless with the C library's own signals leaves it.
void IgnoreASignalOfTheLibrary() {
    const unsigned long ignore[8] = {1};
    ::syscall(SYS_rt_sigaction, 33, ignore, nullptr, 8);
}

TEST(ChildProcessSpawnTest, AProgramThatWasStartedWithIgnoredSignalsStartsOthersWithout) {
    // The start with everything ignored must be this program's own: it looks once.
    auto started = ChildProcess::Fork([] {
        IgnoreASignalOfTheLibrary();
        for (const int number : {SIGHUP, SIGUSR2, SIGRTMIN}) {
            ::signal(number, SIG_IGN);
        }
        ::execl("/proc/self/exe", "test", "--role=start-reporter", nullptr);
        return 1;
    });
    ASSERT_TRUE(started.has_value());
    EXPECT_EQ(0, started->Wait());
}

TEST(ChildProcessSpawnTest, ResetSignalsLeavesNoneIgnoredAndNoneBlocked) {
    const DisturbedSignals disturbed;
    auto child = ChildProcess::Fork([] {
        IgnoreASignalOfTheLibrary();
        const bool was_ignored = StatusLine("SigIgn") != kNoSignals && StatusLine("SigBlk") != kNoSignals;
        ResetSignals();
        return was_ignored && StatusLine("SigIgn") == kNoSignals && StatusLine("SigBlk") == kNoSignals &&
                       StatusLine("SigCgt") == kNoSignals
                   ? 0
                   : 1;
    });
    ASSERT_TRUE(child.has_value());
    EXPECT_EQ(0, child->Wait());
}

TEST(ChildProcessSpawnTest, AProgramHasExactlyTheDescriptorsMeantForIt) {
    const UniqueFd inheritable(::open("/dev/null", O_RDWR));  // not close-on-exec: somebody was careless
    const UniqueFd high(::fcntl(inheritable.get(), F_DUPFD, 200));
    ASSERT_TRUE(high.valid());
    EXPECT_THAT(Lines(OutputOf(Role("report")), "descriptors"), ElementsAre("1"));

    SpawnOptions options = Role("report");
    options.descriptors = {{inheritable.get(), STDIN_FILENO}, {STDERR_FILENO, STDERR_FILENO}};
    EXPECT_THAT(Lines(OutputOf(options), "descriptors"), ElementsAre("0 1 2"));

    options.descriptors = {{inheritable.get(), 9}, {inheritable.get(), 5}};
    EXPECT_THAT(Lines(OutputOf(options), "descriptors"), ElementsAre("1 5 9"));
}

TEST(ChildProcessSpawnTest, DescriptorsAreHandedOverAsIfAllAtOnce) {
    const TempDir dir;
    const UniqueFd a(::open(dir.WriteFile("a", "a\n").c_str(), O_RDONLY | O_CLOEXEC));
    const UniqueFd b(::open(dir.WriteFile("b", "b\n").c_str(), O_RDONLY | O_CLOEXEC));
    SpawnOptions options = Role("read-descriptors", {std::to_string(a.get()), std::to_string(b.get())});
    options.descriptors = {{a.get(), b.get()}, {b.get(), a.get()}};
    EXPECT_EQ("b\na\n", OutputOf(options)) << "they should have changed places";
}

TEST(ChildProcessSpawnTest, StartingLeavesNoDescriptorBehind) {
    const std::set<int> before = OpenDescriptors();
    OutputOf(Role("report"));
    SpawnOptions missing = Program("/nonexistent/program");
    missing.descriptors = {{STDERR_FILENO, 0}, {STDERR_FILENO, 1}, {STDERR_FILENO, 2}};
    EXPECT_EQ(ENOENT, SpawnError(missing));
    EXPECT_EQ(before, OpenDescriptors());
}

TEST(ChildProcessSpawnTest, AProgramThatCannotBeStartedIsAnErrorOfTheCall) {
    const TempDir dir;
    const auto error = [&](const std::string& path) { return SpawnError(Program(path)); };
    EXPECT_EQ(ENOENT, error("/nonexistent/program"));
    EXPECT_EQ(ENOENT, error(""));
    EXPECT_EQ(ENOENT, error("true")) << "there is no search";
    EXPECT_EQ(EACCES, error(dir.WriteFile("plain", "text")));
    EXPECT_EQ(EACCES, error(dir.path()));
    EXPECT_EQ(ENOEXEC, error(dir.WriteProgram("script", "echo no interpreter line\n")));
    EXPECT_EQ(ENOEXEC, error(dir.WriteProgram("empty", "")));
    EXPECT_EQ(ENOENT, error(dir.WriteProgram("bad", "#!/nonexistent/interpreter\n")));

    SpawnOptions elsewhere = Role("report");
    elsewhere.directory = "/nonexistent";
    EXPECT_EQ(ENOENT, SpawnError(elsewhere));
    SpawnOptions closed = Role("report");
    closed.descriptors = {{999, 0}};
    EXPECT_EQ(EBADF, SpawnError(closed));
    EXPECT_TRUE(HasNoChild()) << "a failed start left a zombie";
}

TEST(ChildProcessSpawnTest, ADetachedProgramIsNoChildOfThisProcess) {
    Pipe pipe = Pipe::Create();
    SpawnOptions options = Role("report", {"detached"});
    options.descriptors = {{pipe.write_end.get(), STDOUT_FILENO}};
    EXPECT_TRUE(ChildProcess::SpawnDetached(options));
    EXPECT_TRUE(HasNoChild());
    pipe.write_end.Reset();
    EXPECT_THAT(Lines(ReadToEnd(pipe.read_end), "argument"), ElementsAre("detached"));
}

TEST(ChildProcessSpawnTest, ADetachedProgramThatCannotBeStartedIsAnErrorOfTheCall) {
    const TempDir dir;
    EXPECT_FALSE(ChildProcess::SpawnDetached(Program("/nonexistent/program")));
    EXPECT_EQ(ENOENT, errno);
    EXPECT_FALSE(ChildProcess::SpawnDetached(Program(dir.WriteProgram("script", "echo\n"))));
    EXPECT_EQ(ENOEXEC, errno);
    EXPECT_TRUE(HasNoChild());
}

}  // namespace
}  // namespace bootweave
