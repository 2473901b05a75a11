// SPDX-License-Identifier: Apache-2.0
#include "plugins/daemon_plugin.h"

#include <algorithm>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <functional>

#include <fcntl.h>
#include <sys/resource.h>
#include <unistd.h>

#include "gmock/gmock.h"
#include "plugins/fork_exec.h"
#include "tests/support/fake_platform.h"
#include "tests/support/temp_dir.h"
#include "util/child_process.h"
#include "util/exception.h"

namespace bootweave {
namespace {

using testing::ElementsAre;

std::string MessageOf(const std::function<void()>& action) {
    try {
        action();
    } catch (const std::exception& error) {
        return error.what();
    }
    return "nothing was thrown";
}

class DaemonPluginTest : public testing::Test {
  protected:
    void SetUp() override {
        FakePlatform::Reset();
        BarrierRegistry::Instance().Clear();
        *RunConfig::Instance() = RunConfig();
    }
    void TearDown() override {
        BarrierRegistry::Instance().Clear();
        *RunConfig::Instance() = RunConfig();
    }

    static void WaitAtMost(std::uint32_t seconds) {
        RunConfig::Instance()->daemon_wait = true;
        RunConfig::Instance()->daemon_wait_timeout = seconds;
    }
    std::string Script(const std::string& body) const {
        return dir_.WriteProgram("d", "#!/bin/sh\n" + body + "\n");
    }

