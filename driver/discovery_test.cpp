// SPDX-License-Identifier: Apache-2.0
#include "driver/discovery.h"

#include <filesystem>
#include <set>
#include <string>
#include <vector>

#include <sys/stat.h>
#include <sys/wait.h>

#include "driver/shell_test_support.h"
#include "gmock/gmock.h"
#include "graph/barrier_registry.h"
#include "plugins/native_test_support.h"
#include "tests/support/fake_platform.h"
#include "tests/support/temp_dir.h"
#include "util/exception.h"

namespace bootweave {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

using Names = std::vector<std::string>;
using NameSet = std::set<std::string>;

/// One plugin file of version 3. Flags are the inside of a JSON list.
struct PluginFile {
    std::string required_flags = "";
    std::string disabling_flags = "";
    bool run_once = false;
    std::string plugin_version = "1";

    [[nodiscard]] std::string Text() const {
        return R"({"metadata": {"version": 3, "requires": ["up"], "provides": ["down"], )"
               R"("required_flags": [)" +
               required_flags + R"(], "disabling_flags": [)" + disabling_flags + R"(], "run_once": )" +
               (run_once ? "true" : "false") + R"(, "plugin_version": ")" + plugin_version +
               R"("}, "operations": {"start": ["a b"]}})";
    }
};

class DiscoveryTest : public testing::Test {
  protected:
    void SetUp() override {
        FakePlatform::Reset();
        config_.plugin_directory = dir_.path();
    }
    // Debug plugins take their place in the process's graph.
    void TearDown() override { BarrierRegistry::Instance().Clear(); }

    void Write(const std::string& file_name, const PluginFile& plugin = {}) {
        dir_.WriteFile(file_name, plugin.Text());
    }

    void LinkNative(const std::string& file_name, const std::string& object) {
        std::filesystem::create_symlink(NativeObject(object), dir_.File(file_name));
    }

    [[nodiscard]] Names PluginNames() const {
        Names names;
        for (const Plugin* plugin : discovery_.plugins()) {
            names.push_back(plugin->name());
        }
        return names;
    }

    /// Examines a file. Returns the log lines that this costs.
    std::vector<LogMessage> Discover(const std::string& file_name) {
        FakePlatform::Reset();
        discovery_.Discover(file_name);
        return FakePlatform::log();
    }

    /// Examines a file that cannot be loaded. Returns why.
    std::string FailureOf(const std::string& file_name) {
        FakePlatform::Reset();
        try {
            discovery_.Discover(file_name);
        } catch (const InvalidPluginException& error) {
            EXPECT_THAT(FakePlatform::log(), IsEmpty());
            return error.what();
        }
        return "nothing";
    }

    const TempDir dir_;
    RunConfig config_;
    NameSet flags_;
    NameSet run_once_;
    DebugInjections injections_{dir_.File("debug.conf")};
    Discovery discovery_{flags_, run_once_, config_, injections_,
                         NativeMetadataReader::Options{.program = BOOTWEAVE_NATIVE_READER}};
};

TEST(PluginFileNameTest, TheLastDotSeparatesNameAndExtension) {
    struct Case {
        std::string file_name;
        std::string base;
        std::string extension;
    };
    for (const Case& expected : {
             Case{"net.json", "net", "json"},
             Case{"a.b.json", "a.b", "json"},
             Case{"libfoo.so", "foo", "so"},
             Case{"liblibfoo.so", "libfoo", "so"},  // three characters, once
             Case{"mylib.so", "mylib", "so"},
             Case{"Libfoo.so", "Libfoo", "so"},
             Case{"lib.json", "", "json"},
             Case{"li.b", "li", "b"},
             Case{"x.", "x", ""},
             Case{".json", "", "json"},
             Case{".", "", ""},
             Case{"..json", ".", "json"},
         }) {
        const PluginFileName name = SplitPluginFileName(expected.file_name);
        EXPECT_EQ(expected.base, name.base) << expected.file_name;
        EXPECT_EQ(expected.extension, name.extension) << expected.file_name;
    }
}

TEST_F(DiscoveryTest, AJsonFileBecomesAPluginNamedAfterIt) {
    Write("net.json");
    EXPECT_THAT(Discover("net.json"), IsEmpty());
    ASSERT_EQ(Names{"net"}, PluginNames());
    EXPECT_EQ(3, discovery_.plugins()[0]->GetVersion());
    EXPECT_EQ(NodeState::kIdle, discovery_.plugins()[0]->state());
}

