// SPDX-License-Identifier: Apache-2.0
#include "driver/driver.h"

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include <sys/stat.h>
#include <unistd.h>

#include "gmock/gmock.h"
#include "tests/support/executor_sandbox.h"
#include "tests/support/fake_platform.h"
#include "tests/support/system_calls.h"
#include "util/child_process.h"
#include "util/retry.h"
#include "util/run_config.h"
#include "util/unique_fd.h"

namespace {

bool g_chdir_fails = false;

/// The records of the machine that runs the tests are not to be written.
bool IsInTemporaryDirectory(const char* path) {
    return std::string_view(path).starts_with(std::filesystem::temp_directory_path().string());
}

}  // namespace

// The linker gives these names to the wrapped functions.
extern "C" {
// NOLINTBEGIN(bugprone-reserved-identifier)
int __real_chdir(const char* path);
int __wrap_chdir(const char* path);
int __real_mkostemp64(char* pattern, int flags);
int __wrap_mkostemp64(char* pattern, int flags);
int __real_mkstemp64(char* pattern);
int __wrap_mkstemp64(char* pattern);

int __wrap_chdir(const char* path) {
    if (g_chdir_fails) {
        errno = EACCES;
        return -1;
    }
    return __real_chdir(path);
}

int __wrap_mkostemp64(char* pattern, int flags) {
    if (!IsInTemporaryDirectory(pattern)) {
        errno = EROFS;
        return -1;
    }
    return __real_mkostemp64(pattern, flags);
}

int __wrap_mkstemp64(char* pattern) {
    if (!IsInTemporaryDirectory(pattern)) {
        errno = EROFS;
        return -1;
    }
    return __real_mkstemp64(pattern);
}
// NOLINTEND(bugprone-reserved-identifier)
}

namespace bootweave {
namespace {

using testing::IsEmpty;

constexpr const char* kLaunched =
    "5 Launching Executor\n"
    "5 Setting up Executor - Reset Requested\n";
constexpr const char* kFinished =
    "5 Executor has been Successfully Stopped\n"
    "call EndAutoConf()\n"
    "call CleanupBootState()\n";

/// What became of one run.
struct Outcome {
    int status;
    std::string output;
    std::string
        lines;  ///< everything the run said to its platform, and "call NAME" for the configuration store
};

/// Runs of the whole program, each in a child.
class DriverTest : public testing::Test {
  protected:
    void SetUp() override {
        g_chdir_fails = false;
        std::filesystem::create_directory(sandbox_.dir().File("plugins"));
        sandbox_.AddCommand("good", "exit 0");
    }

    void AddPlugin(const std::string& file_name, const std::string& command) const {
        sandbox_.dir().WriteFile("plugins/" + file_name,
                                 R"({"metadata": {"version": 1, "requires": [], "provides": []},
                                     "operations": {"start": [")" +
                                     command + R"("]}})");
    }
    [[nodiscard]] std::string Directory() const {
        return "--plugin-directory=" + sandbox_.dir().File("plugins");
    }

    /// How many workers a parallel run has, on a host of so many processors, for this many plugins.
    int ThreadsOf(int plugins, std::uint32_t processors) const {
        std::string names;
        for (int i = 0; i < plugins; ++i) {
            const std::string name = "p" + std::to_string(i) + ".json";
            AddPlugin(name, "good");
            names += (i == 0 ? "" : ",") + name;
        }
        auto child = ChildProcess::Fork([&] {
            FakePlatform::Reset();
            FakePlatform::SetProcessorCount(processors);
            *RunConfig::Instance() = RunConfig();
            std::vector<std::string> arguments{"bootweave", "--parallel", "--method=none",
                                               "--plugin=" + names, Directory()};
            const int status = RunAndReport(arguments);
            return status == 0 ? static_cast<int>(RunConfig::Instance()->threads) : -1;
        });
        const int threads = ExitStatus::FromRaw(child->Wait().value_or(-1)).code.value_or(-1);
        std::filesystem::remove(sandbox_.socket_path());
        return threads;
    }
    /// \param prepare  runs in the child before the program does
    Outcome Run(
        std::vector<std::string> arguments, const std::function<void()>& prepare = [] {}) {
        arguments.insert(arguments.begin(), "bootweave");
        Pipe lines = Pipe::Create();
        Pipe output = Pipe::Create();
        auto child = ChildProcess::Fork([&] {
            ::dup2(output.write_end.get(), STDOUT_FILENO);
            ::dup2(lines.write_end.get(), STDERR_FILENO);  // where a child of the sandbox says everything
            FakePlatform::Reset();
            FakePlatform::EchoTo(STDERR_FILENO);
            *RunConfig::Instance() = RunConfig();
            prepare();
            return RunAndReport(arguments);
        });
        lines.write_end.Reset();
        output.write_end.Reset();
        Outcome outcome;
        outcome.lines = ReadToEnd(lines.read_end);
        outcome.output = ReadToEnd(output.read_end);
        outcome.status = ExitStatus::FromRaw(child->Wait().value_or(-1)).code.value_or(-1);
        return outcome;
    }

