// SPDX-License-Identifier: Apache-2.0
#include "analyze/report_text.h"

#include <sstream>

#include "gtest/gtest.h"

namespace bootweave {
namespace {

constexpr TextStyle kForPrograms{};
constexpr TextStyle kForPeople{.aligned = true, .coloured = false};
constexpr TextStyle kInColour{.aligned = true, .coloured = true};

constexpr const char* kBoot =
    "Mantle Initialization Time: 12000000\n"
    "[2026-11-15 15:00:00.200000 - 2026-11-15 15:00:00.300000] sysboot: network\n"
    "[2026-11-15 15:00:00.100000 - 2026-11-15 15:00:01.349000] sysboot: storage\n"
    "[1970-01-01 00:00:00.000000 - 1970-01-01 00:00:00.000000] sysboot: once\n"
    "[2026-11-15 15:00:01.400000 - 2026-11-15 15:00:01.401000] sysboot: motd\n"
    "=== Bootweave configuration info ===\n"
    " Start: 2026-11-15 15:00:00.000123\n"
    " End: 2026-11-15 15:00:01.500123\n";

ChosenRun RunOf(const std::string& text) {
    return {"/log", 2, 3, ParseBootProfile(text).blocks.at(0)};
}

std::string Time(const std::string& text, const TextStyle& style) {
    std::ostringstream out;
    WriteTimeText(out, RunOf(text), style);
    return out.str();
}

std::string BlameOf(const std::string& text, const TextStyle& style) {
    std::ostringstream out;
    WriteBlameText(out, RunOf(text), style);
    return out.str();
}

TEST(ReportTextTest, DurationsAreInTheLargestUnitThatLeavesAWholeNumber) {
    EXPECT_EQ("0us", FormatDuration(Duration(0)));
    EXPECT_EQ("999us", FormatDuration(Duration(999)));
    EXPECT_EQ("1.000ms", FormatDuration(Duration(1000)));
    EXPECT_EQ("12.045ms", FormatDuration(Duration(12'045)));
    EXPECT_EQ("999.999ms", FormatDuration(Duration(999'999)));
    EXPECT_EQ("1.000s", FormatDuration(Duration(1'000'999)));
    EXPECT_EQ("59.999s", FormatDuration(Duration(59'999'999)));
    EXPECT_EQ("1min 0.000s", FormatDuration(Duration(60'000'000)));
    EXPECT_EQ("153722867min 15.999s", FormatDuration(Duration(9'223'372'035'999'999)));
}

TEST(ReportTextTest, TimeSaysWhatTheBootTook) {
    EXPECT_EQ(
        "Block 2 of 3 in /log: boot\n"
        "\n"
        "Started                   2026-11-15 15:00:00.000123\n"
        "Kernel handed over after  12.000s\n"
        "Total                     1.500s\n"
        "Sum of plugins            1.350s in 3 plugins\n"
        "Parallel efficiency       0.90 plugins at a time\n"
        "Did not run               1 plugin\n",
        Time(kBoot, kForPeople));
}

TEST(ReportTextTest, APathCannotSteerTheTerminal) {
    ChosenRun run = RunOf(kBoot);
    run.path = "/a\033[31m\nb";
    std::ostringstream out;
    WriteTimeText(out, run, kForPeople);
    EXPECT_EQ(0U, out.str().find("Block 2 of 3 in /a\\x1b[31m\\x0ab: boot\n"));
}

TEST(ReportTextTest, ProgramsGetTabsAndNoHeader) {
    EXPECT_EQ(
        "Started\t2026-11-15 15:00:00.000123\n"
        "Kernel handed over after\t12.000s\n"
        "Total\t1.500s\n"
        "Sum of plugins\t1.350s in 3 plugins\n"
        "Parallel efficiency\t0.90 plugins at a time\n"
        "Did not run\t1 plugin\n",
        Time(kBoot, kForPrograms));
    EXPECT_EQ(
        "1.249s\t92.5%\tstorage\n"
        "100.000ms\t7.4%\tnetwork\n"
        "1.000ms\t0.1%\tmotd\n",
        BlameOf(kBoot, kForPrograms));
}

TEST(ReportTextTest, WhatACutLogDoesNotTellIsUnknown) {
    EXPECT_EQ(
        "Started\tunknown\n"
        "Kernel handed over after\tunknown\n"
        "Total\tunknown\n"
        "Sum of plugins\t0us in 0 plugins\n"
        "Parallel efficiency\tunknown\n",
        Time("=== Bootweave configuration info ===\n", kForPrograms));
}

TEST(ReportTextTest, DaemonRunsDoNotSpeakOfTheKernel) {
    EXPECT_EQ(
        "Block 2 of 3 in /log: daemon\n"
        "\n"
        "Started              2026-11-15 15:00:00.000000\n"
        "Total                5.000s\n"
        "Sum of plugins       0us in 0 plugins\n"
        "Parallel efficiency  0.00 plugins at a time\n",
        Time("=== Daemon configuration info ===\n"
             " Start Daemon: 2026-11-15 15:00:00.000000\n"
             " End Daemon: 2026-11-15 15:00:05.000000\n",
             kForPeople));
}

TEST(ReportTextTest, BlameAlignsTimesAndShares) {
    EXPECT_EQ(
        "Block 2 of 3 in /log: boot\n"
        "\n"
        "          TIME  SHARE  PLUGIN\n"
        "        1.249s  92.5%  storage\n"
        "     100.000ms   7.4%  network\n"
        "       1.000ms   0.1%  motd\n",
        BlameOf(kBoot, kForPeople));
}

TEST(ReportTextTest, ColoursMarkWhatTookATenthOrMore) {
    EXPECT_EQ(
        "\033[1mBlock 2 of 3 in /log: boot\033[0m\n"
        "\n"
        "          TIME  SHARE  PLUGIN\n"
        "        \033[31m1.249s\033[0m  92.5%  storage\n"
        "     100.000ms   7.4%  network\n"
        "       1.000ms   0.1%  motd\n",
        BlameOf(kBoot, kInColour));
}

TEST(ReportTextTest, AListHasEachRunOfTheLog) {
    const BootProfile profile = ParseBootProfile(std::string(kBoot) + "=== Daemon configuration info ===\n" +
                                                 " Start Daemon: 2026-11-15 15:10:00.000000\n");
    std::ostringstream people;
    WriteListText(people, "/log", profile, kForPeople);
    EXPECT_EQ(
        "Runs in /log\n"
        "\n"
        " BLOCK  KIND    STARTED                            TOTAL    RAN  PLUGINS\n"
        "     1  boot    2026-11-15 15:00:00.000123        1.500s      3        4\n"
        "     2  daemon  2026-11-15 15:10:00.000000       unknown      0        0\n",
        people.str());
    std::ostringstream programs;
    WriteListText(programs, "/log", profile, kForPrograms);
    EXPECT_EQ(
        "1\tboot\t2026-11-15 15:00:00.000123\t1.500s\t3\t4\n"
        "2\tdaemon\t2026-11-15 15:10:00.000000\tunknown\t0\t0\n",
        programs.str());
}

std::string DiffOf(const TextStyle& style) {
    ChosenRun before = RunOf(kBoot);
    ChosenRun after = RunOf(kBoot);
    before.block.plugins.back().name = "gone";
    before.block.plugins.back().start = *before.block.start;
    before.block.plugins.back().end = *before.block.start + Duration(7);
    after.block.plugins[0].end -= Duration(60'000);
    after.block.plugins[1].end += Duration(500'000);
    *after.block.end += Duration(440'000);
    std::ostringstream out;
    WriteDiffText(out, before, after, style);
    return out.str();
}

TEST(ReportTextTest, AnImaginedRunHasItsTimeAndWhatBoundsIt) {
    Simulation simulation;
    simulation.threads = 2;
    simulation.recorded = Duration(1'000'000);
    simulation.makespan = Duration(650'000);
    simulation.outside = Duration(100'000);
    simulation.work = Duration(900'000);
    simulation.longest_chain = Duration(400'000);
    std::ostringstream people;
    WriteSimulationText(people, RunOf(kBoot), simulation, kForPeople);
    EXPECT_EQ(
        "Block 2 of 3 in /log: boot\n"
        "\n"
        "Recorded              1.000s\n"
        "Simulated             750.000ms with 2 threads\n"
        "Change                -250.000ms\n"
        "Bound for 2 threads   550.000ms\n"
        "Bound for any number  500.000ms\n",
        people.str());
    simulation.threads = 1;
    std::ostringstream programs;
    WriteSimulationText(programs, RunOf(kBoot), simulation, kForPrograms);
    EXPECT_EQ(
        "Recorded\t1.000s\nSimulated\t750.000ms with 1 thread\nChange\t-250.000ms\n"
        "Bound for 1 thread\t1.000s\nBound for any number\t500.000ms\n",
        programs.str());
    simulation.recorded.reset();
    simulation.outside.reset();
    std::ostringstream cut;
    WriteSimulationText(cut, RunOf(kBoot), simulation, kForPrograms);
    EXPECT_EQ(
        "Recorded\tunknown\nSimulated\tunknown with 1 thread\nChange\tunknown\n"
        "Bound for 1 thread\tunknown\nBound for any number\tunknown\n",
        cut.str());
}

TEST(ReportTextTest, ADifferenceHasTheTotalsAndThenEachPlugin) {
    EXPECT_EQ(
        "Old: Block 2 of 3 in /log: boot\n"
        "New: Block 2 of 3 in /log: boot\n"
        "\n"
        "           OLD           NEW        CHANGE  PLUGIN\n"
        "        1.500s        1.940s    +440.000ms  total\n"
        "        1.349s        1.790s    +440.993ms  sum of plugins\n"
        "\n"
        "        1.249s        1.749s    +500.000ms  storage\n"
        "     100.000ms      40.000ms     -60.000ms  network\n"
        "             -       1.000ms      +1.000ms  motd\n"
        "           7us             -          -7us  gone\n",
        DiffOf(kForPeople));
    EXPECT_EQ(
        "1.500s\t1.940s\t+440.000ms\ttotal\n"
        "1.349s\t1.790s\t+440.993ms\tsum of plugins\n"
        "1.249s\t1.749s\t+500.000ms\tstorage\n"
        "100.000ms\t40.000ms\t-60.000ms\tnetwork\n"
        "-\t1.000ms\t+1.000ms\tmotd\n"
        "7us\t-\t-7us\tgone\n",
        DiffOf(kForPrograms));
}

TEST(ReportTextTest, ColoursMarkWhatChangedByAHundredthOfTheSum) {
    const std::string text = DiffOf(kInColour);
    EXPECT_NE(std::string::npos, text.find("    \033[31m+500.000ms\033[0m  storage\n"));
    EXPECT_NE(std::string::npos, text.find("     \033[32m-60.000ms\033[0m  network\n"));
    EXPECT_NE(std::string::npos, text.find("      +1.000ms  motd\n"));
}

TEST(ReportTextTest, ADifferenceOfTremendousTimesIsOne) {
    ChosenRun before = RunOf(kBoot);
    before.block.plugins[0].end = before.block.plugins[0].start + std::chrono::years(3500);
    ChosenRun after = RunOf(kBoot);
    std::ostringstream out;
    WriteDiffText(out, before, after, {.aligned = true, .coloured = true});
    EXPECT_NE(std::string::npos, out.str().find("\033[32m-1840822199min 59.900s"));
}

TEST(ReportTextTest, ADifferenceOfAnUnknownTotalIsUnknown) {
    ChosenRun cut = RunOf(kBoot);
    cut.block.end.reset();
    std::ostringstream out;
    WriteDiffText(out, RunOf(kBoot), cut, kForPrograms);
    EXPECT_TRUE(out.str().starts_with("1.500s\tunknown\tunknown\ttotal\n")) << out.str();
}

std::string ChainOf(const TextStyle& style) {
    RunGraph graph;
    graph.barriers = {{"disks", {}, {}}};
    std::ostringstream out;
    WriteChainText(out, RunOf(kBoot), graph, {{1, Duration(99'877), Duration(42), 0}, {0, {}, {}, {}}},
                   style);
    return out.str();
}

TEST(ReportTextTest, AChainHasBeginTimeAndIdleTimeOfEachPluginAndWhereItWaited) {
    EXPECT_EQ(
        "Block 2 of 3 in /log: boot\n"
        "\n"
        "            AT          TIME          IDLE  PLUGIN   WAITED AT\n"
        "      99.877ms        1.249s          42us  storage  disks\n"
        "       unknown     100.000ms       unknown  network  -\n",
        ChainOf(kForPeople));
    EXPECT_EQ(
        "99.877ms\t1.249s\t42us\tstorage\tdisks\n"
        "unknown\t100.000ms\tunknown\tnetwork\t-\n",
        ChainOf(kForPrograms));
}

}  // namespace
}  // namespace bootweave
