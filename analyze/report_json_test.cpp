// SPDX-License-Identifier: Apache-2.0
#include "analyze/report_json.h"

#include <sstream>

#include "gmock/gmock.h"

namespace bootweave {
namespace {

constexpr const char* kBoot =
    "Mantle Initialization Time: 12000000\n"
    "[2026-11-15 15:00:00.250000 - 2026-11-15 15:00:00.500000] sysboot: \"net\"\n"
    "[2026-11-15 15:00:00.000000 - 2026-11-15 15:00:00.750000] sysboot: st\xC3\xB6rage \xFF\n"
    "[1970-01-01 00:00:00.000000 - 1970-01-01 00:00:00.000000] sysboot: once\n"
    "=== Bootweave configuration info ===\n"
    " Start: 2026-11-15 15:00:00.000000\n"
    " End: 2026-11-15 15:00:02.000000\n"
    " Verbose: 0\n"
    " Parallel: 1\n"
    " Randomize: 0\n"
    " Interactive Mode: 0\n"
    " Random Seed: -5\n";

ChosenRun RunOf(const std::string& text) {
    return {"/log", 1, 1, ParseBootProfile(text).blocks.at(0)};
}

std::string Time(const std::string& text) {
    std::ostringstream out;
    WriteTimeJson(out, RunOf(text));
    return out.str();
}

std::string BlameOf(const std::string& text) {
    std::ostringstream out;
    WriteBlameJson(out, RunOf(text));
    return out.str();
}

TEST(ReportJsonTest, TimeHasEveryNumberOfTheRun) {
    EXPECT_EQ(
        R"({"profile":"/log","block":1,"blocks":1,"kind":"boot","start":"2026-11-15 15:00:00.000000",)"
        R"("end":"2026-11-15 15:00:02.000000","kernel_us":12000000,"total_us":2000000,"plugins_us":1000000,)"
        R"("plugins_ran":2,"plugins_idle":["once"],"plugins_at_a_time":5E-1,)"
        R"("settings":{"verbose":false,"parallel":true,"randomize":false,"interactive":false,"seed":-5}})"
        "\n",
        Time(kBoot));
}

TEST(ReportJsonTest, WhatACutLogDoesNotTellIsNull) {
    EXPECT_EQ(
        R"({"profile":"/log","block":1,"blocks":1,"kind":"daemon","start":null,"end":null,"kernel_us":null,)"
        R"("total_us":null,"plugins_us":0,"plugins_ran":0,"plugins_idle":[],"plugins_at_a_time":null,)"
        R"("settings":{"verbose":null,"parallel":null,"randomize":null,"interactive":null,"seed":null}})"
        "\n",
        Time("=== Daemon configuration info ===\n"));
}

TEST(ReportJsonTest, BlameHasThePluginsThatRanAndIsUtf8WhateverTheirNames) {
    EXPECT_EQ(R"({"profile":"/log","block":1,"blocks":1,"kind":"boot","plugins_us":1000000,"plugins":[)"
              "{\"name\":\"st\xC3\xB6rage \xEF\xBF\xBD\","
              R"("start":"2026-11-15 15:00:00.000000","end":"2026-11-15 15:00:00.750000","taken_us":750000,)"
              R"("share":7.5E-1},)"
              R"({"name":"\"net\"","start":"2026-11-15 15:00:00.250000","end":"2026-11-15 15:00:00.500000",)"
              R"("taken_us":250000,"share":2.5E-1}]})"
              "\n",
              BlameOf(kBoot));
}

TEST(ReportJsonTest, AChainHasThePluginsInItsOrder) {
    RunGraph graph;
    graph.barriers = {{"x", {}, {}}};
    std::ostringstream out;
    WriteChainJson(out, RunOf(kBoot), graph, {{0, Duration(250'000), std::nullopt, 0}});
    EXPECT_EQ(R"({"profile":"/log","block":1,"blocks":1,"kind":"boot","plugins":[)"
              R"({"name":"\"net\"","start":"2026-11-15 15:00:00.250000","end":"2026-11-15 15:00:00.500000",)"
              R"("taken_us":250000,"at_us":250000,"idle_us":null,"barrier":"x"}]})"
              "\n",
              out.str());
}

TEST(ReportJsonTest, AListHasEachRunOfTheLog) {
    std::ostringstream out;
    WriteListJson(out, "/log", ParseBootProfile(std::string(kBoot) + "=== Daemon configuration info ===\n"));
    EXPECT_EQ(R"({"profile":"/log","blocks":2,"runs":[{"block":1,"kind":"boot","line":1,)"
              R"("start":"2026-11-15 15:00:00.000000","end":"2026-11-15 15:00:02.000000",)"
              R"("total_us":2000000,"plugins_ran":2,"plugins":3},{"block":2,"kind":"daemon","line":13,)"
              R"("start":null,"end":null,"total_us":null,"plugins_ran":0,"plugins":0}]})"
              "\n",
              out.str());
}

TEST(ReportJsonTest, AGraphHasThePluginsAndBarriersOfItsPart) {
    RunGraph graph;
    graph.plugins = {{PluginKind::kJSON, {0}, {}}, {PluginKind::kNative, {}, {0, 1}}, {}};
    graph.barriers = {{"x", {1}, {0}}, {"y", {1}, {}}};
    std::ostringstream out;
    WriteGraphJson(out, RunOf(kBoot), graph, {{0, {}, {}, 0}, {1, {}, {}, {}}},
                   {{true, true, false}, {true, false}});
    EXPECT_EQ(
        R"({"profile":"/log","block":1,"blocks":1,"kind":"boot","plugins":[)"
        R"({"name":"\"net\"","kind":"json","ran":true,"taken_us":250000,"critical":true,)"
        R"("requires":["x"],"provides":[]},)"
        "{\"name\":\"st\xC3\xB6rage \xEF\xBF\xBD\","
        R"("kind":"native","ran":true,"taken_us":750000,"critical":true,"requires":[],"provides":["x"]}],)"
        R"("barriers":[{"name":"x","critical":true,"providers":)"
        "[\"st\xC3\xB6rage \xEF\xBF\xBD\"],"
        R"("requirers":["\"net\""]}]})"
        "\n",
        out.str());
}