    TempDir dir_;
};

TEST_F(DaemonPluginTest, StartsTheScriptInItsGroupAndStopsItWithout) {
    // Where the group can be made the directive is taken out; where not, the script sees it.
    const std::string script = Script("echo \"$@\" >>" + dir_.File("calls"));
    LegacyDaemonPlugin daemon("d", script, 20);
    daemon.Start();
    EXPECT_EQ(2, daemon.daemon_state());
    daemon.Stop();
    EXPECT_EQ(12, daemon.daemon_state());
    EXPECT_THAT(ReadFile(dir_.File("calls")),
                testing::AnyOf("start\nstop\n", "++group=init/d start\nstop\n"));
    EXPECT_THAT(FakePlatform::log(),
                ElementsAre(LogMessage{5, "d started.\n"}, LogMessage{5, "d stopped.\n"}));
}

TEST_F(DaemonPluginTest, AStartThatFailsSaysWhyAndIsAMethodFailure) {
    const std::string script = Script("exit 3");
    LegacyDaemonPlugin daemon("d", script, 20);
    const std::string reason =
        "Execution of command: " + script + " ++group=init/d start failed with status: 3";
    EXPECT_EQ("d->start() failed: " + reason, MessageOf([&] { daemon.Start(); }));
    EXPECT_EQ(20, daemon.daemon_state());
    EXPECT_THAT(FakePlatform::log(),
                ElementsAre(LogMessage{3, "Bootweave failed to start: d reason: " + reason + "\n"}));
}

TEST_F(DaemonPluginTest, AStopThatFailsSaysWhyAndRaisesIt) {
    const std::string script = Script("kill -TERM $$");
    LegacyDaemonPlugin daemon("d", script, 20);
    const std::string reason = "Execution of command: " + script + " stop failed with signal: 15";
    EXPECT_EQ(reason, MessageOf([&] { daemon.Stop(); }));
    EXPECT_EQ(0, daemon.daemon_state());
    EXPECT_THAT(FakePlatform::log(),
                ElementsAre(LogMessage{3, "Bootweave failed to stop: d reason: " + reason + "\n"}));
}

TEST_F(DaemonPluginTest, DeactivationStopsAndTellsTheKernelsLog) {
    LegacyDaemonPlugin daemon("d", Script("exit 0"), 20);
    daemon.ExecuteReverse();
    EXPECT_THAT(FakePlatform::kernel_log(), ElementsAre("Deactivating Daemon d.", "Daemon d deactivated."));
    EXPECT_THAT(FakePlatform::log(),
                ElementsAre(LogMessage{5, "executing stop for daemon d.\n"}, LogMessage{5, "d stopped.\n"}));
    EXPECT_NE(0, daemon.start_time().tv_sec);
    EXPECT_NE(0, daemon.end_time().tv_sec);
}

TEST_F(DaemonPluginTest, ADeactivationThatFailsGoesNoFurther) {
    const std::string script = Script("exit 1");
    LegacyDaemonPlugin daemon("d", script, 20);
    daemon.Deactivate();
    EXPECT_THAT(FakePlatform::kernel_log(),
                ElementsAre("Deactivating Daemon d.", "Daemon d deactivation failed: Execution of command: " +
                                                          script + " stop failed with status: 1"));
}

TEST_F(DaemonPluginTest, RunningItShowsTheServiceAndSteps) {
    LegacyDaemonPlugin daemon("d", Script("exit 0"), 20);
    daemon.Execute();
    EXPECT_THAT(FakePlatform::screen(), ElementsAre("progress: Starting service d", "step"));
    EXPECT_THAT(FakePlatform::kernel_log(),
                ElementsAre("Activating Bootweave plugin d.", "Bootweave plugin d activated."));
}

TEST_F(DaemonPluginTest, HasNoHostProfileNoRestartAndNoNewKeys) {
    LegacyDaemonPlugin legacy("d", "/d", 20);
    DaemonPlugin daemon("e", 20, 3);
    EXPECT_FALSE(legacy.SupportsHostProfile());
    EXPECT_EQ("method `LegacyDaemonPlugin::ApplyHostProfile' is not implemented",
              MessageOf([&] { legacy.ApplyHostProfile(); }));
    EXPECT_EQ("method `DaemonPlugin::ApplyHostProfile' is not implemented",
              MessageOf([&] { daemon.ApplyHostProfile(); }));
    EXPECT_EQ("method `DaemonPlugin::Restart' is not implemented", MessageOf([&] { daemon.Restart(); }));
    EXPECT_EQ("method `DaemonPlugin::SSLReset' is not implemented", MessageOf([&] { daemon.SSLReset(); }));
}

TEST_F(DaemonPluginTest, WithoutOperationsNothingCanBeStarted) {
    DaemonPlugin daemon("e", 20, 3);
    EXPECT_EQ("e->start() failed: e Daemon operations are not initialized",
              MessageOf([&] { daemon.Start(); }));
    EXPECT_EQ("e Daemon operations are not initialized", MessageOf([&] { daemon.Stop(); }));
}

TEST_F(DaemonPluginTest, TakesItsPlaceBetweenThePrioritiesWhenItIsBuilt) {
    LegacyDaemonPlugin first("a", "/a", 10);
    LegacyDaemonPlugin second("b", "/b", 20);
    Node* p10 = BarrierRegistry::Instance().Find("_<->_priority_<->_10", false);
    Node* p20 = BarrierRegistry::Instance().Find("_<->_priority_<->_20", false);
    EXPECT_THAT(first.dependents(), ElementsAre(p10));
    EXPECT_THAT(second.dependencies(), ElementsAre(p10));
    EXPECT_THAT(second.dependents(), ElementsAre(p20));
    EXPECT_EQ(3U, first.order_key());
    EXPECT_EQ(10, first.start_priority());
    EXPECT_EQ(0, first.daemon_state());
}

TEST_F(DaemonPluginTest, AProgramThatIsNotThereIsAFailureOfTheCall) {
    EXPECT_EQ("failed to ForkExec '/nowhere/d start' : No such file or directory",
              MessageOf([] { ForkExec("d", "/nowhere/d start"); }));
    EXPECT_EQ("failed to ForkExec '' : No such file or directory", MessageOf([] { ForkExec("d", ""); }));
}

TEST_F(DaemonPluginTest, AProgramWhoseEndCannotBeLearnedHasFailed) {
    const std::string script = Script("exit 0");
    std::signal(SIGCHLD, SIG_IGN);
    const std::string message = MessageOf([&] { ForkExec("d", script + " start"); });
    std::signal(SIGCHLD, SIG_DFL);
    EXPECT_EQ("Execution of command: " + script + " start failed <unknown_error>", message);
}

TEST_F(DaemonPluginTest, AProcessThatCannotOpenItsRootEndsWithALineThatSaysWhere) {
    const std::string out = dir_.File("out");
    auto child = ChildProcess::Fork([&] {
        ::dup2(::open(out.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600), STDOUT_FILENO);
        FakePlatform::EchoTo(STDOUT_FILENO);
        const rlimit none{.rlim_cur = 0, .rlim_max = 0};
        ::setrlimit(RLIMIT_NOFILE, &none);
        ::setrlimit(RLIMIT_CORE, &none);
        ForkExec("d", "/bin/true");
        return 0;
    });
    EXPECT_EQ(SIGABRT, ExitStatus::FromRaw(*child->Wait()).signal);
    const std::string source = std::filesystem::path(__FILE__).replace_filename("fork_exec.cpp");
    const std::string line = ReadFile(out);
    const std::string number = line.substr(std::min(line.size(), line.rfind(':') + 1));
    EXPECT_EQ("2 VERIFY " + source + ":" + number, line);
    EXPECT_GT(std::atoi(number.c_str()), 0);
}

TEST_F(DaemonPluginTest, NoShellStandsInForWhatIsNoProgram) {
    const std::string text = dir_.WriteProgram("text", "exit 0\n");
    EXPECT_EQ("failed to ForkExec '" + text + "' : Exec format error",
              MessageOf([&] { ForkExec("d", text); }));
}

TEST_F(DaemonPluginTest, InWaitModeAScriptThatTakesLongerHasFailedAndRunsOn) {
    WaitAtMost(1);
    const std::string script = Script("echo $$ >" + dir_.File("pid") + "; exec sleep 600");
    EXPECT_EQ("Execution of command: '" + script + " start' timed out.",
              MessageOf([&] { ForkExec("d", script + " start"); }));
    const pid_t pid = std::stoi(ReadFile(dir_.File("pid")));
    EXPECT_EQ(0, ::kill(pid, SIGKILL));  // it was still there
}

TEST_F(DaemonPluginTest, InWaitModeAnEmptyBudgetFailsAtOnce) {
    WaitAtMost(0);
    EXPECT_EQ("Execution of command: '" + Script("exit 0") + "' timed out.",
              MessageOf([&] { ForkExec("d", Script("exit 0")); }));
}

TEST_F(DaemonPluginTest, TheLargestBudgetDoesNotOverflow) {
    WaitAtMost(4294967295U);
    EXPECT_EQ("nothing was thrown", MessageOf([&] { ForkExec("d", Script("exit 0")); }));
}

TEST_F(DaemonPluginTest, TheProgramRunsInTheRootWithThreeDescriptors) {
    const std::string script =
        Script("pwd >" + dir_.File("out") + "; exec ls -l /proc/self/fd >>" + dir_.File("out"));
    ForkExec("d", script);
    const std::string out = ReadFile(dir_.File("out"));
    EXPECT_EQ("/\n", out.substr(0, 2));
    EXPECT_THAT(out, testing::ContainsRegex("0 -> /dev/null\n"));
    EXPECT_THAT(out, testing::ContainsRegex("2 -> /dev/null\n"));
    EXPECT_THAT(out, testing::ContainsRegex("3 -> /proc/[0-9]+/fd\n$"));
}

}  // namespace
}  // namespace bootweave
