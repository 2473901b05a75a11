// SPDX-License-Identifier: Apache-2.0
#include "plugins/json_plugin.h"

#include <cerrno>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "gmock/gmock.h"
#include "graph/barrier_registry.h"
#include "tests/support/executor_sandbox.h"
#include "tests/support/fake_executor.h"
#include "tests/support/fake_platform.h"
#include "tests/support/system_calls.h"
#include "util/exception.h"

namespace bootweave {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

/// The text of a plugin file of a version; the lists are the inside of JSON lists.
std::string Text(int version, const std::string& start, const std::string& operations = "") {
    return R"({"metadata": {"version": )" + std::to_string(version) +
           R"(, "requires": ["b", "a", "b"], "provides": ["c"], "required_flags": ["y", "x"],
               "disabling_flags": ["z"], "run_once": true, "plugin_version": "1.0"},
               "operations": {"start": [)" +
           start + "]" + operations + "}}";
}

class JSONPluginTest : public testing::Test {
  protected:
    void SetUp() override {
        FakePlatform::Reset();
        *RunConfig::Instance() = RunConfig();
    }
    void TearDown() override { *RunConfig::Instance() = RunConfig(); }

    [[nodiscard]] std::unique_ptr<JSONPlugin> Load(const std::string& text) const {
        return std::make_unique<JSONPlugin>("net", sandbox_.dir().WriteFile("net.json", text));
    }

    /// Stands in for the executor: commands that start with "bad" fail.
    FakeExecutor& Answer() {
        executor_ = std::make_unique<FakeExecutor>(sandbox_.socket_path(), [](const std::string& request) {
            return FakeExecutor::Status(request.starts_with("bad") ? 1 : 0);
        });
        return *executor_;
    }

    static std::string FailureOf(const std::function<void()>& method) {
        try {
            method();
        } catch (const Exception& error) {
            return error.what();
        }
        return "none";
    }