TEST(ReportJsonTest, AnImaginedRunHasItsTimesAndThoseOfEachPlugin) {
    Simulation simulation;
    simulation.threads = 2;
    simulation.recorded = Duration(100);
    simulation.makespan = Duration(80);
    simulation.outside = Duration(10);
    simulation.work = Duration(130);
    simulation.longest_chain = Duration(60);
    simulation.plugins = {{0, Duration(5), Duration(60), Duration(10)}};
    std::ostringstream out;
    WriteSimulationJson(out, RunOf(kBoot), simulation);
    EXPECT_EQ(R"({"profile":"/log","block":1,"blocks":1,"kind":"boot","threads":2,"parallel":false,)"
              R"("recorded_us":100,"simulated_us":90,"change_us":-10,"bound_us":75,"bound_any_us":70,)"
              R"("longest_chain_us":60,"commands_us":0,"work_us":130,"outside_us":10,)"
              R"("plugins":[{"name":"\"net\"","at_us":5,"taken_us":60,"waited_us":10}]})"
              "\n",
              out.str());
    simulation.recorded.reset();
    simulation.outside.reset();
    std::ostringstream unknown;
    WriteSimulationJson(unknown, RunOf(kBoot), simulation);
    EXPECT_THAT(
        unknown.str(),
        testing::HasSubstr(R"("recorded_us":null,"simulated_us":null,"change_us":null,"bound_us":null,)"
                           R"("bound_any_us":null,"longest_chain_us":60,)"
                           R"("commands_us":0,"work_us":130,"outside_us":null,)"));
}

TEST(ReportJsonTest, ADifferenceHasBothSidesAndEachPlugin) {
    ChosenRun after = RunOf(kBoot);
    after.block.plugins[0].end += Duration(5);
    after.block.plugins[1].name = "new";
    *after.block.end -= Duration(10);
    std::ostringstream out;
    WriteDiffJson(out, RunOf(kBoot), after);
    EXPECT_EQ(
        R"({"old":{"profile":"/log","block":1,"blocks":1,"kind":"boot","total_us":2000000,)"
        R"("plugins_us":1000000},"new":{"profile":"/log","block":1,"blocks":1,"kind":"boot",)"
        R"("total_us":1999990,"plugins_us":1000005},"total_change_us":-10,"plugins_change_us":5,)"
        R"("plugins":[{"name":"new","old_us":null,"new_us":750000,"change_us":750000},)"
        "{\"name\":\"st\xC3\xB6rage \xEF\xBF\xBD\",\"old_us\":750000,\"new_us\":null,\"change_us\":-750000},"
        R"({"name":"\"net\"","old_us":250000,"new_us":250005,"change_us":5}]})"
        "\n",
        out.str());
    ChosenRun cut = RunOf(kBoot);
    cut.block.end.reset();
    std::ostringstream unknown;
    WriteDiffJson(unknown, RunOf(kBoot), cut);
    EXPECT_NE(std::string::npos, unknown.str().find(R"("total_change_us":null)"));
}

TEST(ReportJsonTest, AVerificationHasItsSumsAndEachFinding) {
    std::ostringstream out;
    WriteVerifyJson(out, {.plugins = 3,
                          .findings = {{"a.json", Severity::kError, FindingKind::kCommand, "a", "x\xff"},
                                       {"d.conf", Severity::kWarning, FindingKind::kWritable, "", "y"}}});
    EXPECT_EQ(R"({"plugins":3,"errors":1,"warnings":1,"findings":[)"
              R"({"file":"a.json","severity":"error","kind":"command","plugin":"a","text":"x)"
              "\xEF\xBF\xBD"
              R"("},)"
              R"({"file":"d.conf","severity":"warning","kind":"writable","plugin":null,"text":"y"}]})"
              "\n",
              out.str());
}

}  // namespace
}  // namespace bootweave