TEST_F(DiscoveryTest, NamesLoseALeadingLibAndKeepInnerDots) {
    Write("libfoo.json");
    Write("a.b.json");
    EXPECT_THAT(Discover("libfoo.json"), IsEmpty());
    EXPECT_THAT(Discover("a.b.json"), IsEmpty());
    EXPECT_THAT(PluginNames(), ElementsAre("foo", "a.b"));
}

TEST_F(DiscoveryTest, ASharedObjectBecomesAPluginNamedAfterItsFile) {
    LinkNative("libfoo.so", "version1");
    LinkNative("a.b.so", "version2");
    EXPECT_THAT(Discover("libfoo.so"), IsEmpty());
    EXPECT_THAT(Discover("a.b.so"), IsEmpty());
    ASSERT_THAT(PluginNames(), ElementsAre("foo", "a.b"));
    EXPECT_EQ(1, discovery_.plugins()[0]->GetVersion());
    EXPECT_TRUE(discovery_.plugins()[1]->SupportsHostProfile());
}

TEST_F(DiscoveryTest, ASharedObjectPassesTheSameTestsAsAFile) {
    LinkNative("libfoo.so", "version3");
    EXPECT_THAT(Discover("libfoo.so"),
                ElementsAre(LogMessage{3,
                                       "ignoring plugin 'foo', disabled due to missing required boot "
                                       "flags: f1 f2 .\n"}));
    flags_ = {"f1", "f2"};
    EXPECT_THAT(Discover("libfoo.so"), IsEmpty());
    EXPECT_THAT(run_once_, ElementsAre("foo1.2-3"));
    flags_.insert("d1");
    EXPECT_THAT(Discover("libfoo.so"),
                ElementsAre(LogMessage{3, "ignoring plugin 'foo', disabled due to boot flags: d1 .\n"}));
    config_.disabled_plugins = {"libfoo"};
    flags_.erase("d1");
    EXPECT_THAT(Discover("libfoo.so"),
                ElementsAre(LogMessage{5,
                                       "ignoring plugin 'foo' because version '1.2-3'  has already been "
                                       "run.\n"}));
    config_.disabled_plugins = {"foo"};
    EXPECT_THAT(Discover("libfoo.so"),
                ElementsAre(LogMessage{5, "ignoring plugin 'foo' due to denylist.\n"}));
}

TEST_F(DiscoveryTest, ASharedObjectThatCannotBeLoadedRaisesAndLeavesNothing) {
    LinkNative("old.so", "version0");
    LinkNative("crash.so", "crashes");
    LinkNative("good.so", "version1");
    EXPECT_EQ("plugin `" + dir_.File("old.so") + "' is invalid: Unsupported API version",
              FailureOf("old.so"));
    EXPECT_EQ("plugin `" + dir_.File("crash.so") + "' is invalid: metadata reader exited with signal: 11",
              FailureOf("crash.so"));
    EXPECT_THAT(Discover("good.so"), IsEmpty());
    EXPECT_THAT(PluginNames(), ElementsAre("good"));
}

TEST_F(DiscoveryTest, TheProcessThatReadsSharedObjectsIsGoneOnceItIsStopped) {
    LinkNative("a.so", "version1");
    LinkNative("b.so", "version1");
    EXPECT_THAT(Discover("a.so"), IsEmpty());
    EXPECT_EQ(0, ::waitpid(-1, nullptr, WNOHANG));  // it runs
    discovery_.StopReading();
    EXPECT_EQ(-1, ::waitpid(-1, nullptr, WNOHANG));  // and not even its zombie is left
    EXPECT_THAT(Discover("b.so"), IsEmpty());
    EXPECT_THAT(PluginNames(), ElementsAre("a", "b"));
}

TEST_F(DiscoveryTest, PluginsAreCollectedInTheOrderOfTheCallsWithDuplicates) {
    Write("b.json");
    Write("a.json");
    for (const char* file_name : {"b.json", "a.json", "b.json"}) {
        EXPECT_THAT(Discover(file_name), IsEmpty());
    }
    EXPECT_THAT(PluginNames(), ElementsAre("b", "a", "b"));
}

