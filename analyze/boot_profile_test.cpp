// SPDX-License-Identifier: Apache-2.0
#include "analyze/boot_profile.h"

#include <cstdint>
#include <limits>
#include <string>
#include <vector>

#include <sys/stat.h>

#include "driver/profiling_log.h"
#include "gmock/gmock.h"
#include "tests/support/fake_platform.h"
#include "tests/support/temp_dir.h"
#include "util/exception.h"

namespace bootweave {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

constexpr const char* kFirst = "Mantle Initialization Time: 12000000\n";
constexpr const char* kStorage =
    "[2026-11-15 15:00:00.000123 - 2026-11-15 15:00:01.000124] sysboot: storage\n";
constexpr const char* kBootSettings =
    "=== Bootweave configuration info ===\n"
    " Start: 2026-11-15 15:00:00.000000\n"
    " End: 2026-11-15 15:00:02.500000\n"
    " Verbose: 0\n"
    " Parallel: 1\n"
    " Randomize: 1\n"
    " Interactive Mode: 0\n"
    " Random Seed: -5\n";
constexpr const char* kTimed = "[2026-11-15 16:00:00.000000 - 2026-11-15 16:00:00.500000] daemon: timed\n";
constexpr const char* kDaemonSettings =
    "=== Daemon configuration info ===\n"
    " Start Daemon: 2026-11-15 16:00:00.000000\n"
    " End Daemon: 2026-11-15 16:00:01.000000\n"
    " Verbose: 1\n"
    " Parallel: 0\n"
    " Randomize: 0\n"
    " Interactive Mode: 0\n"
    " Random Seed: 7\n";

std::string Boot(const std::string& plugins = kStorage) {
    return kFirst + plugins + kBootSettings;
}

std::string Daemons(const std::string& plugins = kTimed) {
    return plugins + kDaemonSettings;
}

/// The warnings as "LINE: TEXT".
std::vector<std::string> WarningsOf(const std::string& text) {
    std::vector<std::string> lines;
    for (const ProfileWarning& warning : ParseBootProfile(text).warnings) {
        lines.push_back(std::to_string(warning.line) + ": " + warning.text);
    }
    return lines;
}

/// Each block as "KIND@LINE NAME...".
std::vector<std::string> BlocksOf(const std::string& text) {
    std::vector<std::string> blocks;
    for (const ProfileBlock& block : ParseBootProfile(text).blocks) {
        std::string shown = RunKindText(block.kind) + ("@" + std::to_string(block.line));
        for (const PluginTimes& plugin : block.plugins) {
            shown += " " + plugin.name;
        }
        blocks.push_back(shown);
    }
    return blocks;
}

Instant At(std::int64_t microseconds) {
    return Instant(Duration(microseconds));
}

TEST(BootProfileTest, ABootHasAllThatItsBlockSays) {
    const BootProfile profile = ParseBootProfile(Boot());
    EXPECT_THAT(profile.warnings, IsEmpty());
    ASSERT_THAT(profile.blocks, SizeIs(1));
    const ProfileBlock& block = profile.blocks[0];
    EXPECT_EQ(RunKind::kBoot, block.kind);
    EXPECT_EQ(1U, block.line);
    EXPECT_EQ(Duration(12'000'000), block.kernel);
    EXPECT_EQ(At(1'794'754'800'000'000), block.start);
    EXPECT_EQ(At(1'794'754'802'500'000), block.end);
    EXPECT_EQ(false, block.settings.verbose);
    EXPECT_EQ(true, block.settings.parallel);
    EXPECT_EQ(true, block.settings.randomize);
    EXPECT_EQ(false, block.settings.interactive);
    EXPECT_EQ(-5, block.settings.seed);
    ASSERT_THAT(block.plugins, SizeIs(1));
    EXPECT_EQ("storage", block.plugins[0].name);
    EXPECT_EQ(At(1'794'754'800'000'123), block.plugins[0].start);
    EXPECT_EQ(At(1'794'754'801'000'124), block.plugins[0].end);
    EXPECT_EQ(Duration(1'000'001), block.plugins[0].taken());
    EXPECT_TRUE(block.plugins[0].ran());
}

TEST(BootProfileTest, ADaemonRunIsABlockOfItsOwnThatKnowsNothingOfTheKernel) {
    const BootProfile profile = ParseBootProfile(Boot() + Daemons() + Daemons());
    EXPECT_THAT(profile.warnings, IsEmpty());
    ASSERT_THAT(profile.blocks, SizeIs(3));
    const ProfileBlock& block = profile.blocks[1];
    EXPECT_EQ(RunKind::kDaemon, block.kind);
    EXPECT_EQ(std::nullopt, block.kernel);
    EXPECT_EQ(At(1'794'758'400'000'000), block.start);
    EXPECT_EQ(At(1'794'758'401'000'000), block.end);
    EXPECT_EQ(true, block.settings.verbose);
    EXPECT_EQ(7, block.settings.seed);
}

TEST(BootProfileTest, BlocksBeginWhereTheSettingsOfTheOneBeforeEnd) {
    EXPECT_THAT(BlocksOf(Boot() + Daemons() + Daemons(std::string(kTimed) + kTimed)),
                ElementsAre("boot@1 storage", "daemon@11 timed", "daemon@20 timed timed"));
    EXPECT_THAT(BlocksOf(Boot("") + Daemons("") + Daemons("")),
                ElementsAre("boot@1", "daemon@10", "daemon@18"));
    EXPECT_THAT(BlocksOf(Boot() + Boot()), ElementsAre("boot@1 storage", "boot@11 storage"));
}

TEST(BootProfileTest, APluginWithTwoZeroStampsDidNotRun) {
    const PluginTimes never{.name = "a", .start = {}, .end = {}};
    EXPECT_FALSE(never.ran());
    EXPECT_EQ(Duration(0), never.taken());
    const std::string text = Boot(
        "[1970-01-01 00:00:00.000000 - 1970-01-01 00:00:00.000000] sysboot: never\n"
        "[1970-01-01 00:00:00.000000 - 1970-01-01 00:00:00.000001] sysboot: without a clock\n");
    EXPECT_THAT(WarningsOf(text),
                ElementsAre("1: without a clock starts before the run: the clock was set back"));
    const ProfileBlock block = ParseBootProfile(text).blocks.at(0);
    EXPECT_FALSE(block.plugins.at(0).ran());
    EXPECT_TRUE(block.plugins.at(1).ran());
}

TEST(BootProfileTest, NamesMayHoldWhatLooksLikeTheRestOfTheLine) {
    EXPECT_THAT(BlocksOf(Boot("[2026-11-15 15:00:00.000123 - 2026-11-15 15:00:01.000124] sysboot: "
                              "a] daemon: b - c \x01\n")),
                ElementsAre("boot@1 a] daemon: b - c \\x01"));
}

TEST(BootProfileTest, WhatTheProgramWritesIsReadWithoutAWarning) {
    FakePlatform::Reset();
    const TempDir dir;
    RunConfig config;
    config.seed = -2'147'483'648;
    RunProfile run;
    run.start = {.tv_sec = 253'402'300'799, .tv_usec = 0};
    run.end = {.tv_sec = 253'402'300'799, .tv_usec = 999'999};
    WriteBootProfile(run, config, dir.File("log"));
    AppendDaemonProfile(run, config, dir.File("log"));
    const BootProfile profile = ReadBootProfile(dir.File("log"));
    EXPECT_THAT(profile.warnings, IsEmpty());
    ASSERT_THAT(profile.blocks, SizeIs(2));
    EXPECT_EQ(config.seed, profile.blocks[0].settings.seed);
    EXPECT_EQ(Duration(999'999), *profile.blocks[1].end - *profile.blocks[1].start);
}

TEST(BootProfileTest, LinesThatAreNotUnderstoodAreNamedAndLeftOut) {
    for (const std::string line : {
             "", "x", "[]", "Mantle Initialization Time: ", "Mantle Initialization Time: -1",
             "Mantle Initialization Time: 99999999999999999999",
             "[2026-11-15 15:00:00.000123 - 2026-11-15 15:00:01.000124] other: a",
             "[2026-11-15 15:00:00.000123 - 2026-11-15 15:00:01.00012] sysboot: a",
             "[2026-11-15 15:00:00.000123 _ 2026-11-15 15:00:01.000124] sysboot: a",
             "[2026-02-30 15:00:00.000123 - 2026-11-15 15:00:01.000124] sysboot: a",
             "[2026-11-15 24:00:00.000123 - 2026-11-15 15:00:01.000124] sysboot: a",
             "[2026-11-15 15:60:00.000123 - 2026-11-15 15:00:01.000124] sysboot: a",
             "[2026-11-15 15:00:60.000123 - 2026-11-15 15:00:01.000124] sysboot: a",
             "[2026-11-15 15:00:00.000123",
             " Verbose: 0",  // no settings have begun
         }) {
        EXPECT_THAT(WarningsOf(kFirst + line + "\n" + kBootSettings),
                    ElementsAre("2: not understood, and left out"))
            << line;
    }
    EXPECT_THAT(BlocksOf(Boot("x\n" + std::string(kStorage))), ElementsAre("boot@1 storage"));
}

TEST(BootProfileTest, SettingsThatAreNotUnderstoodLeaveTheBlockIncomplete) {
    for (const std::string line :
         {" Verbose: 2", " Verbose: ", " Verbose: 00", " Random Seed: 5x",
          " Random Seed: 9223372036854775808", " Start: 2026", " End: ", " Start Daemon: x"}) {
        const std::string key = line.substr(0, line.find(':') + 1);
        std::string text = Boot("");
        const std::size_t at = text.find("\n" + key);
        if (at != std::string::npos) {
            text.replace(at + 1, text.find('\n', at + 1) - at - 1, line);
            EXPECT_THAT(WarningsOf(text), ElementsAre("1: the block that begins here is not complete",
                                                      testing::EndsWith(": not understood, and left out")))
                << line;
        } else {
            EXPECT_THAT(WarningsOf(text + line + "\n"), ElementsAre("10: not understood, and left out"))
                << line;
        }
    }
}

TEST(BootProfileTest, ACutLogSaysWhereAndKeepsWhatIsWhole) {
    EXPECT_THAT(
        WarningsOf(std::string(kFirst) + kStorage + "[2026-11-15 15:00:0"),
        ElementsAre("1: the block that begins here is not complete", "3: the line is cut, and left out"));
    EXPECT_THAT(BlocksOf(std::string(kFirst) + kStorage + "[2026-11-15 15:00:0"),
                ElementsAre("boot@1 storage"));
    // The head is what is lacking here.
    EXPECT_THAT(WarningsOf(std::string(kStorage) + kBootSettings),
                ElementsAre("1: the block that begins here is not complete"));
}

// However much of a log is there: no crash, and never more than the whole log has.
TEST(BootProfileTest, EveryBeginningOfALogIsRead) {
    const std::string whole = Boot() + Daemons();
    for (std::size_t length = 0; length <= whole.size(); ++length) {
        const BootProfile profile = ParseBootProfile(std::string_view(whole).substr(0, length));
        const bool is_whole = length == 0 || length == whole.size() || length == Boot().size();
        EXPECT_EQ(is_whole, profile.warnings.empty()) << length;
        EXPECT_LE(profile.blocks.size(), 2U);
    }
}

TEST(BootProfileTest, AClockThatWasSetBackIsSaidAndCountsAsNoTime) {
    const std::string text =
        Boot("[2026-11-15 15:00:05.000000 - 2026-11-15 14:00:00.000000] sysboot: time-sync\n");
    EXPECT_THAT(WarningsOf(text), ElementsAre("2: time-sync ends before it starts: the clock was set back"));
    EXPECT_EQ(Duration(0), ParseBootProfile(text).blocks.at(0).plugins.at(0).taken());
    std::string run = Boot("");
    run.replace(run.find(" End: 2026"), 10, " End: 2025");
    EXPECT_THAT(WarningsOf(run), ElementsAre("1: the run ends before it starts: the clock was set back"));
}

TEST(BootProfileTest, APluginThatRanBeforeOrAfterTheRunIsSaidOnce) {
    const std::string early = "[2026-11-15 14:00:00.000000 - 2026-11-15 15:00:01.000000] sysboot: early\n";
    EXPECT_THAT(WarningsOf(Boot(early + early)),
                ElementsAre("1: early starts before the run: the clock was set back"));
    EXPECT_THAT(WarningsOf(Boot("[2026-11-15 15:00:01.000000 - 2026-11-15 17:00:00.000000] sysboot: late\n")),
                ElementsAre("1: late ends after the run: the clock was set back"));
}

TEST(BootProfileTest, StampsBefore1970AreNone) {
    EXPECT_THAT(WarningsOf(Boot("[1969-12-31 23:59:59.999999 - 2026-11-15 15:00:01.000000] sysboot: old\n")),
                ElementsAre("2: not understood, and left out"));
}

TEST(BootProfileTest, TimesThatCannotBeAddedUpAreLeftOut) {
    const std::string ages = "[1970-01-01 00:00:00.000001 - 9999-12-31 23:59:59.999999] sysboot: ages\n";
    std::string many;
    for (int line = 0; line < 50; ++line) {
        many += ages;
    }
    const BootProfile profile = ParseBootProfile(Boot(many) + Boot(ages));
    EXPECT_EQ(3U, profile.blocks.at(0).plugins.size());
    EXPECT_EQ(1U, profile.blocks.at(1).plugins.size());
    ASSERT_EQ(2U + 47U, profile.warnings.size());
    EXPECT_EQ("ages takes the times of the run beyond what can be added up, and is left out",
              profile.warnings.at(1).text);
}

TEST(BootProfileTest, ASettingThatIsThereTwiceCountsOnce) {
    const std::string text = Boot() + " Parallel: 1\n Parallel: 0\n End: 2027-01-01 00:00:00.000000\n";
    const BootProfile profile = ParseBootProfile(text);
    EXPECT_EQ(3U, profile.warnings.size());
    EXPECT_EQ("not understood, and left out", profile.warnings.at(0).text);
    const ProfileBlock expected = ParseBootProfile(Boot()).blocks.at(0);
    EXPECT_EQ(expected.end, profile.blocks.at(0).end);
    EXPECT_EQ(expected.settings.parallel, profile.blocks.at(0).settings.parallel);
}

TEST(BootProfileTest, ATabIsPartOfANameAndNoField) {
    EXPECT_THAT(BlocksOf(Boot("[2026-11-15 15:00:00.000123 - 2026-11-15 15:00:01.000124] sysboot: a\tb\n")),
                ElementsAre("boot@1 a\\x09b"));
}

TEST(BootProfileTest, APluginThatWasSkippedAtTheConsoleDidNotRun) {
    const std::string text =
        Boot("[2026-11-15 15:00:05.000000 - 1970-01-01 00:00:00.000000] sysboot: skipped\n");
    EXPECT_THAT(WarningsOf(text), IsEmpty());
    EXPECT_FALSE(ParseBootProfile(text).blocks.at(0).plugins.at(0).ran());
}

TEST(BootProfileTest, ASeedIsAsLargeAsTheProgramMakesIt) {
    std::string text = Boot();
    text.replace(text.find("-5"), 2, "-9223372036854775808");
    EXPECT_THAT(WarningsOf(text), IsEmpty());
    EXPECT_EQ(std::numeric_limits<std::int64_t>::min(), ParseBootProfile(text).blocks.at(0).settings.seed);
}

TEST(BootProfileTest, OfALogThatIsNoneTheFirstWarningsAreKeptAndTheOthersCounted) {
    const BootProfile profile = ParseBootProfile(std::string(5000, '\n'));
    EXPECT_THAT(profile.warnings, SizeIs(1000));
    EXPECT_EQ(4000U, profile.more_warnings);
}

/// What reading the log at `path` raises.
std::string ErrorOf(const std::string& path) {
    try {
        static_cast<void>(ReadBootProfile(path));
    } catch (const Exception& exception) {
        return exception.what();
    }
    return "";
}

TEST(BootProfileTest, ALogThatCannotBeReadIsNamedWithTheReason) {
    const TempDir dir;
    EXPECT_EQ("cannot read " + dir.File("log") + ": No such file or directory", ErrorOf(dir.File("log")));
    EXPECT_EQ("cannot read " + dir.path() + ": not a regular file", ErrorOf(dir.path()));
    ASSERT_EQ(0, ::mkfifo(dir.File("fifo").c_str(), 0600));
    EXPECT_EQ("cannot read " + dir.File("fifo") + ": not a regular file", ErrorOf(dir.File("fifo")));
}

}  // namespace
}  // namespace bootweave
