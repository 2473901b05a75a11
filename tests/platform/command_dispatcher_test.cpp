// SPDX-License-Identifier: Apache-2.0
#include <csignal>
#include <filesystem>
#include <list>
#include <string>
#include <utility>
#include <vector>

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include "gmock/gmock.h"

#include "platform/cmdgen.h"
#include "tests/support/child_report.h"
#include "tests/support/temp_dir.h"
#include "util/scope_guard.h"
#include "util/signals.h"
#include "util/unique_fd.h"

namespace {

using bootweave::ChangeSignal;
using bootweave::ReadFile;
using bootweave::TempDir;
using Plinth::Cmdgen::CommandInput;
using Plinth::Cmdgen::CommandOutput;
using Plinth::Cmdgen::Dispatcher;
using testing::ElementsAre;
using testing::IsEmpty;

using Errors = std::list<std::string>;
using Words = std::list<std::string>;
using Parameters = std::vector<std::pair<std::string, std::string>>;

class CommandDispatcherTest : public testing::Test {
  protected:
    void SetUp() override { dispatcher_.AddExternalDirectory(dir_.path()); }

    /// What is said when a directory is added; "added" when it was.
    std::string FailureToAdd(const std::string& path) {
        try {
            dispatcher_.AddExternalDirectory(path);
            return "added";
        } catch (const std::exception& error) {
            return error.what();
        }
    }

    Errors Execute(Words path, const Parameters& parameters = {}) {
        const auto input = CommandInput::New();
        const auto output = CommandOutput::New();
        input->SetDispatcher("bootweave");
        input->SetCommandPath(path);
        for (const auto& [name, value] : parameters) {
            input->AddParameter(name, value);
        }
        dispatcher_.ExecuteCommand(input, output);
        EXPECT_EQ(output->HasError(), !output->GetErrors().empty());
        return output->GetErrors();
    }

    /// What keeps the command from being started by a process of `user`.
    [[nodiscard]] Errors Check(Words path, const Parameters& parameters = {},
                               uid_t user = ::geteuid()) const {
        CommandInput input;
        CommandOutput output;
        input.SetCommandPath(path);
        for (const auto& [name, value] : parameters) {
            input.AddParameter(name, value);
        }
        dispatcher_.CheckCommand(input, user, output);
        return output.GetErrors();
    }

    /// Makes the command `name` a program that reports what it was started with.
    void MakeReporter(const std::string& name) const {
        std::filesystem::copy_file("/proc/self/exe", dir_.File(name));
        std::filesystem::permissions(dir_.File(name), std::filesystem::perms(0755));
    }

    void Script(const std::string& name, const std::string& body) const {
        dir_.WriteProgram(name, "#!/bin/sh\n" + body + "\n");
    }