TEST_F(DiscoveryTest, ANameWithoutADotIsOfUnspecifiedType) {
    Write("README");
    EXPECT_THAT(Discover("README"),
                ElementsAre(LogMessage{3, "ignoring plugin 'README' of unspecified type...\n"}));
    EXPECT_THAT(Discover("foo"),  // with or without such a file
                ElementsAre(LogMessage{3, "ignoring plugin 'foo' of unspecified type...\n"}));
    EXPECT_THAT(PluginNames(), IsEmpty());
}

TEST_F(DiscoveryTest, AnExtensionThatNobodyKnowsIsSaid) {
    for (const char* file_name : {"x.", "x.JSON", "libx.a.jsonx", "x.json "}) {
        Write(file_name);
    }
    EXPECT_THAT(Discover("x."), ElementsAre(LogMessage{3, "ignoring plugin 'x.' of unknown type ()...\n"}));
    EXPECT_THAT(Discover("x.JSON"),
                ElementsAre(LogMessage{3, "ignoring plugin 'x.JSON' of unknown type (JSON)...\n"}));
    EXPECT_THAT(Discover("libx.a.jsonx"),
                ElementsAre(LogMessage{3, "ignoring plugin 'libx.a.jsonx' of unknown type (jsonx)...\n"}));
    EXPECT_THAT(Discover("x.json "),
                ElementsAre(LogMessage{3, "ignoring plugin 'x.json ' of unknown type (json )...\n"}));
    EXPECT_THAT(PluginNames(), IsEmpty());
}

TEST_F(DiscoveryTest, AFileThatCannotBeLoadedRaisesAndLeavesNothing) {
    dir_.WriteFile("bad.json", "{}");
    EXPECT_EQ("plugin `" + dir_.File("bad.json") + "' is invalid: invalid metadata interface",
              FailureOf("bad.json"));
    EXPECT_EQ("plugin `" + dir_.File("none.json") + "' is invalid: no such file or directory",
              FailureOf("none.json"));
    EXPECT_THAT(PluginNames(), IsEmpty());
    EXPECT_THAT(run_once_, IsEmpty());

    Write("good.json");
    EXPECT_THAT(Discover("good.json"), IsEmpty());
    EXPECT_THAT(PluginNames(), ElementsAre("good"));
}

TEST_F(DiscoveryTest, ThePathIsTheDirectoryASlashAndTheName) {
    config_.plugin_directory = dir_.path() + "/";
    EXPECT_EQ("plugin `" + dir_.path() + "//none.json' is invalid: no such file or directory",
              FailureOf("none.json"));
}

TEST_F(DiscoveryTest, TheDenylistHoldsBaseNames) {
    Write("libfoo.json");
    config_.disabled_plugins = {"other", "foo"};
    EXPECT_THAT(Discover("libfoo.json"),
                ElementsAre(LogMessage{5, "ignoring plugin 'foo' due to denylist.\n"}));
    EXPECT_THAT(PluginNames(), IsEmpty());

    config_.disabled_plugins = {"libfoo", "libfoo.json", "FOO", "fo", "foo.json", "fooo", ""};
    EXPECT_THAT(Discover("libfoo.json"), IsEmpty());
    EXPECT_THAT(PluginNames(), ElementsAre("foo"));
}

TEST_F(DiscoveryTest, ADeniedFileIsLoadedBeforeItIsDropped) {
    dir_.WriteFile("bad.json", "[]");
    config_.disabled_plugins = {"bad"};
    EXPECT_EQ("plugin `" + dir_.File("bad.json") + "' is invalid: plugin root is not an object",
              FailureOf("bad.json"));
}

TEST_F(DiscoveryTest, ADeniedPluginIsTestedNoFurther) {
    Write("net.json", {.required_flags = R"("missing")", .disabling_flags = R"("given")", .run_once = true});
    config_.disabled_plugins = {"net"};
    flags_ = {"given"};
    EXPECT_THAT(Discover("net.json"), ElementsAre(LogMessage{5, "ignoring plugin 'net' due to denylist.\n"}));
    EXPECT_THAT(run_once_, IsEmpty());
}

