// SPDX-License-Identifier: Apache-2.0
#include "plugins/plugin.h"

#include <cstdint>
#include <functional>
#include <optional>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include <sys/time.h>
#include <unistd.h>

#include "gmock/gmock.h"
#include "tests/support/fake_platform.h"
#include "util/exception.h"
#include "util/retry.h"
#include "util/unique_fd.h"

namespace {

/// What the wall clock shows, one value a call; the real clock goes on behind the last one.
std::vector<timeval> g_clock;

}  // namespace

// The linker gives these names to the wrapped function.
extern "C" {
// NOLINTBEGIN(bugprone-reserved-identifier)
int __real_gettimeofday(timeval* now, void* zone);
int __wrap_gettimeofday(timeval* now, void* zone);

int __wrap_gettimeofday(timeval* now, void* zone) {
    if (g_clock.empty()) {
        return __real_gettimeofday(now, zone);
    }
    *now = g_clock.front();
    g_clock.erase(g_clock.begin());
    return 0;
}
// NOLINTEND(bugprone-reserved-identifier)
}

namespace bootweave {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::MatchesRegex;

/// A plugin whose methods do what a test wants.
class TestPlugin : public Plugin {
  public:
    explicit TestPlugin(const std::string& name) : Plugin(name) {}
    TestPlugin(const std::string& name, std::uint32_t order_key) : Plugin(name, order_key) {}

    void Start() override {
        ++starts;
        on_start();
    }
    [[nodiscard]] bool SupportsHostProfile() const override { return supports_host_profile; }
    void ApplyHostProfile() override {
        if (!on_apply) {
            throw NotImplementedException("TestPlugin::ApplyHostProfile");
        }
        on_apply();
    }

    void Require(const std::string& barrier) { requires_.push_back(barrier); }
    void Provide(const std::string& barrier) { provides_.push_back(barrier); }

    int starts = 0;
    bool supports_host_profile = false;
    std::function<void()> on_start = [] {};
    std::function<void()> on_apply;
};

class PluginTest : public testing::Test {
  protected:
    void SetUp() override {
        FakePlatform::Reset();
        *RunConfig::Instance() = RunConfig();
        g_clock.clear();
    }
    void TearDown() override {
        *RunConfig::Instance() = RunConfig();
        g_clock.clear();
    }

    /// Runs the plugin. Returns the lines of the log, "LEVEL text", and of the kernel's log, "kernel text",
    /// in the order in which they came.
    std::string Transcript() {
        Pipe pipe = Pipe::Create();
        FakePlatform::EchoTo(pipe.write_end.get());
        plugin_.Execute();
        FakePlatform::EchoTo(-1);
        pipe.write_end.Reset();
        std::string lines;
        char buffer[1024];
        ssize_t count = 0;
        while ((count = RetryOnEintr([&] { return ::read(pipe.read_end.get(), buffer, sizeof buffer); })) >
               0) {
            lines.append(buffer, static_cast<std::size_t>(count));
        }
        return lines;
    }