    TempDir dir_;
    Dispatcher dispatcher_;
};

TEST_F(CommandDispatcherTest, TheWordsOfThePathNameTheFile) {
    Script("net.ip.set", "echo ran > " + dir_.File("out"));
    EXPECT_THAT(Execute({"net", "ip", "set"}), IsEmpty());
    EXPECT_EQ("ran\n", ReadFile(dir_.File("out")));
}

TEST_F(CommandDispatcherTest, ACommandGetsItsParametersAsArgumentsInOrder) {
    MakeReporter("a.b");
    const std::string out = dir_.File("out");
    EXPECT_THAT(
        Execute(
            {"a", "b"},
            {{"role", "report"}, {"out", out}, {"k", "2"}, {"k", "1"}, {"n", ""}, {"text", "two  'words'"}}),
        IsEmpty());
    EXPECT_THAT(bootweave::ReadChildReport(out).arguments,
                ElementsAre("--k=2", "--k=1", "--n=", "--text=two  'words'"));
}

TEST_F(CommandDispatcherTest, ACommandStartsInACleanStateOfItsOwn) {
    MakeReporter("a.b.c");
    const std::string out = dir_.File("out");
    const bootweave::UniqueFd inheritable(::open("/dev/null", O_RDONLY));  // not close-on-exec
    sigset_t old_mask;
    sigset_t mask;
    ::sigemptyset(&mask);
    ::sigaddset(&mask, SIGTERM);
    ::pthread_sigmask(SIG_BLOCK, &mask, &old_mask);
    struct sigaction ignore {};
    ignore.sa_handler = SIG_IGN;
    struct sigaction old_pipe {};
    ChangeSignal(SIGPIPE, ignore, &old_pipe);
    EXPECT_THAT(Execute({"a", "b", "c"}, {{"role", "report"}, {"out", out}}), IsEmpty());
    ChangeSignal(SIGPIPE, old_pipe);
    ::pthread_sigmask(SIG_SETMASK, &old_mask, nullptr);

    const bootweave::ChildReport report = bootweave::ReadChildReport(out);
    EXPECT_THAT(report.environment, ElementsAre("PATH=/usr/sbin:/usr/bin:/sbin:/bin",
                                                "HOSTCLI_DISPATCHER=bootweave", "HOSTCLI_COMMAND=a.b.c"));
    ASSERT_EQ(3U, report.descriptors.size());
    EXPECT_EQ("0 /dev/null", report.descriptors[0]);
    EXPECT_EQ("1 " + std::filesystem::read_symlink("/proc/self/fd/1").string(), report.descriptors[1]);
    EXPECT_THAT(report.descriptors[2], testing::StartsWith("2 pipe:"));
    EXPECT_EQ("/", report.directory);
    EXPECT_EQ("0000000000000000", report.blocked_signals);
    EXPECT_EQ("0000000000000000", report.ignored_signals);
}

TEST_F(CommandDispatcherTest, ACommandWritesToTheStandardOutputOfItsCaller) {
    Script("say", "echo hello");
    const bootweave::UniqueFd saved(::dup(STDOUT_FILENO));
    {
        const bootweave::UniqueFd file(
            ::open(dir_.File("out").c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600));
        ASSERT_EQ(STDOUT_FILENO, ::dup2(file.get(), STDOUT_FILENO));
        const bootweave::ScopeGuard restore([&saved] { ::dup2(saved.get(), STDOUT_FILENO); });
        EXPECT_THAT(Execute({"say"}), IsEmpty());
    }
    EXPECT_EQ("hello\n", ReadFile(dir_.File("out")));
}

TEST_F(CommandDispatcherTest, AScriptKnowsItselfByItsPath) {
    Script("a.b", "echo \"$0\" > " + dir_.File("out"));
    EXPECT_THAT(Execute({"a", "b"}), IsEmpty());
    EXPECT_EQ(dir_.File("a.b") + "\n", ReadFile(dir_.File("out")));
}

TEST_F(CommandDispatcherTest, AScriptInADirectoryThatOthersCanWriteRunsAllTheSame) {
    Script("a", "echo ran > " + dir_.File("out"));
    ASSERT_EQ(0, ::chmod(dir_.path().c_str(), 0777));
    EXPECT_THAT(Execute({"a"}), IsEmpty());
    EXPECT_EQ("ran\n", ReadFile(dir_.File("out")));
}

TEST_F(CommandDispatcherTest, StatusZeroIsSuccessWhateverStandardErrorHolds) {
    Script("a", "echo warning >&2");
    EXPECT_THAT(Execute({"a"}), IsEmpty());
}

TEST_F(CommandDispatcherTest, StatusZeroIsSuccessWhenAProcessLeftBehindHoldsStandardError) {
    Script("a", "sleep 60 & echo $! > " + dir_.File("pid"));
    EXPECT_THAT(Execute({"a"}), IsEmpty());
    EXPECT_EQ(0, ::kill(std::stoi(ReadFile(dir_.File("pid"))), SIGKILL));
}

TEST_F(CommandDispatcherTest, EachLineOfStandardErrorIsAnErrorOfAFailedCommand) {
    const std::vector<std::pair<std::string, Errors>> table = {
        {"echo one >&2; echo two >&2; exit 1", {"one", "two"}},
        {"printf 'one\\ntwo' >&2; exit 2", {"one", "two"}},
        {"printf '\\none\\n\\n\\n two \\n' >&2; exit 2", {"one", " two "}},
        {"printf '\\n\\n' >&2; exit 4", {"exited with status 4"}},
        {"exit 3", {"exited with status 3"}},
        {"exit 255", {"exited with status 255"}},
        {"kill -9 $$", {"killed by signal 9"}},
        {"echo dying >&2; kill -15 $$", {"dying"}},
        {"echo out > /dev/null; exit 1", {"exited with status 1"}},
    };
    for (const auto& [body, errors] : table) {
        Script("a", body);
        EXPECT_EQ(errors, Execute({"a"})) << body;
    }
}

TEST_F(CommandDispatcherTest, StandardErrorIsBoundedTo64KiB) {
    Script("a", "head -c 200000 /dev/zero | tr '\\0' x >&2; echo end >&2; exit 1");
    EXPECT_THAT(Execute({"a"}), ElementsAre(std::string(65536, 'x')));
}

TEST_F(CommandDispatcherTest, ErrorsOfAnEarlierCommandStayInASharedOutput) {
    Script("a", "exit 1");
    const auto input = CommandInput::New();
    const auto output = CommandOutput::New();
    Words path{"a"};
    input->SetCommandPath(path);
    dispatcher_.ExecuteCommand(input, output);
    dispatcher_.ExecuteCommand(input, output);
    EXPECT_THAT(output->GetErrors(), ElementsAre("exited with status 1", "exited with status 1"));
}

TEST_F(CommandDispatcherTest, ACommandThatIsNowhereIsUnknown) {
    std::filesystem::create_directory(dir_.File("sub"));
    Script("sub/a.b", "exit 0");
    EXPECT_THAT(Execute({"a", "b", "c"}), ElementsAre("unknown command: a b c"));
    EXPECT_THAT(Execute({"a", "b"}), ElementsAre("unknown command: a b"));  // directories are not searched
    EXPECT_THAT(Execute({}), ElementsAre("unknown command: "));
}

TEST_F(CommandDispatcherTest, WordsThatNoCommandCanHaveNameNoFile) {
    TempDir other;
    other.WriteProgram("a", "#!/bin/sh\n");
    std::filesystem::create_directory(dir_.File("sub"));
    Script("sub/a", "exit 0");
    Script("a.b", "exit 0");
    EXPECT_THAT(Execute({"sub/a"}), ElementsAre("unknown command: sub/a"));
    EXPECT_THAT(
        Execute({"../" + std::filesystem::path(other.path()).filename().string() + "/a"}),
        ElementsAre("unknown command: ../" + std::filesystem::path(other.path()).filename().string() + "/a"));
    EXPECT_THAT(Execute({"a.b"}), ElementsAre("unknown command: a.b"));
    EXPECT_THAT(Execute({"", ""}), ElementsAre("unknown command:  "));
}

TEST_F(CommandDispatcherTest, TheFirstDirectoryThatHasTheNameWins) {
    TempDir second;
    dispatcher_.AddExternalDirectory(second.path());
    second.WriteProgram("a", "#!/bin/sh\necho second >&2; exit 1\n");
    EXPECT_THAT(Execute({"a"}), ElementsAre("second"));
    Script("a", "echo first >&2; exit 1");
    EXPECT_THAT(Execute({"a"}), ElementsAre("first"));
}

TEST_F(CommandDispatcherTest, AnUntrustedFileHidesAGoodOneInALaterDirectory) {
    TempDir second;
    dispatcher_.AddExternalDirectory(second.path());
    second.WriteProgram("a.b.c", "#!/bin/sh\nexit 0\n");
    dir_.WriteFile("a.b.c", "#!/bin/sh\nexit 0\n");
    EXPECT_THAT(Execute({"a", "b", "c"}), ElementsAre("a.b.c: not a trusted executable"));
}

TEST_F(CommandDispatcherTest, AFileThatCannotBeExecutedHasTheSystemsErrorText) {
    dir_.WriteProgram("a.interpreter", "#!/no/such/interpreter\n");
    dir_.WriteProgram("a.format", "echo no shell stands in\n");
    dir_.WriteProgram("a.busy", "#!/bin/sh\n");
    EXPECT_THAT(Execute({"a", "interpreter"}), ElementsAre("a.interpreter: No such file or directory"));
    EXPECT_THAT(Execute({"a", "format"}), ElementsAre("a.format: Exec format error"));
    const bootweave::UniqueFd writer(::open(dir_.File("a.busy").c_str(), O_WRONLY | O_CLOEXEC));
    EXPECT_THAT(Execute({"a", "busy"}), ElementsAre("a.busy: Text file busy"));
}

TEST_F(CommandDispatcherTest, AnArgumentThatCannotReachTheCommandWholeIsAnError) {
    Script("a.b", "echo ran > " + dir_.File("out"));
    EXPECT_THAT(Execute({"a", "b"}, {{"x", std::string("y\0z", 3)}}), ElementsAre("a.b: Invalid argument"));
    EXPECT_THAT(Execute({"a", "b"}, {{"x", std::string(1048576, 'y')}}),
                ElementsAre("a.b: Argument list too long"));
    EXPECT_THAT(dir_.Names(), ElementsAre("a.b"));
}

TEST_F(CommandDispatcherTest, AnExternalDirectoryMustBeADirectoryThatCanBeRead) {
    dir_.WriteFile("file", "");
    EXPECT_EQ("No such file or directory", FailureToAdd(dir_.File("missing")));
    EXPECT_EQ("Not a directory", FailureToAdd(dir_.File("file")));
    EXPECT_EQ("added", FailureToAdd(dir_.path()));
    if (::geteuid() != 0) {
        std::filesystem::create_directory(dir_.File("closed"));
        ASSERT_EQ(0, ::chmod(dir_.File("closed").c_str(), 0300));
        EXPECT_EQ("Permission denied", FailureToAdd(dir_.File("closed")));
    }
}

TEST_F(CommandDispatcherTest, ADirectoryIsAddedAlsoWhenThereIsNoDescriptorToBeHad) {
#ifdef __SANITIZE_ADDRESS__
    GTEST_SKIP() << "the sanitizer needs descriptors to tell what an object is";
#endif
    TempDir second;
    second.WriteProgram("a", "#!/bin/sh\necho second >&2; exit 1\n");
    const std::string file = second.WriteFile("file", "");
    struct rlimit before {};
    ASSERT_EQ(0, ::getrlimit(RLIMIT_NOFILE, &before));
    const struct rlimit none { 0, before.rlim_max };
    ASSERT_EQ(0, ::setrlimit(RLIMIT_NOFILE, &none));
    const std::string added = FailureToAdd(second.path());
    const std::string not_added = FailureToAdd(file) + ", " + FailureToAdd(second.File("missing"));
    ASSERT_EQ(0, ::setrlimit(RLIMIT_NOFILE, &before));
    EXPECT_EQ("added", added);
    EXPECT_EQ("Not a directory, No such file or directory", not_added);
    EXPECT_THAT(Execute({"a"}), ElementsAre("second"));
}

TEST_F(CommandDispatcherTest, ADirectoryThatGoesAwayAfterwardsHasNoCommands) {
    TempDir second;
    dispatcher_.AddExternalDirectory(second.path());
    std::filesystem::remove_all(second.path());
    EXPECT_THAT(Execute({"a"}), ElementsAre("unknown command: a"));
}

TEST_F(CommandDispatcherTest, ARelativeDirectoryStaysWhereItWasWhenItWasAdded) {
    Dispatcher dispatcher;
    const auto old = std::filesystem::current_path();
    std::filesystem::current_path(dir_.path());
    dispatcher.AddExternalDirectory(".");
    std::filesystem::current_path(old);
    Script("a", "exit 9");
    const auto input = CommandInput::New();
    const auto output = CommandOutput::New();
    Words path{"a"};
    input->SetCommandPath(path);
    dispatcher.ExecuteCommand(input, output);
    EXPECT_THAT(output->GetErrors(), ElementsAre("exited with status 9"));
}

TEST_F(CommandDispatcherTest, ACheckRunsNothing) {
    Script("net.ip.set", "echo ran > " + dir_.File("out"));
    EXPECT_THAT(Check({"net", "ip", "set"}), IsEmpty());
    EXPECT_THAT(dir_.Names(), ElementsAre("net.ip.set"));
}

TEST_F(CommandDispatcherTest, ACheckHasTheErrorsOfACommandThatIsNotStarted) {
    const TempDir later;
    later.WriteProgram("a.b", "#!/bin/sh\n");
    dispatcher_.AddExternalDirectory(later.path());
    dir_.WriteFile("a.b", "");
    dir_.WriteProgram("zero", "#!/bin/sh\n");
    const Parameters zero{{"x", std::string("a\0b", 3)}};
    EXPECT_THAT(Check({"a", "b"}), ElementsAre("a.b: not a trusted executable"));
    EXPECT_THAT(Check({"a", "b", "c"}), ElementsAre("unknown command: a b c"));
    EXPECT_THAT(Check({"..", "b"}), ElementsAre("unknown command: .. b"));
    EXPECT_THAT(Check({"zero"}, zero), ElementsAre("zero: Invalid argument"));
    EXPECT_EQ(Execute({"a", "b"}), Check({"a", "b"}));
    EXPECT_EQ(Execute({"a", "b", "c"}), Check({"a", "b", "c"}));
    EXPECT_EQ(Execute({"zero"}, zero), Check({"zero"}, zero));
}

TEST_F(CommandDispatcherTest, ACheckTrustsWhomTheProcessWouldTrustThatRunsTheCommand) {
    if (::geteuid() != 0) {
        GTEST_SKIP() << "only root can give files away";
    }
    Script("a", "true");
    EXPECT_THAT(Check({"a"}, {}, 1), IsEmpty());
    ASSERT_EQ(0, ::chown(dir_.File("a").c_str(), 1, 1));
    EXPECT_THAT(Check({"a"}, {}, 1), IsEmpty());
    EXPECT_THAT(Check({"a"}, {}, 2), ElementsAre("a: not a trusted executable"));
    EXPECT_THAT(Check({"a"}, {}, 0), ElementsAre("a: not a trusted executable"));
}

}  // namespace
