// SPDX-License-Identifier: Apache-2.0
#include "analyze/simulation.h"

#include <chrono>
#include <optional>

#include "gmock/gmock.h"
#include "graph/stall.h"
#include "tests/support/fake_platform.h"
#include "util/exception.h"

namespace bootweave {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr Instant kBegin{std::chrono::hours(24)};

/// a takes 30, then at "x" b 20 and c 50; d 40 on its own; e did not run. The run began 5 before the first
/// plugin and ended 7 behind the last one.
class SimulationTest : public testing::Test {
  protected:
    SimulationTest() {
        FakePlatform::Reset();
        StallWatch::Reset();
        block_.kernel = Duration(0);
        block_.settings.parallel = false;
        block_.settings.randomize = false;
        block_.start = kBegin;
        block_.plugins = {
            Ran("a", 5, 35), Ran("b", 35, 55), Ran("c", 55, 105), Ran("d", 105, 145), {"e", {}, {}}};
        block_.end = kBegin + Duration(152);
        graph_.plugins = {{PluginKind::kJSON, {}, {0}},
                          {PluginKind::kJSON, {0}, {}},
                          {PluginKind::kJSON, {0}, {}},
                          {PluginKind::kJSON, {}, {}},
                          {PluginKind::kJSON, {}, {}}};
        graph_.barriers = {{"x", {0}, {1, 2}}};
    }
    ~SimulationTest() override { StallWatch::Reset(); }
    SimulationTest(const SimulationTest&) = delete;
    SimulationTest& operator=(const SimulationTest&) = delete;

    static PluginTimes Ran(const char* name, int from, int to) {
        return {name, kBegin + Duration(from), kBegin + Duration(to)};
    }

    /// Each plugin as "NAME AT+TAKEN", as they were taken.
    std::vector<std::string> Run(const WhatIf& what_if) {
        std::vector<std::string> plugins;
        for (const auto& [plugin, at, taken, waited] : Simulate(block_, graph_, what_if).plugins) {
            plugins.push_back(block_.plugins[plugin].name + " " + std::to_string(at.count()) + "+" +
                              std::to_string((taken + waited).count()));
        }
        return plugins;
    }

    int Total(const WhatIf& what_if) {
        return static_cast<int>(Simulate(block_, graph_, what_if).simulated().value().count());
    }

    void ExpectUnknownTotals(const std::optional<Duration>& recorded) {
        const Simulation simulation = Simulate(block_, graph_, {});
        EXPECT_EQ(recorded, simulation.recorded);
        for (const std::optional<Duration>& total :
             {simulation.outside, simulation.simulated(), simulation.change(), simulation.bound(),
              simulation.bound_of_any()}) {
            EXPECT_EQ(std::nullopt, total);
        }
    }

    std::string ErrorOf(const WhatIf& what_if) {
        try {
            static_cast<void>(Simulate(block_, graph_, what_if));
        } catch (const Exception& exception) {
            return exception.what();
        }
        return "";
    }