    const ExecutorSandbox sandbox_;

  private:
    static int RunAndReport(std::vector<std::string>& arguments) {
        std::vector<char*> argv;
        for (std::string& argument : arguments) {
            argv.push_back(argument.data());
        }
        argv.push_back(nullptr);
        const int status = RunBootweave(static_cast<int>(arguments.size()), argv.data());
        for (const std::string& call : FakePlatform::calls()) {
            if (call == "EndAutoConf()" || call == "CleanupBootState()") {
                const std::string line = "call " + call + "\n";
                if (::write(STDERR_FILENO, line.data(), line.size()) < 0) {
                    return 99;
                }
            }
        }
        return status;
    }
    static std::string ReadToEnd(const UniqueFd& end) {
        std::string text;
        char buffer[4096];
        ssize_t count = 0;
        while ((count = RetryOnEintr([&] { return ::read(end.get(), buffer, sizeof buffer); })) > 0) {
            text.append(buffer, static_cast<std::size_t>(count));
        }
        return text;
    }
};

TEST_F(DriverTest, APlainRunActivatesTheDirectoryAndEndsTheBoot) {
    AddPlugin("net.json", "good");
    const Outcome outcome = Run({Directory()});
    EXPECT_EQ(0, outcome.status);
    EXPECT_EQ(std::string(kLaunched) +
                  "screen progress: Activating Bootweave Plugins\n"
                  "screen status: \n"
                  "kernel Activating Bootweave plugin net.\n"
                  "5 executing start plugin: net\n"
                  "kernel Bootweave plugin net activated.\n"
                  "2 unable to open profiling log (/var/log/sysboot.log): Read-only file system.\n" +
                  kFinished,
              outcome.lines);
    EXPECT_EQ("exited with status 0", ExecutorSandbox::WaitForEnd());
}

TEST_F(DriverTest, FailedPluginsDoNotFailTheRun) {
    AddPlugin("net.json", "bad");
    const Outcome outcome = Run({"--invoke", "--method=start", "--plugin=net.json", Directory()});
    EXPECT_EQ(0, outcome.status);
    EXPECT_EQ(std::string(kLaunched) +
                  "screen progress: Activating Bootweave Plugins\n"
                  "screen status: \n"
                  "kernel Activating Bootweave plugin net.\n"
                  "5 executing start plugin: net\n"
                  "2 Executor failed executing hostcli command: bad\n"
                  "2 Method invocation failed: net->start() failed: error while executing the cli\n"
                  "kernel Bootweave plugin net activation failed: Method invocation failed\n" +
                  kFinished,
              outcome.lines);
}

TEST_F(DriverTest, AFileThatCannotBeLoadedIsALineAndTheOthersRun) {
    AddPlugin("net.json", "good");
    sandbox_.dir().WriteFile("plugins/bad.json", "[]");
    const std::string directory = sandbox_.dir().File("plugins");
    const Outcome outcome =
        Run({"--invoke", "--method=none", "--plugin=bad.json,none.json,net.json", Directory()});
    EXPECT_EQ(0, outcome.status);
    EXPECT_EQ(std::string(kLaunched) + "2 plugin `" + directory +
                  "/bad.json' is invalid: plugin root is not an object\n"
                  "2 plugin `" +
                  directory +
                  "/none.json' is invalid: no such file or directory\n"
                  "screen progress: Activating Bootweave Plugins\n"
                  "screen status: \n"
                  "kernel Activating Bootweave plugin net.\n"
                  "kernel Bootweave plugin net activated.\n" +
                  kFinished,
              outcome.lines);
}

TEST_F(DriverTest, AMissingPluginDirectoryEndsTheRunAndLeavesTheExecutor) {
    const Outcome outcome = Run({"--plugin-directory=/no/such"});
    EXPECT_EQ(1, outcome.status);
    EXPECT_EQ(
        std::string(kLaunched) +
            "3 Failed to initialize bootweave: filesystem error: directory iterator cannot open directory:"
            " No such file or directory [/no/such]\n",
        outcome.lines);
    EXPECT_EQ(1U, ExecutorSandbox::Executors().size());
}

TEST_F(DriverTest, WithoutAnExecutorTheRunEndsAtOnce) {
    SystemCalls::Fail(SystemCall::kListen, {.error = EADDRINUSE, .in_child = true});
    const Outcome refused = Run({Directory()});
    EXPECT_EQ(1, refused.status);
    EXPECT_EQ(std::string(kLaunched) + "3 Failed to start executor Bootweave executor failed to start\n",
              refused.lines);

    SystemCalls::Fail(SystemCall::kConnect, {.error = SystemFault::kRaise, .in_child = true});
    const Outcome raised = Run({Directory()});
    EXPECT_EQ(1, raised.status);
    EXPECT_EQ("5 Launching Executor\n3 Failed to start executor\n", raised.lines);
}

TEST_F(DriverTest, WhatIsNoExceptionOfOursEndsTheRunToo) {
    // The first connection asks whether there is an executor already, the second one is to stop it.
    SystemCalls::Fail(SystemCall::kConnect, {.error = SystemFault::kRaise, .skip = 1, .in_child = true});
    const Outcome outcome = Run({"--invoke", "--method=none", "--plugin=none", Directory()});
    EXPECT_EQ(1, outcome.status);
    EXPECT_EQ(std::string(kLaunched) +
                  "3 ignoring plugin 'none' of unspecified type...\n"
                  "screen progress: Activating Bootweave Plugins\n"
                  "screen status: \n"
                  "3 Failed to initialize bootweave\n",
              outcome.lines);
}

TEST_F(DriverTest, TheRunLeavesItsDirectoryAndSession) {
    AddPlugin("net.json", "good");
    // A plugin directory that is relative belongs to the directory that the run leaves.
    const std::string start = sandbox_.dir().path();
    const Outcome relative =
        Run({"--invoke", "--method=none", "--plugin=net.json", "--plugin-directory=plugins"},
            [&] { std::filesystem::current_path(start); });
    EXPECT_EQ(0, relative.status);
    EXPECT_THAT(relative.lines, testing::HasSubstr("Bootweave plugin net activated."));
    std::filesystem::remove(sandbox_.socket_path());

    const Outcome empty = Run({"--invoke", "--method=none", "--plugin=net.json", "--plugin-directory="},
                              [&] { std::filesystem::current_path(start + "/plugins"); });
    EXPECT_EQ(0, empty.status);
    EXPECT_THAT(empty.lines, testing::HasSubstr("Bootweave plugin net activated."));
}

TEST_F(DriverTest, ADirectoryAndASessionThatCannotBeLeftAreLines) {
    g_chdir_fails = true;
    const Outcome outcome =
        Run({"--invoke", "--method=none", "--plugin=none", Directory()}, [] { ::setpgid(0, 0); });
    EXPECT_EQ(0, outcome.status);
    EXPECT_EQ(std::string(kLaunched) +
                  "5 unable to change filesystem root: Permission denied.\n"
                  "5 unable to create session: Operation not permitted.\n"
                  "3 ignoring plugin 'none' of unspecified type...\n"
                  "screen progress: Activating Bootweave Plugins\n"
                  "screen status: \n" +
                  kFinished,
              outcome.lines);
}

TEST_F(DriverTest, AParallelRunHasTwoWorkersPerProcessorButNoMoreThanPlugins) {
    EXPECT_EQ(3, ThreadsOf(3, 16));
    EXPECT_EQ(8, ThreadsOf(8, 16));
    EXPECT_EQ(8, ThreadsOf(100, 4));
}

TEST_F(DriverTest, ADumpRunsNothingAndFinishesAllTheSame) {
    AddPlugin("net.json", "good");
    const std::string path = sandbox_.dir().File("dump");
    const std::vector<std::string> arguments{"--invoke", "--method=start", "--plugin=net.json", Directory()};
    std::vector<std::string> good = arguments;
    good.push_back("--dump-dependency-tree=" + path);
    const Outcome written = Run(good);
    EXPECT_EQ(0, written.status);
    EXPECT_EQ(std::string(kLaunched) + kFinished, written.lines);
    EXPECT_EQ("", written.output);
    const auto is_graph = testing::MatchesRegex("digraph g \\{\n[0-9]+ \\[label=\"net\"\\];\n\\}\n");
    EXPECT_THAT(ReadFile(path), is_graph);
    std::filesystem::remove(sandbox_.socket_path());

    std::vector<std::string> bad = arguments;
    bad.push_back("--dump-dependency-tree=");
    const Outcome refused = Run(bad);
    EXPECT_EQ(1, refused.status);
    EXPECT_EQ(std::string(kLaunched) + kFinished, refused.lines);
    std::filesystem::remove(sandbox_.socket_path());

    std::vector<std::string> console = arguments;
    console.emplace_back("--dump-dependency-tree");
    EXPECT_THAT(Run(console).output, is_graph);
}

TEST_F(DriverTest, WrongUsageStartsNothing) {
    const Outcome usage = Run({"--nonsense"});
    EXPECT_EQ(1, usage.status);
    EXPECT_EQ(
        "bootweave: unrecognized option '--nonsense'\n"
        "usage: bootweave --help for usage information\n",
        usage.lines);
    EXPECT_EQ(0, Run({"--help"}).status);
    EXPECT_EQ("2 Invalid combination of options passed. Exiting\n", Run({"--daemon"}).lines);
    EXPECT_THAT(ExecutorSandbox::Executors(), IsEmpty());
    EXPECT_FALSE(std::filesystem::exists(sandbox_.socket_path()));
}

}  // namespace
}  // namespace bootweave