TEST_F(DiscoveryTest, AGivenDisablingFlagDropsThePlugin) {
    Write("net.json", {.disabling_flags = R"("c", "b", "a")"});
    flags_ = {"b", "a", "x"};
    EXPECT_THAT(Discover("net.json"),
                ElementsAre(LogMessage{3, "ignoring plugin 'net', disabled due to boot flags: a b .\n"}));
    EXPECT_THAT(PluginNames(), IsEmpty());

    flags_ = {"x", "A", "aa"};
    EXPECT_THAT(Discover("net.json"), IsEmpty());
    EXPECT_THAT(PluginNames(), ElementsAre("net"));
}

TEST_F(DiscoveryTest, AMissingRequiredFlagDropsThePlugin) {
    Write("net.json", {.required_flags = R"("c", "a", "b")"});
    flags_ = {"b"};
    EXPECT_THAT(Discover("net.json"),
                ElementsAre(LogMessage{
                    3, "ignoring plugin 'net', disabled due to missing required boot flags: a c .\n"}));
    flags_ = {};
    EXPECT_THAT(Discover("net.json"),
                ElementsAre(LogMessage{
                    3, "ignoring plugin 'net', disabled due to missing required boot flags: a b c .\n"}));
    EXPECT_THAT(PluginNames(), IsEmpty());

    flags_ = {"a", "b", "c", "d"};
    EXPECT_THAT(Discover("net.json"), IsEmpty());
    EXPECT_THAT(PluginNames(), ElementsAre("net"));
}

TEST_F(DiscoveryTest, APluginThatFailsBothFlagTestsSaysBothOnce) {
    Write("libnet.json", {.required_flags = R"("r")", .disabling_flags = R"("d")", .run_once = true});
    flags_ = {"d"};
    EXPECT_THAT(
        Discover("libnet.json"),
        ElementsAre(
            LogMessage{3, "ignoring plugin 'net', disabled due to boot flags: d .\n"},
            LogMessage{3, "ignoring plugin 'net', disabled due to missing required boot flags: r .\n"}));
    EXPECT_THAT(PluginNames(), IsEmpty());
    EXPECT_THAT(run_once_, IsEmpty());
}

TEST_F(DiscoveryTest, APluginWithoutFlagsNeedsNone) {
    Write("net.json");
    EXPECT_THAT(Discover("net.json"), IsEmpty());
    flags_ = {"any"};
    EXPECT_THAT(Discover("net.json"), IsEmpty());
    EXPECT_THAT(PluginNames(), ElementsAre("net", "net"));
}

TEST_F(DiscoveryTest, AnAdmittedRunOncePluginIsNoted) {
    Write("net.json", {.run_once = true, .plugin_version = "1.0"});
    EXPECT_THAT(Discover("net.json"), IsEmpty());
    EXPECT_THAT(run_once_, ElementsAre("net1.0"));
    ASSERT_EQ(Names{"net"}, PluginNames());
    EXPECT_EQ(NodeState::kIdle, discovery_.plugins()[0]->state());
}

TEST_F(DiscoveryTest, ARunOnceVersionThatHasRunIsKeptAsDone) {
    Write("net.json", {.run_once = true, .plugin_version = "1.0"});
    run_once_ = {"net1.0"};
    EXPECT_THAT(
        Discover("net.json"),
        ElementsAre(LogMessage{5, "ignoring plugin 'net' because version '1.0'  has already been run.\n"}));
    ASSERT_EQ(Names{"net"}, PluginNames());
    EXPECT_EQ(NodeState::kDoneForward, discovery_.plugins()[0]->state());
    EXPECT_THAT(run_once_, ElementsAre("net1.0"));
}

TEST_F(DiscoveryTest, AnotherVersionOfARunOncePluginRuns) {
    Write("net.json", {.run_once = true, .plugin_version = "1.1"});
    run_once_ = {"net1.0"};
    EXPECT_THAT(Discover("net.json"), IsEmpty());
    EXPECT_EQ(NodeState::kIdle, discovery_.plugins()[0]->state());
    EXPECT_THAT(run_once_, ElementsAre("net1.0", "net1.1"));
}

TEST_F(DiscoveryTest, ARunOncePluginNamedTwiceRunsTheFirstTime) {
    Write("net.json", {.run_once = true});
    EXPECT_THAT(Discover("net.json"), IsEmpty());
    EXPECT_THAT(
        Discover("net.json"),
        ElementsAre(LogMessage{5, "ignoring plugin 'net' because version '1'  has already been run.\n"}));
    ASSERT_THAT(PluginNames(), ElementsAre("net", "net"));
    EXPECT_EQ(NodeState::kIdle, discovery_.plugins()[0]->state());
    EXPECT_EQ(NodeState::kDoneForward, discovery_.plugins()[1]->state());
}

