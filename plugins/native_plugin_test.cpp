// SPDX-License-Identifier: Apache-2.0
#include "plugins/native_plugin.h"

#include <csignal>
#include <string>
#include <vector>

#include <unistd.h>

#include "gmock/gmock.h"

#include "graph/barrier_registry.h"
#include "plugins/native_test_support.h"
#include "tests/support/fake_platform.h"
#include "tests/support/temp_dir.h"
#include "util/exception.h"

// The calls that starting a program makes; switched to fail by a test.
namespace {
bool g_fail_calloc = false;
bool g_fail_sysconf = false;
}  // namespace

extern "C" {
void* __real_calloc(size_t count, size_t size);
long __real_sysconf(int name);

void* __wrap_calloc(size_t count, size_t size) {
    return g_fail_calloc ? nullptr : __real_calloc(count, size);
}

long __wrap_sysconf(int name) {
    return g_fail_sysconf && name == _SC_OPEN_MAX ? 0 : __real_sysconf(name);
}
}

namespace bootweave {
namespace {

using testing::ElementsAre;

class NativePluginTest : public testing::Test {
  protected:
    void SetUp() override { FakePlatform::Reset(); }
    void TearDown() override {
        g_fail_calloc = false;
        g_fail_sysconf = false;
    }

    NativePlugin Load(const std::string& object, const std::string& executor = BOOTWEAVE_NATIVE_EXECUTOR) {
        return {"plugin", NativeObject(object), reader_, executor};
    }

    /// A plugin whose executor is this shell script.
    NativePlugin WithExecutor(const std::string& script) {
        return Load("version2", dir_.WriteProgram("executor", "#!/bin/sh\n" + script + "\n"));
    }

    template <typename Method>
    static std::string FailureOf(Method method) {
        try {
            method();
        } catch (const Exception& error) {
            return error.what();
        }
        return "nothing";
    }

    static std::string StartFailure(NativePlugin& plugin) {
        return FailureOf([&] { plugin.Start(); });
    }

    static std::string StartFailed(const std::string& reason) { return "plugin->start() failed: " + reason; }