    const ExecutorSandbox sandbox_;
    std::unique_ptr<FakeExecutor> executor_;
};

// What it takes from its file.

TEST_F(JSONPluginTest, ItIsWhatItsFileSays) {
    const auto plugin = Load(Text(4, ""));
    EXPECT_EQ("net", plugin->name());
    EXPECT_EQ(4, plugin->GetVersion());
    EXPECT_EQ(1U, plugin->order_key());
    EXPECT_THAT(plugin->required_flags(), ElementsAre("x", "y"));
    EXPECT_THAT(plugin->disabling_flags(), ElementsAre("z"));
    EXPECT_TRUE(plugin->run_once());
    EXPECT_EQ("1.0", plugin->plugin_version());
    EXPECT_EQ("", plugin->GetDotAttributes());
}

TEST_F(JSONPluginTest, BelowVersion3ItHasNoFlagsAndRunsAlways) {
    const auto plugin = Load(Text(2, ""));
    EXPECT_EQ(2, plugin->GetVersion());
    EXPECT_THAT(plugin->required_flags(), IsEmpty());
    EXPECT_THAT(plugin->disabling_flags(), IsEmpty());
    EXPECT_FALSE(plugin->run_once());
    EXPECT_EQ("", plugin->plugin_version());
}

TEST_F(JSONPluginTest, ItTakesItsPlaceInTheGraphOnlyWhenLinked) {
    BarrierRegistry registry;
    const auto plugin = Load(Text(1, ""));
    EXPECT_THAT(plugin->dependencies(), IsEmpty());
    EXPECT_THAT(plugin->dependents(), IsEmpty());
    plugin->LinkIntoGraph(registry);
    const Node* a = registry.Find("a", false);
    const Node* b = registry.Find("b", false);
    EXPECT_THAT(plugin->dependencies(), ElementsAre(b, a, b));
    EXPECT_THAT(plugin->dependents(), ElementsAre(registry.Find("c", false)));
}

TEST_F(JSONPluginTest, AFileThatCannotBeLoadedNamesItsPathAndLeavesNothing) {
    const std::string path = sandbox_.dir().WriteFile("bad.json", Text(3, "1"));
    const std::vector<InitBarrier*> before = BarrierRegistry::Instance().List();
    EXPECT_EQ("plugin `" + path + "' is invalid: command is not a string",
              FailureOf([&] { const JSONPlugin plugin("bad", path); }));
    EXPECT_EQ(before, BarrierRegistry::Instance().List());
    EXPECT_THAT(FakePlatform::log(), IsEmpty());
}

TEST_F(JSONPluginTest, SupportingHostProfilesTakesVersion2AndAList) {
    const std::string list = R"(, "apply_host_profile": ["a"])";
    const std::string empty_list = R"(, "apply_host_profile": [])";
    EXPECT_FALSE(Load(Text(1, "", list))->SupportsHostProfile());
    for (const int version : {2, 3, 4}) {
        EXPECT_TRUE(Load(Text(version, "", list))->SupportsHostProfile()) << version;
        EXPECT_TRUE(Load(Text(version, "", empty_list))->SupportsHostProfile()) << version;
        EXPECT_FALSE(Load(Text(version, ""))->SupportsHostProfile()) << version;
    }
}

// What its methods do.

TEST_F(JSONPluginTest, StartRunsItsCommandsInOrder) {
    FakeExecutor& executor = Answer();
    Load(Text(1, R"("good 1", "good 2 --a='b c'", "good 1")"))->Start();
    EXPECT_THAT(executor.Requests(), ElementsAre("good 1", "good 2 --a='b c'", "good 1"));
    EXPECT_THAT(FakePlatform::log(), IsEmpty());
}

TEST_F(JSONPluginTest, AnEmptyListSucceedsWithoutAnExecutor) {
    const auto plugin = Load(Text(2, "", R"(, "apply_host_profile": [])"));
    plugin->Start();
    plugin->ApplyHostProfile();
    EXPECT_THAT(FakePlatform::log(), IsEmpty());
    EXPECT_EQ(0, SystemCalls::Seen().forks);
}

TEST_F(JSONPluginTest, EveryCommandRunsAndThenOneFailureIsRaised) {
    FakeExecutor& executor = Answer();
    const auto plugin = Load(Text(1, R"("bad 1", "good", "bad 2", "good")"));
    EXPECT_EQ("net->start() failed: error while executing the cli", FailureOf([&] { plugin->Start(); }));
    EXPECT_THAT(executor.Requests(), ElementsAre("bad 1", "good", "bad 2", "good"));
    EXPECT_THAT(FakePlatform::log(),
                ElementsAre(LogMessage{2, "Executor failed executing hostcli command: bad 1\n"},
                            LogMessage{2, "Executor failed executing hostcli command: bad 2\n"}));
}

TEST_F(JSONPluginTest, TheFailureIsOneOfTheMethod) {
    Answer();
    const auto plugin = Load(Text(2, R"("bad")", R"(, "apply_host_profile": ["bad"])"));
    EXPECT_THROW(plugin->Start(), MethodFailedException);
    EXPECT_THROW(plugin->ApplyHostProfile(), MethodFailedException);
}

TEST_F(JSONPluginTest, ApplyHostProfileRunsItsOwnCommands) {
    FakeExecutor& executor = Answer();
    const auto plugin = Load(Text(2, R"("good start")", R"(, "apply_host_profile": ["good", "bad apply"])"));
    EXPECT_EQ("net->apply_host_profile() failed: error while executing the cli",
              FailureOf([&] { plugin->ApplyHostProfile(); }));
    EXPECT_THAT(executor.Requests(), ElementsAre("good", "bad apply"));
}

TEST_F(JSONPluginTest, BelowVersion2ApplyHostProfileIsNotImplemented) {
    FakeExecutor& executor = Answer();
    const auto plugin = Load(Text(1, R"("good")", R"(, "apply_host_profile": ["good"])"));
    EXPECT_EQ("method `json_plugin::ApplyHostProfile' is not implemented",
              FailureOf([&] { plugin->ApplyHostProfile(); }));
    EXPECT_THROW(plugin->ApplyHostProfile(), NotImplementedException);
    EXPECT_THAT(executor.Requests(), IsEmpty());
}

TEST_F(JSONPluginTest, FromVersion2ApplyHostProfileWithoutAListSucceeds) {
    FakeExecutor& executor = Answer();
    Load(Text(2, R"("good")"))->ApplyHostProfile();
    EXPECT_THAT(executor.Requests(), IsEmpty());
}

TEST_F(JSONPluginTest, PercentSignsInCommandsAreNoFormats) {
    Answer();
    const auto plugin = Load(Text(1, R"("bad %s%n")"));
    EXPECT_THROW(plugin->Start(), MethodFailedException);
    EXPECT_THAT(FakePlatform::log(),
                ElementsAre(LogMessage{2, "Executor failed executing hostcli command: bad %s%n\n"}));
}

TEST_F(JSONPluginTest, WithoutAnExecutorEachCommandFailsAlone) {
    SystemCalls::Fail(SystemCall::kFork, {.error = EAGAIN, .times = SystemFault::kAlways});
    const auto plugin = Load(Text(1, R"("one", "two")"));
    EXPECT_EQ("net->start() failed: error while executing the cli", FailureOf([&] { plugin->Start(); }));
    EXPECT_EQ(20, SystemCalls::Seen().forks);
    EXPECT_THAT(FakePlatform::log(),
                testing::Contains(LogMessage{2, "Could not connect to Executor:No such file or directory\n"})
                    .Times(2));
}

TEST_F(JSONPluginTest, WhatIsNoExceptionFailsACommandWithoutALine) {
    FakeExecutor& executor = Answer();
    SystemCalls::Fail(SystemCall::kConnect, {.error = SystemFault::kRaise});
    const auto plugin = Load(Text(1, R"("lost", "good")"));
    EXPECT_EQ("net->start() failed: error while executing the cli", FailureOf([&] { plugin->Start(); }));
    EXPECT_THAT(executor.Requests(), ElementsAre("good"));
    EXPECT_THAT(FakePlatform::log(), IsEmpty());
}

// The whole way.

TEST_F(JSONPluginTest, ItsCommandsRunInARealExecutor) {
    sandbox_.AddCommand("net.link.up", "echo $@");
    sandbox_.AddCommand("net.fail", "echo no luck >&2; exit 3");
    const auto plugin = Load(Text(1, R"("net link up --name=eth0", "net fail", "net link up --name=eth1")"));
    plugin->Execute();
    EXPECT_THAT(
        FakePlatform::kernel_log(),
        ElementsAre("Activating Bootweave plugin net.",
                    "Bootweave plugin net activation failed: net->start() failed: error while executing"
                    " the cli"));
    EXPECT_THAT(
        FakePlatform::log(),
        ElementsAre(
            LogMessage{5, "executing start plugin: net\n"},
            LogMessage{2, "Failed connecting to executor No such file or directory\n"},
            LogMessage{5, "Setting up Executor - Reset Requested\n"},
            LogMessage{2, "Executor failed executing hostcli command: net fail\n"},
            LogMessage{2, "Method invocation failed: net->start() failed: error while executing the cli\n"}));
    const std::string polling = "5 Executor Reset - polling for commands\n";  // may come in between
    ASSERT_TRUE(sandbox_.WaitForLog(polling));
    std::string log = sandbox_.Log();
    log.erase(log.find(polling), polling.size());
    EXPECT_EQ(
        "--name=eth0\n"
        "2 execution of 'net fail' failed : no luck\n"
        "2 Executor failed to execute command: net fail\n"
        "--name=eth1\n",
        log);
}

TEST_F(JSONPluginTest, AForcedApplyHostProfileOfVersion1FailsTheInvocation) {
    RunConfig::Instance()->method = "apply_host_profile";
    Load(Text(1, "", R"(, "apply_host_profile": ["good"])"))->Execute();
    EXPECT_THAT(FakePlatform::log(),
                ElementsAre(LogMessage{5, "executing host profile plugin: net\n"},
                            LogMessage{2,
                                       "unable to invoke method 'apply_host_profile' on plugin 'net': method"
                                       " `json_plugin::ApplyHostProfile' is not implemented\n"}));
    EXPECT_THAT(FakePlatform::kernel_log(),
                ElementsAre("Activating Bootweave plugin net.",
                            "Bootweave plugin net activation failed: Method invocation failed"));
}

}  // namespace
}  // namespace bootweave