    ProfileBlock block_;
    RunGraph graph_;
};

TEST_F(SimulationTest, WithTheSettingsOfTheRunItTakesWhatTheRunTook) {
    const Simulation simulation = Simulate(block_, graph_, {});
    EXPECT_EQ(1U, simulation.threads);
    EXPECT_EQ(Duration(152), simulation.recorded);
    EXPECT_EQ(Duration(152), simulation.simulated());
    EXPECT_EQ(Duration(0), simulation.change());
    EXPECT_EQ(Duration(12), simulation.outside);
    EXPECT_EQ(Duration(140), simulation.work);
    EXPECT_THAT(simulation.warnings, IsEmpty());
}

TEST_F(SimulationTest, MoreThreadsRunMoreAtATime) {
    EXPECT_THAT(Run({.threads = 2}), ElementsAre("a 0+30", "d 0+40", "b 30+20", "c 40+50"));
    EXPECT_EQ(12 + 90, Total({.threads = 2}));
    EXPECT_EQ(12 + 80, Total({.threads = 3}));
}

TEST_F(SimulationTest, NoNumberOfThreadsBeatsTheLongestChain) {
    for (const std::size_t threads : {1U, 2U, 3U, 100U}) {
        const Simulation simulation = Simulate(block_, graph_, {.threads = threads});
        EXPECT_EQ(Duration(80), simulation.longest_chain);
        EXPECT_EQ(Duration(92), simulation.bound_of_any());
        EXPECT_LE(simulation.bound_of_any(), simulation.bound());
        EXPECT_LE(simulation.bound(), simulation.simulated());
    }
}

TEST_F(SimulationTest, HostCommandsOfASerialRunWaitForTheirTurn) {
    for (RunPlugin& plugin : graph_.plugins) {
        plugin.commands = 1;
    }
    // d, whose command comes second, runs behind that of a, and so on: threads help nothing.
    EXPECT_THAT(Run({.threads = 9}), ElementsAre("a 0+30", "d 0+70", "b 30+60", "c 30+110"));
    const Simulation simulation = Simulate(block_, graph_, {.threads = 9});
    EXPECT_EQ(Duration(140), simulation.commands);
    EXPECT_EQ(Duration(152), simulation.simulated());
    EXPECT_EQ(Duration(152), simulation.bound_of_any());
    EXPECT_EQ(Duration(152), simulation.bound());
    EXPECT_EQ(Duration(80), simulation.longest_chain);
}

TEST_F(SimulationTest, TheTimesOfAParallelRunHoldTheWaitingAlready) {
    block_.settings.parallel = true;
    for (RunPlugin& plugin : graph_.plugins) {
        plugin.commands = 1;
    }
    EXPECT_THAT(Run({.threads = 9}), ElementsAre("a 0+30", "d 0+40", "b 30+20", "c 30+50"));
    EXPECT_EQ(Duration(0), Simulate(block_, graph_, {.threads = 9}).commands);
}

TEST_F(SimulationTest, FewThreadsAreBoundByTheWork) {
    EXPECT_EQ(Duration(12 + 140), Simulate(block_, graph_, {.threads = 1}).bound());
    EXPECT_EQ(Duration(12 + 80), Simulate(block_, graph_, {.threads = 2}).bound());
    block_.plugins[3].end += Duration(41);
    *block_.end += Duration(41);
    EXPECT_EQ(Duration(12 + 91), Simulate(block_, graph_, {.threads = 2}).bound());  // 181 by 2, rounded up
}

TEST_F(SimulationTest, APluginThatIsLeftOutHoldsNobodyUp) {
    EXPECT_THAT(Run({.without = {"a"}}), ElementsAre("d 0+40", "b 40+20", "c 60+50"));
    const Simulation simulation = Simulate(block_, graph_, {.without = {"a"}});
    EXPECT_EQ(Duration(50), simulation.longest_chain);
    EXPECT_THAT(simulation.warnings, ElementsAre("nobody provides x then: what requires it does not wait"));
    EXPECT_THAT(Simulate(block_, graph_, {.without = {"b", "d"}}).warnings, IsEmpty());
}

TEST_F(SimulationTest, ATimeTakesThePlaceOfTheRecordedOne) {
    EXPECT_EQ(152 - 25, Total({.times = {{"a", Duration(5)}}}));
    EXPECT_EQ(152 + 9, Total({.times = {{"a", Duration(5)}, {"a", Duration(39)}}}));
}

TEST_F(SimulationTest, APluginThatDidNotRunDoesWhenItHasATime) {
    EXPECT_EQ(152 + 10, Total({.times = {{"e", Duration(10)}}}));
}

TEST_F(SimulationTest, ANameStandsForAllPluginsThatHaveIt) {
    block_.plugins[3].name = "a";
    EXPECT_EQ(152 - 70, Total({.without = {"a"}}));
}

TEST_F(SimulationTest, TheTotalsOfACutProfileAreUnknown) {
    const ProfileBlock whole = block_;
    block_.end.reset();
    ExpectUnknownTotals(std::nullopt);
    block_ = whole;
    block_.start.reset();
    ExpectUnknownTotals(std::nullopt);
    block_ = whole;
    block_.kernel.reset();  // plugins may be missing behind the first line
    ExpectUnknownTotals(Duration(152));
    block_.kind = RunKind::kDaemon;  // which has no such line
    EXPECT_EQ(Duration(152), Simulate(block_, graph_, {}).simulated());
}

TEST_F(SimulationTest, TheTotalsOfARunThatSetTheClockBackAreUnknown) {
    const ProfileBlock whole = block_;
    block_.end = kBegin - Duration(1);
    ExpectUnknownTotals(std::nullopt);
    block_ = whole;
    block_.plugins[1].end = block_.plugins[1].start - Duration(1);
    ExpectUnknownTotals(std::nullopt);
}

TEST_F(SimulationTest, WhatAPluginWaitsForItsTurnIsNoneOfItsTime) {
    for (RunPlugin& plugin : graph_.plugins) {
        plugin.commands = 1;
    }
    Duration taken(0);
    std::vector<std::string> waited;
    for (const SimulatedPlugin& plugin : Simulate(block_, graph_, {.threads = 9}).plugins) {
        EXPECT_EQ(block_.plugins[plugin.plugin].taken(), plugin.taken);
        taken += plugin.taken;
        waited.push_back(block_.plugins[plugin.plugin].name + " " + std::to_string(plugin.waited.count()));
    }
    EXPECT_EQ(Duration(140), taken);
    EXPECT_THAT(waited, ElementsAre("a 0", "d 30", "b 40", "c 60"));
}

TEST_F(SimulationTest, WhatTheProfileDoesNotTellOfTheSettingsIsSaid) {
    block_.settings = {};
    const Simulation apart = Simulate(block_, graph_, {});
    EXPECT_FALSE(apart.parallel);
    EXPECT_EQ(1U, apart.threads);
    EXPECT_THAT(apart.warnings,
                ElementsAre("the profile does not tell whether the run was serial or parallel: taken for "
                            "serial, since no two plugins ran at a time",
                            "the profile does not tell whether the run chose at random: taken for one that "
                            "did not"));
    block_.settings.randomize = false;
    block_.plugins[1].end += Duration(1);
    const Simulation side_by_side = Simulate(block_, graph_, {.threads = 3});
    EXPECT_TRUE(side_by_side.parallel);
    EXPECT_THAT(side_by_side.warnings,
                ElementsAre("the profile does not tell whether the run was serial or parallel: taken for "
                            "parallel, since plugins ran at the same time"));
    FakePlatform::SetProcessorCount(2);
    EXPECT_EQ(4U, Simulate(block_, graph_, {}).threads);
}

TEST_F(SimulationTest, WhatCannotBeImaginedIsAnError) {
    EXPECT_EQ("the profile has no plugin f", ErrorOf({.without = {"f"}}));
    EXPECT_EQ("the profile has no plugin f", ErrorOf({.times = {{"f", Duration(1)}}}));
    EXPECT_EQ("a is left out, and has a time", ErrorOf({.without = {"a"}, .times = {{"a", Duration(1)}}}));
    EXPECT_EQ("no plugin would run", ErrorOf({.without = {"a", "b", "c", "d"}}));
}

TEST_F(SimulationTest, TimesThatCannotBeAddedUpAreAnError) {
    for (PluginTimes& plugin : block_.plugins) {
        plugin.name = "a";
    }
    EXPECT_EQ("the plugins would take longer than can be added up",
              ErrorOf({.times = {{"a", Duration::max() / 5}}}));
}

TEST_F(SimulationTest, FilesThatWereMadeToWaitForEachOtherAreAnError) {
    graph_.plugins[0].required = {1};
    graph_.plugins[2].provided = {1};
    graph_.barriers.push_back({"y", {2}, {0}});
    EXPECT_EQ("plugins wait for each other: a -> c -> a", ErrorOf({}));
}

TEST_F(SimulationTest, TheThreadsOfAParallelRunAreThoseOfThisHostOrMore) {
    FakePlatform::SetProcessorCount(2);
    EXPECT_EQ(1U, RecordedThreads(block_));
    block_.settings.parallel = true;
    EXPECT_EQ(4U, RecordedThreads(block_));
    FakePlatform::SetProcessorCount(1);
    EXPECT_EQ(2U, RecordedThreads(block_));
    for (PluginTimes& plugin : block_.plugins) {
        plugin.start = kBegin;
        plugin.end = kBegin + Duration(9);
    }
    EXPECT_EQ(5U, RecordedThreads(block_));
}

}  // namespace
}  // namespace bootweave