    const TempDir dir_;
    NativeMetadataReader reader_{{.program = BOOTWEAVE_NATIVE_READER, .patience = std::chrono::seconds(60)}};
};

TEST_F(NativePluginTest, ItIsWhatItsMetadataSays) {
    const NativePlugin plugin = Load("version3");
    EXPECT_EQ("plugin", plugin.name());
    EXPECT_EQ(1U, plugin.order_key());
    EXPECT_EQ(3, plugin.GetVersion());
    EXPECT_TRUE(plugin.run_once());
    EXPECT_EQ("1.2-3", plugin.plugin_version());
    EXPECT_THAT(plugin.required_flags(), ElementsAre("f1", "f2"));
    EXPECT_THAT(plugin.disabling_flags(), ElementsAre("d1"));
    EXPECT_TRUE(plugin.SupportsHostProfile());
    EXPECT_EQ("", plugin.GetDotAttributes());
}

TEST_F(NativePluginTest, RunOnceAndFlagsOfAVersion2ObjectAreIgnored) {
    const NativePlugin plugin = Load("version2");
    EXPECT_FALSE(plugin.run_once());
    EXPECT_EQ("", plugin.plugin_version());
    EXPECT_TRUE(plugin.required_flags().empty());
    EXPECT_TRUE(plugin.disabling_flags().empty());
}

TEST_F(NativePluginTest, ItIsLinkedToEachBarrierThatItNames) {
    NativePlugin plugin = Load("version1");
    BarrierRegistry registry;
    plugin.LinkIntoGraph(registry);
    for (const char* barrier : {"r1", "r2"}) {
        ASSERT_NE(nullptr, registry.Find(barrier, false)) << barrier;
        EXPECT_THAT(registry.Find(barrier, false)->dependents(), ElementsAre(&plugin));
    }
    // One edge for each time that a name is listed.
    EXPECT_THAT(plugin.dependents(), ElementsAre(registry.Find("p1", false), registry.Find("p2", false),
                                                 registry.Find("p1", false)));
}

TEST_F(NativePluginTest, AnObjectThatCannotBeLoadedIsNoPlugin) {
    const std::string path = NativeObject("version5");
    EXPECT_EQ("plugin `" + path + "' is invalid: Unsupported API version",
              FailureOf([&] { Load("version5"); }));
}

TEST_F(NativePluginTest, HostProfilesAreSupportedFromVersion2OnWhereThereIsAnOperation) {
    EXPECT_FALSE(Load("version1").SupportsHostProfile());
    EXPECT_TRUE(Load("version2").SupportsHostProfile());
    EXPECT_FALSE(Load("empty2").SupportsHostProfile());
    EXPECT_FALSE(Load("empty3").SupportsHostProfile());
    EXPECT_TRUE(Load("version4").SupportsHostProfile());
}

TEST_F(NativePluginTest, WithoutSupportApplyingAHostProfileIsNotImplemented) {
    for (const char* object : {"version1", "empty2"}) {
        NativePlugin plugin = Load(object);
        EXPECT_EQ("method `NativePlugin::ApplyHostProfile' is not implemented",
                  FailureOf([&] { plugin.ApplyHostProfile(); }));
    }
}

TEST_F(NativePluginTest, EachMethodIsItsOperation) {
    NativePlugin plugin = Load("version2");
    EXPECT_EQ("nothing", StartFailure(plugin));
    EXPECT_EQ("plugin->apply_host_profile() failed: exited with code 1",
              FailureOf([&] { plugin.ApplyHostProfile(); }));
}

TEST_F(NativePluginTest, TheExecutorGetsThePathTheNameAndTheMethod) {
    ::setenv("NATIVE_TEST_VALUE", "inherited", 1);
    NativePlugin plugin = WithExecutor(R"(printf '%s\n' "$@" "$NATIVE_TEST_VALUE" >)" + dir_.File("words"));
    const std::string path = NativeObject("version2");
    plugin.Start();
    EXPECT_EQ(path + "\nplugin\nstart\ninherited\n", ReadFile(dir_.File("words")));
    plugin.ApplyHostProfile();
    EXPECT_EQ(path + "\nplugin\napply_host_profile\ninherited\n", ReadFile(dir_.File("words")));
    ::unsetenv("NATIVE_TEST_VALUE");
}

TEST_F(NativePluginTest, TheExecutorHasThisProcesssStreamsAndNoOtherDescriptor) {
    NativePlugin plugin = WithExecutor("exec ls -l /proc/$$/fd >" + dir_.File("list"));
    plugin.Start();
    const std::string list = ReadFile(dir_.File("list"));
    EXPECT_THAT(list, testing::HasSubstr(" 0 -> "));
    EXPECT_THAT(list, testing::HasSubstr(" 2 -> "));
    EXPECT_THAT(list, testing::Not(testing::HasSubstr(" 4 -> ")));  // 3 is ls's own
}

TEST_F(NativePluginTest, AnEndOtherThanCode0IsTheReason) {
    for (const auto& [script, reason] :
         {std::pair("exit 3", "exited with code 3"), std::pair("exit 255", "exited with code 255"),
          std::pair("kill -9 $$", "exited with signal: 9")}) {
        NativePlugin plugin = WithExecutor(script);
        EXPECT_EQ(StartFailed(reason), StartFailure(plugin));
    }
}

TEST_F(NativePluginTest, AnOperationThatAbortsOrExitsHarmsOnlyItsExecutor) {
    NativePlugin aborting = Load("aborts_at_start");
    EXPECT_EQ(StartFailed("exited with signal: 6"), StartFailure(aborting));
    NativePlugin leaving = Load("leaves_at_start");
    EXPECT_EQ(StartFailed("exited with code 3"), StartFailure(leaving));
}

TEST_F(NativePluginTest, AnExecutorThatCannotBeStartedIsTheReason) {
    NativePlugin plugin = Load("version2", dir_.File("none"));
    EXPECT_EQ(StartFailed("failed to spawn: No such file or directory"), StartFailure(plugin));
    NativePlugin denied = Load("version2", dir_.WriteFile("plain", ""));
    EXPECT_EQ(StartFailed("failed to spawn: Permission denied"), StartFailure(denied));
}

TEST_F(NativePluginTest, FileActionsThatCannotBeMadeAreTheReason) {
    NativePlugin plugin = Load("version2");
    g_fail_calloc = true;
    EXPECT_EQ(StartFailed("failed to init file actions: Cannot allocate memory"), StartFailure(plugin));
    g_fail_calloc = false;
    g_fail_sysconf = true;
    EXPECT_EQ(StartFailed("failed to add dup2 file actions"), StartFailure(plugin));
}

TEST_F(NativePluginTest, AnEndThatCannotBeWaitedForIsTheReason) {
    NativePlugin plugin = WithExecutor("exit 0");
    const auto old = ::signal(SIGCHLD, SIG_IGN);  // the kernel then reaps children itself
    EXPECT_EQ(StartFailed("failed to read exit status"), StartFailure(plugin));
    ::signal(SIGCHLD, old);
}

TEST_F(NativePluginTest, AFailureIsReportedAndContained) {
    NativePlugin plugin = Load("leaves_at_start");
    plugin.Execute();
    EXPECT_THAT(FakePlatform::log(),
                ElementsAre(LogMessage{5, "executing start plugin: plugin\n"},
                            LogMessage{2,
                                       "Method invocation failed: plugin->start() failed: exited with "
                                       "code 3\n"}));
    EXPECT_THAT(FakePlatform::kernel_log(),
                ElementsAre("Activating Bootweave plugin plugin.",
                            "Bootweave plugin plugin activation failed: plugin->start() failed: "
                            "exited with code 3"));
}

}  // namespace
}  // namespace bootweave