TEST_F(DiscoveryTest, WithoutTheRunOnceFlagThePluginRunsAlways) {
    Write("net.json", {.run_once = false, .plugin_version = "1.0"});
    run_once_ = {"net1.0"};
    EXPECT_THAT(Discover("net.json"), IsEmpty());
    EXPECT_EQ(NodeState::kIdle, discovery_.plugins()[0]->state());
    EXPECT_THAT(run_once_, ElementsAre("net1.0"));
}

TEST_F(DiscoveryTest, AVersionWithForeignCharactersIsKeptCleanedAndNeverFoundAgain) {
    Write("net.json", {.run_once = true, .plugin_version = "1 0"});
    run_once_ = {"net10"};
    EXPECT_THAT(Discover("net.json"), IsEmpty());
    EXPECT_EQ(NodeState::kIdle, discovery_.plugins()[0]->state());
    EXPECT_THAT(run_once_, ElementsAre("net10"));

    // Whoever names the key as it is formed, on the command line, keeps it from running all the same.
    run_once_ = {"net1 0"};
    EXPECT_THAT(
        Discover("net.json"),
        ElementsAre(LogMessage{5, "ignoring plugin 'net' because version '1 0'  has already been run.\n"}));
}

TEST_F(DiscoveryTest, CleaningKeepsLettersDigitsAndFourSigns) {
    Write("a-_z.+AZ09.json", {.run_once = true, .plugin_version = "~!@#$%^&*()=,:;'<>?[]{}|/`\u00e9+9"});
    EXPECT_THAT(Discover("a-_z.+AZ09.json"), IsEmpty());
    EXPECT_THAT(run_once_, ElementsAre("a-_z.+AZ09+9"));
}

TEST_F(DiscoveryTest, OnlyWhatIsCollectedIsSeenByTheGraph) {
    BarrierRegistry registry;
    Write("kept.json");
    Write("denied.json");
    Write("disabled.json", {.disabling_flags = R"("d")"});
    dir_.WriteFile("bad.json",
                   R"({"metadata": {"version": 1, "requires": ["never"], "provides": ["ever"]}})");
    config_.disabled_plugins = {"denied"};
    flags_ = {"d"};
    for (const char* file_name : {"denied.json", "disabled.json"}) {
        Discover(file_name);
    }
    EXPECT_EQ("plugin `" + dir_.File("bad.json") + "' is invalid: invalid operations interface",
              FailureOf("bad.json"));
    EXPECT_THAT(discovery_.plugins(), IsEmpty());
    EXPECT_THAT(BarrierRegistry::Instance().List(), IsEmpty());

    Discover("kept.json");
    EXPECT_THAT(BarrierRegistry::Instance().List(), IsEmpty());  // linking is a step of its own
    ASSERT_EQ(Names{"kept"}, PluginNames());
    discovery_.plugins()[0]->LinkIntoGraph(registry);
    EXPECT_EQ(2U, registry.List().size());
}

TEST_F(DiscoveryTest, ADebugFileStandsForEachInjectionOfItsName) {
    dir_.WriteFile("debug.conf", "x:r:p:true\ny:r:p:true\nx:r:p:false\n");
    config_.disabled_plugins = {"x"};  // no test applies to them
    EXPECT_THAT(Discover("libx.debug"), IsEmpty());
    EXPECT_THAT(PluginNames(), ElementsAre("x", "x"));
    EXPECT_THAT(Discover("x.debug"), IsEmpty());  // whether or not there is such a file
    EXPECT_THAT(PluginNames(), ElementsAre("x", "x", "x", "x"));
}

TEST_F(DiscoveryTest, ADebugFileWithoutAnInjectionIsPassedOverSilently) {
    EXPECT_THAT(Discover("x.debug"), IsEmpty());
    dir_.WriteFile("debug.conf", "y:r:p:true\nX:r:p:true\nx.debug:r:p:true\n");
    EXPECT_THAT(Discover("x.debug"), IsEmpty());
    EXPECT_THAT(PluginNames(), IsEmpty());
}