    TestPlugin plugin_{"net"};
};

TEST_F(PluginTest, StartsAndTellsTheKernelsLogBeforeAndAfter) {
    plugin_.on_start = [] {
        EXPECT_THAT(FakePlatform::kernel_log(), ElementsAre("Activating Bootweave plugin net."));
    };
    plugin_.Execute();
    EXPECT_EQ(1, plugin_.starts);
    EXPECT_THAT(FakePlatform::log(), ElementsAre(LogMessage{5, "executing start plugin: net\n"}));
    EXPECT_THAT(FakePlatform::kernel_log(),
                ElementsAre("Activating Bootweave plugin net.", "Bootweave plugin net activated."));
}

TEST_F(PluginTest, WithoutAHostProfileAPluginThatSupportsOneStarts) {
    plugin_.supports_host_profile = true;
    plugin_.Execute();
    EXPECT_EQ(1, plugin_.starts);
}

TEST_F(PluginTest, AFailedMethodIsTheReason) {
    plugin_.on_start = [] { throw MethodFailedException("start", "net", "no luck"); };
    plugin_.Execute();
    EXPECT_THAT(FakePlatform::log(),
                ElementsAre(LogMessage{5, "executing start plugin: net\n"},
                            LogMessage{2, "Method invocation failed: net->start() failed: no luck\n"}));
    EXPECT_THAT(FakePlatform::kernel_log(),
                ElementsAre("Activating Bootweave plugin net.",
                            "Bootweave plugin net activation failed: net->start() failed: no luck"));
}

TEST_F(PluginTest, AnotherExceptionIsTheReasonToo) {
    plugin_.on_start = [] { throw std::runtime_error("broken"); };
    plugin_.Execute();
    EXPECT_THAT(FakePlatform::log(),
                ElementsAre(LogMessage{5, "executing start plugin: net\n"},
                            LogMessage{2, "unhandled exception whilst processing net: broken\n"}));
    EXPECT_EQ("Bootweave plugin net activation failed: broken", FakePlatform::kernel_log().back());
}

TEST_F(PluginTest, WhatIsNoExceptionIsAnUnknownOne) {
    plugin_.on_start = [] { throw 42; };  // NOLINT(hicpp-exception-baseclass)
    plugin_.Execute();
    EXPECT_THAT(FakePlatform::log(),
                ElementsAre(LogMessage{5, "executing start plugin: net\n"},
                            LogMessage{2, "ignoring unknown exception whilst processing net ...\n"}));
    EXPECT_EQ("Bootweave plugin net activation failed: unknown exception", FakePlatform::kernel_log().back());
}

TEST_F(PluginTest, TheNamedMethodIsInvoked) {
    RunConfig::Instance()->method = "start";
    plugin_.Execute();
    EXPECT_EQ(1, plugin_.starts);
    EXPECT_THAT(FakePlatform::log(), ElementsAre(LogMessage{5, "executing start plugin: net\n"}));
    EXPECT_EQ("Bootweave plugin net activated.", FakePlatform::kernel_log().back());
}

TEST_F(PluginTest, AMethodThatThePluginLacksIsAFailedInvocation) {
    RunConfig::Instance()->method = "apply_host_profile";
    plugin_.Execute();
    EXPECT_THAT(FakePlatform::log(),
                ElementsAre(LogMessage{5, "executing host profile plugin: net\n"},
                            LogMessage{2,
                                       "unable to invoke method 'apply_host_profile' on plugin 'net': method "
                                       "`TestPlugin::ApplyHostProfile' is not implemented\n"}));
    EXPECT_THAT(FakePlatform::kernel_log(),
                ElementsAre("Activating Bootweave plugin net.",
                            "Bootweave plugin net activation failed: Method invocation failed"));
}

TEST_F(PluginTest, ANamedMethodThatFailsSaysWhy) {
    RunConfig::Instance()->method = "start";
    plugin_.on_start = [] { throw MethodFailedException("start", "net", "no luck"); };
    plugin_.Execute();
    EXPECT_EQ((LogMessage{2, "Method invocation failed: net->start() failed: no luck\n"}),
              FakePlatform::log().back());
    EXPECT_EQ("Bootweave plugin net activation failed: Method invocation failed",
              FakePlatform::kernel_log().back());
}

TEST_F(PluginTest, ANamedMethodThatThrowsWhatIsNoExceptionSaysSo) {
    RunConfig::Instance()->method = "start";
    plugin_.on_start = [] { throw 42; };  // NOLINT(hicpp-exception-baseclass)
    plugin_.Execute();
    EXPECT_EQ(
        (LogMessage{2, "unknown exception whilst attempting to execute method 'start' on plugin 'net'\n"}),
        FakePlatform::log().back());
}

TEST_F(PluginTest, AMethodThatNobodyKnowsSucceedsSilently) {
    RunConfig::Instance()->method = "foo";
    plugin_.Execute();
    EXPECT_EQ(0, plugin_.starts);
    EXPECT_THAT(FakePlatform::log(), IsEmpty());
    EXPECT_THAT(FakePlatform::kernel_log(),
                ElementsAre("Activating Bootweave plugin net.", "Bootweave plugin net activated."));
}

TEST_F(PluginTest, TraceFramesTheRunAlsoWhenItFails) {
    RunConfig::Instance()->trace = true;
    plugin_.on_start = [] { throw std::runtime_error("broken"); };
    plugin_.Execute();
    const std::vector<LogMessage> log = FakePlatform::log();
    ASSERT_EQ(4U, log.size());
    EXPECT_EQ((LogMessage{5, "starting execution of plugin: net\n"}), log[0]);
    EXPECT_EQ(2, log[2].level);
    EXPECT_EQ(5, log[3].level);
    EXPECT_THAT(log[3].text, MatchesRegex("completed execution of plugin: net \\(took [0-9]+ us\\)\n"));
}

TEST_F(PluginTest, TakesItsTimesByTheWallClock) {
    EXPECT_EQ(0, plugin_.start_time().tv_sec);
    EXPECT_EQ(0, plugin_.end_time().tv_sec);
    timeval before{};
    ::gettimeofday(&before, nullptr);
    plugin_.Execute();
    EXPECT_FALSE(timercmp(&plugin_.start_time(), &before, <));
    EXPECT_FALSE(timercmp(&plugin_.end_time(), &plugin_.start_time(), <));
    EXPECT_GE(plugin_.elapsed_microseconds(), 0);
    EXPECT_LT(plugin_.elapsed_microseconds(), 60'000'000);
}

TEST_F(PluginTest, IsAPluginOfOrderKeyOneWithNothingSet) {
    EXPECT_EQ(1U, plugin_.order_key());
    EXPECT_EQ(7U, TestPlugin("d", 7).order_key());
    EXPECT_EQ(-1, plugin_.GetVersion());
    EXPECT_EQ("", plugin_.GetDotAttributes());
    EXPECT_FALSE(plugin_.run_once());
    EXPECT_EQ("", plugin_.plugin_version());
    EXPECT_THAT(plugin_.required_flags(), IsEmpty());
    EXPECT_THAT(plugin_.disabling_flags(), IsEmpty());
}

TEST_F(PluginTest, LinksBehindWhatItRequiresAndBeforeWhatItProvidesOnce) {
    BarrierRegistry registry;
    plugin_.Require("b");
    plugin_.Require("a");
    plugin_.Require("b");
    plugin_.Provide("c");
    EXPECT_THAT(registry.List(), IsEmpty());
    for (int round = 0; round < 2; ++round) {
        plugin_.LinkIntoGraph(registry);
        EXPECT_THAT(plugin_.dependencies(), ElementsAre(registry.Find("b", false), registry.Find("a", false),
                                                        registry.Find("b", false)));
        EXPECT_THAT(plugin_.dependents(), ElementsAre(registry.Find("c", false)));
    }
}

TEST_F(PluginTest, TheTwoLogsTellOneStory) {
    RunConfig::Instance()->trace = true;
    g_clock = {{100, 900'000}, {102, 100'000}};
    EXPECT_EQ(
        "5 starting execution of plugin: net\n"
        "kernel Activating Bootweave plugin net.\n"
        "5 executing start plugin: net\n"
        "5 completed execution of plugin: net (took 1200000 us)\n"
        "kernel Bootweave plugin net activated.\n",
        Transcript());

    g_clock = {{100, 0}, {100, 7}};
    plugin_.on_start = [] { throw MethodFailedException("start", "net", "no luck"); };
    EXPECT_EQ(
        "5 starting execution of plugin: net\n"
        "kernel Activating Bootweave plugin net.\n"
        "5 executing start plugin: net\n"
        "2 Method invocation failed: net->start() failed: no luck\n"
        "5 completed execution of plugin: net (took 7 us)\n"
        "kernel Bootweave plugin net activation failed: net->start() failed: no luck\n",
        Transcript());

    g_clock = {{100, 0}, {100, 0}};
    RunConfig::Instance()->method = "start";
    EXPECT_EQ(
        "5 starting execution of plugin: net\n"
        "kernel Activating Bootweave plugin net.\n"
        "5 executing start plugin: net\n"
        "2 Method invocation failed: net->start() failed: no luck\n"
        "5 completed execution of plugin: net (took 0 us)\n"
        "kernel Bootweave plugin net activation failed: Method invocation failed\n",
        Transcript());
}

TEST_F(PluginTest, TheElapsedTimeCountsMicrosecondsInBothDirections) {
    struct Case {
        timeval start;
        timeval end;
        std::int64_t elapsed;
    };
    for (const Case& expected :
         {Case{{5, 999'999}, {6, 0}, 1}, Case{{5, 0}, {5, 0}, 0}, Case{{10, 5}, {8, 4}, -2'000'001},
          Case{{0, 0}, {4'000'000'000, 1}, 4'000'000'000'000'001}}) {
        g_clock = {expected.start, expected.end};
        plugin_.Execute();
        EXPECT_EQ(expected.elapsed, plugin_.elapsed_microseconds());
        EXPECT_EQ(expected.start.tv_sec, plugin_.start_time().tv_sec);
        EXPECT_EQ(expected.end.tv_usec, plugin_.end_time().tv_usec);
    }
}

TEST_F(PluginTest, TheTimesAreTakenAroundTheMethod) {
    g_clock = {{1, 0}, {2, 0}, {3, 0}};
    plugin_.on_start = [&] {
        timeval inside{};
        ::gettimeofday(&inside, nullptr);
        EXPECT_EQ(2, inside.tv_sec);
        EXPECT_EQ(1, plugin_.start_time().tv_sec);
        EXPECT_EQ(0, plugin_.end_time().tv_sec);
    };
    plugin_.Execute();
    EXPECT_EQ(3, plugin_.end_time().tv_sec);
}

TEST_F(PluginTest, ApplyHostProfileIsInvokedByNameWithoutAskingWhetherItIsSupported) {
    RunConfig::Instance()->method = "apply_host_profile";
    int applied = 0;
    plugin_.on_apply = [&] { ++applied; };
    plugin_.supports_host_profile = false;
    EXPECT_EQ(
        "kernel Activating Bootweave plugin net.\n"
        "5 executing host profile plugin: net\n"
        "kernel Bootweave plugin net activated.\n",
        Transcript());
    EXPECT_EQ(1, applied);
    EXPECT_EQ(0, plugin_.starts);
}

TEST_F(PluginTest, EachKindOfFailureOfAnInvocationHasItsLine) {
    RunConfig::Instance()->method = "apply_host_profile";
    const std::string start =
        "kernel Activating Bootweave plugin net.\n"
        "5 executing host profile plugin: net\n";
    const std::string end = "kernel Bootweave plugin net activation failed: Method invocation failed\n";
    plugin_.on_apply = [] { throw MethodFailedException("apply_host_profile", "net", "no luck"); };
    EXPECT_EQ(start + "2 Method invocation failed: net->apply_host_profile() failed: no luck\n" + end,
              Transcript());
    plugin_.on_apply = [] { throw std::runtime_error("broken"); };
    EXPECT_EQ(start + "2 unable to invoke method 'apply_host_profile' on plugin 'net': broken\n" + end,
              Transcript());
    plugin_.on_apply = [] { throw 42; };  // NOLINT(hicpp-exception-baseclass)
    EXPECT_EQ(start +
                  "2 unknown exception whilst attempting to execute method 'apply_host_profile' on plugin"
                  " 'net'\n" +
                  end,
              Transcript());
}

TEST_F(PluginTest, MethodNamesAreComparedWhole) {
    for (const char* method : {"Start", "start ", "stop", "apply-host-profile", "star"}) {
        RunConfig::Instance()->method = method;
        EXPECT_EQ(
            "kernel Activating Bootweave plugin net.\n"
            "kernel Bootweave plugin net activated.\n",
            Transcript());
    }
    EXPECT_EQ(0, plugin_.starts);
}

TEST_F(PluginTest, NamesAndReasonsAreNoFormats) {
    TestPlugin plugin("%s%n%d");
    plugin.on_start = [] { throw std::runtime_error("100%s"); };
    plugin.Execute();
    EXPECT_THAT(FakePlatform::log(),
                ElementsAre(LogMessage{5, "executing start plugin: %s%n%d\n"},
                            LogMessage{2, "unhandled exception whilst processing %s%n%d: 100%s\n"}));
    EXPECT_THAT(FakePlatform::kernel_log(), ElementsAre("Activating Bootweave plugin %s%n%d.",
                                                        "Bootweave plugin %s%n%d activation failed: 100%s"));
}

TEST_F(PluginTest, AKernelLogThatFailsDoesNotFailThePlugin) {
    FakePlatform::FailKernelLog(FakePlatform::KernelLogFailure::kHostException, "No such device");
    plugin_.Execute();
    EXPECT_EQ(1, plugin_.starts);
    EXPECT_THAT(FakePlatform::kernel_log(), ElementsAre("Bootweave plugin net activated."));
}

// Whatever its neighbours do, each plugin has its own times, outcome and pair of kernel lines.
TEST_F(PluginTest, PluginsRunAtTheSameTime) {
    constexpr int kPlugins = 16;
    std::vector<std::unique_ptr<TestPlugin>> plugins;
    std::vector<std::thread> threads;
    for (int i = 0; i < kPlugins; ++i) {
        plugins.push_back(std::make_unique<TestPlugin>("p" + std::to_string(i)));
        if (i % 2 == 1) {
            plugins.back()->on_start = [] { throw std::runtime_error("odd"); };
        }
        threads.emplace_back([plugin = plugins.back().get()] { plugin->Execute(); });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    const std::vector<std::string> kernel_log = FakePlatform::kernel_log();
    EXPECT_EQ(2U * kPlugins, kernel_log.size());
    for (int i = 0; i < kPlugins; ++i) {
        const std::string name = "p" + std::to_string(i);
        EXPECT_EQ(1, plugins[static_cast<std::size_t>(i)]->starts);
        EXPECT_THAT(kernel_log, testing::Contains("Activating Bootweave plugin " + name + ".").Times(1));
        EXPECT_THAT(kernel_log, testing::Contains("Bootweave plugin " + name +
                                                  (i % 2 == 1 ? " activation failed: odd" : " activated."))
                                    .Times(1));
    }
}

TEST_F(PluginTest, ReverseIsNoWorkOfAPlainPlugin) {
    plugin_.ExecuteReverse();
    EXPECT_EQ(0, plugin_.starts);
    EXPECT_THAT(FakePlatform::log(), IsEmpty());
    EXPECT_THAT(FakePlatform::kernel_log(), IsEmpty());
}

TEST_F(PluginTest, LinksNothingWhenItNamesNothing) {
    BarrierRegistry registry;
    plugin_.LinkIntoGraph(registry);
    EXPECT_THAT(registry.List(), IsEmpty());
    EXPECT_THAT(plugin_.dependencies(), IsEmpty());
    EXPECT_THAT(plugin_.dependents(), IsEmpty());
}

TEST_F(PluginTest, WhatItProvidesWaitsForItOncePerMention) {
    BarrierRegistry registry;
    TestPlugin other("other");
    for (TestPlugin* plugin : {&plugin_, &other}) {
        plugin->Provide("c");
        plugin->Provide("c");
        plugin->LinkIntoGraph(registry);
    }
    EXPECT_THAT(registry.Find("c", false)->dependencies(), ElementsAre(&plugin_, &plugin_, &other, &other));
    EXPECT_EQ(1U, registry.List().size());
}

}  // namespace
}  // namespace bootweave