TEST_F(DiscoveryTest, InjectionsAreLoadedForEveryFileWithADot) {
    Write("net.json");
    dir_.WriteFile("debug.conf", "malformed\n");
    EXPECT_EQ(1U, Discover("README").size());  // its own line alone
    EXPECT_EQ(1U, Discover("net.json").size());
    EXPECT_EQ(2U, Discover("x.unknown").size());
    EXPECT_EQ(1U, Discover("x.debug").size());
}

TEST_F(DiscoveryTest, AllInjectionsAreCollectedInTheOrderOfTheirFile) {
    dir_.WriteFile("debug.conf", "b:r:p:true\na:r:p:true\nb:r:p:true\n");
    FakePlatform::Reset();
    EXPECT_THAT(Discover("a.debug"), IsEmpty());
    discovery_.CollectDebugPlugins(injections_.Load());
    EXPECT_THAT(PluginNames(), ElementsAre("a", "b", "a", "b"));  // a twice: nobody keeps count
    EXPECT_THAT(FakePlatform::log(), IsEmpty());
}

TEST_F(DiscoveryTest, AFifoNamedLikeAPluginHoldsUpNothing) {
    ASSERT_EQ(0, ::mkfifo(dir_.File("pipe.json").c_str(), 0600));
    EXPECT_EQ("plugin `" + dir_.File("pipe.json") + "' is invalid: no such file or directory",
              FailureOf("pipe.json"));
}

/// What the host lists as its init scripts is given by each test.
class DaemonDiscoveryTest : public DiscoveryTest {
  protected:
    void TearDown() override {
        ShellStub::Reset();
        DiscoveryTest::TearDown();
    }
};

TEST_F(DaemonDiscoveryTest, TheHostsListerIsAskedAndItsScriptsComeByPriority) {
    ShellStub::Substitute("printf '/etc/init.d/%s\\n' 'b 20' 'obsvd 5' 'a 10' 'logrelayd 1'");
    discovery_.CollectDaemons();
    EXPECT_EQ("/bin/chkconfig -p", ShellStub::asked());
    EXPECT_THAT(PluginNames(), ElementsAre("a", "b"));
    EXPECT_THAT(FakePlatform::log(), IsEmpty());
}

TEST_F(DaemonDiscoveryTest, AScriptThatCannotBeWrappedIsALineAndTheOthersAreCollected) {
    static_cast<void>(BarrierRegistry::Instance().Find("_<->_priority_<->_20", true));
    ShellStub::Substitute("printf '/etc/init.d/%s\\n' 'a 10' 'b 20' 'c 30'");
    discovery_.CollectDaemons();
    EXPECT_THAT(PluginNames(), ElementsAre("a", "c"));
    EXPECT_THAT(FakePlatform::log(),
                ElementsAre(LogMessage{3,
                                       "Failed to create init.d daemon plugin: b because: barrier "
                                       "'_<->_priority_<->_20' does not stand for a priority\n"}));
}

TEST(PluginFileNameTest, AFileOfAKnownTypeIsNoReasonToComplain) {
    EXPECT_EQ("", WhyNoPluginFile("a.so"));
    EXPECT_EQ("", WhyNoPluginFile("a.b.json"));
    EXPECT_EQ("", WhyNoPluginFile("x.debug"));
    EXPECT_EQ("ignoring plugin 'a' of unspecified type...", WhyNoPluginFile("a"));
    EXPECT_EQ("ignoring plugin 'a.SO' of unknown type (SO)...", WhyNoPluginFile("a.SO"));
}

TEST(EarlyServiceTest, TheLogAndTheEventDaemonAreStartedByInitRuns) {
    EXPECT_TRUE(IsEarlyService("logrelayd"));
    EXPECT_TRUE(IsEarlyService("obsvd"));
    EXPECT_FALSE(IsEarlyService("obsvd2"));
}

TEST(RunOnceKeyTest, ItIsRecordedWithoutForeignCharacters) {
    EXPECT_EQ("net1 0,b", RunOnceKey("net", "1 0,b"));
    EXPECT_EQ("net10b", RecordedRunOnceKey("net1 0,b"));
    EXPECT_EQ("aZ9-._+", RecordedRunOnceKey("aZ9-._+/\xc3\xa4"));
}

}  // namespace
}  // namespace bootweave
