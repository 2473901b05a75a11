// SPDX-License-Identifier: Apache-2.0
#include "analyze/analyze.h"

#include <algorithm>
#include <filesystem>
#include <sstream>
#include <string>
#include <vector>

#include "analyze/help_text.h"
#include "gtest/gtest.h"
#include "tests/support/temp_dir.h"

namespace bootweave {
namespace {

constexpr const char* kBoot =
    "Mantle Initialization Time: 12000000\n"
    "[2026-11-15 15:00:00.100000 - 2026-11-15 15:00:01.350000] sysboot: storage\n"
    "=== Bootweave configuration info ===\n"
    " Start: 2026-11-15 15:00:00.000000\n"
    " End: 2026-11-15 15:00:02.500000\n"
    " Verbose: 0\n Parallel: 1\n Randomize: 0\n Interactive Mode: 0\n Random Seed: 5\n";
constexpr const char* kDaemons =
    "[2026-11-15 16:00:00.000000 - 2026-11-15 16:00:00.250000] daemon: timed\n"
    "=== Daemon configuration info ===\n"
    " Start Daemon: 2026-11-15 16:00:00.000000\n"
    " End Daemon: 2026-11-15 16:00:01.000000\n"
    " Verbose: 0\n Parallel: 0\n Randomize: 0\n Interactive Mode: 0\n Random Seed: 5\n";

struct Outcome {
    int status;
    std::string out;
    std::string err;
};

class AnalyzeTest : public testing::Test {
  protected:
    /// Runs the program with these words on a log with this text.
    Outcome Run(const std::string& log, std::vector<std::string> words) {
        path_ = dir_.WriteFile("log", log);
        words.insert(words.begin(), {"analyze", "--profile", path_});
        return RunWith(words);
    }

    static Outcome RunWith(std::vector<std::string> words, std::ostringstream out = {}) {
        std::vector<char*> argv;
        for (std::string& word : words) {
            argv.push_back(word.data());
        }
        argv.push_back(nullptr);
        std::ostringstream err;
        const int status = RunAnalyze(static_cast<int>(words.size()), argv.data(), out, err, {});
        return {status, out.str(), err.str()};
    }

    void ExpectBlame(const std::string& expected, const std::string& log, const std::string& block) {
        const Outcome outcome = Run(log, {"blame", block});
        EXPECT_EQ(0, outcome.status);
        EXPECT_EQ(expected, outcome.out);
        EXPECT_EQ("", outcome.err);
    }

    void ExpectFailure(int status, const std::string& expected, const Outcome& outcome) {
        EXPECT_EQ(status, outcome.status);
        EXPECT_EQ("", outcome.out);
        EXPECT_EQ(expected, outcome.err);
    }

    TempDir dir_;
    std::string path_;
};

TEST_F(AnalyzeTest, TheHelpNeedsNoLog) {
    const Outcome outcome = RunWith({"analyze", "--help"});
    EXPECT_EQ(0, outcome.status);
    EXPECT_EQ(kAnalyzeHelpText, outcome.out);
    EXPECT_EQ("", outcome.err);
}

TEST_F(AnalyzeTest, WithoutACommandItSaysWhatTheBootTook) {
    const Outcome outcome = Run(kBoot, {});
    EXPECT_EQ(0, outcome.status);
    EXPECT_EQ(
        "Started\t2026-11-15 15:00:00.000000\nKernel handed over after\t12.000s\nTotal\t2.500s\n"
        "Sum of plugins\t1.250s in 1 plugin\nParallel efficiency\t0.50 plugins at a time\n",
        outcome.out);
    EXPECT_EQ("", outcome.err);
}

TEST_F(AnalyzeTest, TheBlockIsTheOneThatIsAskedFor) {
    const std::string log = std::string(kBoot) + kDaemons;
    ExpectBlame("1.250s\t100.0%\tstorage\n", log, "--boot=boot");
    ExpectBlame("1.250s\t100.0%\tstorage\n", log, "--boot=1");
    ExpectBlame("250.000ms\t100.0%\ttimed\n", log, "--boot=2");
    ExpectBlame("250.000ms\t100.0%\ttimed\n", log, "--boot=last");
}

TEST_F(AnalyzeTest, JsonIsOneLine) {
    EXPECT_TRUE(Run(kBoot, {"--json"}).out.starts_with("{\"profile\":\"" + path_ + "\",\"block\":1,"));
    EXPECT_TRUE(Run(kBoot, {"blame", "--json"}).out.ends_with("\"share\":1E0}]}\n"));
}

TEST_F(AnalyzeTest, TheRunsOfALogAreListed) {
    EXPECT_EQ(
        "1\tboot\t2026-11-15 15:00:00.000000\t2.500s\t1\t1\n"
        "2\tdaemon\t2026-11-15 16:00:00.000000\t1.000s\t1\t1\n",
        Run(std::string(kBoot) + kDaemons, {"list"}).out);
    EXPECT_TRUE(Run(kBoot, {"list", "--json"}).out.starts_with("{\"profile\":\"" + path_));
    ExpectFailure(1, "bootweave-analyze: " + dir_.File("log") + " holds no boot profile\n",
                  Run("", {"list"}));
}

TEST_F(AnalyzeTest, TwoLogsAreCompared) {
    const std::string daemons = dir_.WriteFile("daemons", kDaemons);
    const std::string boot = dir_.WriteFile("boot", kBoot);
    const Outcome outcome = RunWith({"analyze", "diff", boot, daemons, "--boot=last"});
    EXPECT_EQ(
        "2.500s\t1.000s\t-1.500s\ttotal\n1.250s\t250.000ms\t-1.000s\tsum of plugins\n"
        "1.250s\t-\t-1.250s\tstorage\n-\t250.000ms\t+250.000ms\ttimed\n",
        outcome.out);
    EXPECT_EQ("bootweave-analyze: a boot is compared with a run of daemons\n", outcome.err);
    EXPECT_EQ("", RunWith({"analyze", "diff", boot, boot}).err);
    EXPECT_TRUE(RunWith({"analyze", "diff", boot, boot, "--json"}).out.starts_with("{\"old\":{\"profile\":"));
    ExpectFailure(1,
                  "bootweave-analyze: " + daemons + " tells of no boot, only of daemons; try --boot last\n",
                  RunWith({"analyze", "diff", boot, daemons}));
}

TEST_F(AnalyzeTest, TheGraphIsDrawnAlsoWhenNothingRan) {
    const std::string dump = "[1970-01-01 00:00:00.000000 - 1970-01-01 00:00:00.000000] sysboot: storage\n";
    const Outcome outcome = Run(dump, {"dot", "--plugin-directory", dir_.path()});
    EXPECT_EQ(0, outcome.status);
    EXPECT_NE(std::string::npos,
              outcome.out.find("\"plugin:storage\" [label=\"storage\\nunknown, did not run\""));
    EXPECT_TRUE(
        Run(kBoot, {"dot", "--json", "--plugin-directory", dir_.path()}).out.ends_with("\"barriers\":[]}\n"));
}

TEST_F(AnalyzeTest, ARunIsImaginedWithOtherSettings) {
    const Outcome outcome =
        Run(kBoot, {"simulate", "--plugin-directory", dir_.path(), "--threads=3", "--time=storage=2250"});
    EXPECT_EQ(0, outcome.status);
    EXPECT_EQ(
        "Recorded\t2.500s\nSimulated\t3.500s with 3 threads\nChange\t+1.000s\nBound for 3 threads\t3.500s\n"
        "Bound for any number\t3.500s\n",
        outcome.out);
    EXPECT_TRUE(
        Run(kBoot, {"simulate", "--json", "--plugin-directory", dir_.path()})
            .out.ends_with(
                "\"plugins\":[{\"name\":\"storage\",\"at_us\":0,\"taken_us\":1250000,\"waited_us\":0}]}\n"));
}

TEST_F(AnalyzeTest, APictureGoesToStandardOutputOrIntoAFile) {
    const std::string file = dir_.File("a.svg");
    const Outcome output = Run(kBoot, {"plot", "--plugin-directory", dir_.path()});
    EXPECT_EQ(0, output.status);
    EXPECT_TRUE(output.out.starts_with("<svg ")) << output.out;
    const Outcome into = Run(kBoot, {"plot", "--plugin-directory", dir_.path(), "-o", file});
    EXPECT_EQ(0, into.status);
    EXPECT_EQ("", into.out);
    EXPECT_EQ(output.out, ReadFile(file));
}

TEST_F(AnalyzeTest, APictureThatCannotBeWrittenIsAnErrorAndNothingIsLost) {
    const std::string warning =
        "bootweave-analyze: storage has no file in " + dir_.path() + ": what it waited for is unknown\n";
    ExpectFailure(1, warning + "bootweave-analyze: cannot write /no/such/a.svg: No such file or directory\n",
                  Run(kBoot, {"plot", "--plugin-directory", dir_.path(), "-o", "/no/such/a.svg"}));
    ExpectFailure(1, warning + "bootweave-analyze: cannot write /dev/null: not a regular file\n",
                  Run(kBoot, {"plot", "--plugin-directory", dir_.path(), "-o", "/dev/null"}));
    const std::string kept = dir_.WriteFile("kept.svg", "old");
    ExpectFailure(1, "bootweave-analyze: cannot read /no/such/log: No such file or directory\n",
                  RunWith({"analyze", "plot", "--profile=/no/such/log", "-o", kept}));
    EXPECT_EQ("old", ReadFile(kept));
}

TEST_F(AnalyzeTest, APictureDoesNotReplaceTheProfile) {
    const std::string link = dir_.File("link.svg");
    std::filesystem::create_symlink("log", link);
    for (const std::string& output : {dir_.File("log"), link}) {
        ExpectFailure(1, "bootweave-analyze: cannot write " + output + ": it is the profile that is read\n",
                      Run(kBoot, {"plot", "--plugin-directory", dir_.path(), "-o", output}));
        EXPECT_EQ(kBoot, ReadFile(dir_.File("log")));
    }
}

TEST_F(AnalyzeTest, AChainThatEndsInACircleSaysSo) {
    static_cast<void>(dir_.WriteFile("storage.json", R"({"metadata": {"version": 1, "requires": ["x"],
        "provides": ["x"]}, "operations": {"start": []}})"));
    for (const char* command : {"critical-chain", "plot", "dot"}) {
        const Outcome outcome = Run(kBoot, {command, "--plugin-directory", dir_.path()});
        EXPECT_EQ(0, outcome.status);
        EXPECT_TRUE(
            outcome.err.ends_with("bootweave-analyze: the chain ends in a circle: plugins wait for "
                                  "each other: storage -> storage\n"))
            << command << ": " << outcome.err;
    }
}

TEST_F(AnalyzeTest, AChainOfPluginsThatDidNotWaitSaysSo) {
    const std::string log =
        "[2026-11-15 15:00:00.100000 - 2026-11-15 15:00:01.350000] sysboot: disk\n" +
        std::string("[2026-11-15 15:00:00.200000 - 2026-11-15 15:00:02.000000] sysboot: net\n");
    static_cast<void>(dir_.WriteFile("disk.json", R"({"metadata": {"version": 1, "requires": [],
        "provides": ["x"]}, "operations": {"start": []}})"));
    static_cast<void>(dir_.WriteFile("net.json", R"({"metadata": {"version": 1, "requires": ["x"],
        "provides": []}, "operations": {"start": []}})"));
    for (const char* command : {"critical-chain", "plot", "dot"}) {
        const Outcome outcome = Run(log, {command, "--plugin-directory", dir_.path()});
        EXPECT_EQ(0, outcome.status);
        EXPECT_TRUE(
            outcome.err.ends_with("bootweave-analyze: net began before disk had ended: what it waited for is "
                                  "unknown\n"))
            << command << ": " << outcome.err;
    }
}

TEST_F(AnalyzeTest, ABlockThatIsNotThereIsAnError) {
    const Outcome beyond = Run(std::string(kBoot) + kDaemons, {"--boot=3"});
    ExpectFailure(1, "bootweave-analyze: there is no block 3 in " + path_ + ", the last one is 2\n", beyond);
    const Outcome no_boot = Run(kDaemons, {});
    ExpectFailure(1, "bootweave-analyze: " + path_ + " tells of no boot, only of daemons; try --boot last\n",
                  no_boot);
    const Outcome empty = Run("", {"--boot=last"});
    ExpectFailure(1, "bootweave-analyze: " + path_ + " holds no boot profile\n", empty);
}

TEST_F(AnalyzeTest, AFileThatIsNoProfileIsRefusedAfterAFewWarnings) {
    std::string log;
    std::string expected;
    const std::string path = dir_.File("log");
    for (int line = 1; line <= 10; ++line) {
        log += "x\n";
        expected +=
            "bootweave-analyze: " + path + ":" + std::to_string(line) + ": not understood, and left out\n";
    }
    const std::string end = "bootweave-analyze: " + path + " holds no boot profile\n";
    ExpectFailure(1, expected + end, Run(log, {}));
    ExpectFailure(1, expected + "bootweave-analyze: " + path + ": warnings left out: 2\n" + end,
                  Run(log + "x\nx\n", {}));
}

TEST_F(AnalyzeTest, OfManyPluginsWithoutAFileTenAreNamed) {
    std::string log;
    for (int plugin = 0; plugin < 13; ++plugin) {
        log += "[2026-11-15 15:00:00.100000 - 2026-11-15 15:00:01.350000] sysboot: p\n";
    }
    const std::string err =
        Run(log, {"critical-chain", "--boot=last", "--plugin-directory", dir_.path()}).err;
    EXPECT_TRUE(err.ends_with("unknown\nbootweave-analyze: warnings left out: 3\n")) << err;
    EXPECT_EQ(1 + 10 + 1,
              std::count(err.begin(), err.end(), '\n'));  // the first one says that the log is cut
}

TEST_F(AnalyzeTest, ALogThatCannotBeReadIsAnError) {
    ExpectFailure(1, "bootweave-analyze: cannot read /no/such/log: No such file or directory\n",
                  RunWith({"analyze", "--profile=/no/such/log"}));
}

TEST_F(AnalyzeTest, AReportThatCannotBeWrittenIsAnError) {
    std::ostringstream broken;
    broken.setstate(std::ios::badbit);
    ExpectFailure(1, "bootweave-analyze: cannot write the report\n",
                  RunWith({"analyze", "--help"}, std::move(broken)));
}

TEST_F(AnalyzeTest, WrongUsageHasAStatusOfItsOwnAndOneLine) {
    ExpectFailure(2, "bootweave-analyze: unknown command 'a\\x0ab'; see --help\n",
                  RunWith({"analyze", "a\nb"}));
}

TEST_F(AnalyzeTest, AChainSaysWhatItCannotKnow) {
    const Outcome chain = Run(kBoot, {"critical-chain", "--plugin-directory", dir_.path()});
    EXPECT_EQ(0, chain.status);
    EXPECT_EQ("100.000ms\t1.250s\t100.000ms\tstorage\t-\n", chain.out);
    EXPECT_EQ(
        "bootweave-analyze: storage has no file in " + dir_.path() + ": what it waited for is unknown\n",
        chain.err);
}

TEST_F(AnalyzeTest, TheStatusOfAVerificationSaysHowBadItIs) {
    const std::string plugin = R"({"metadata": {"version": 1, "requires": [], "provides": [], "x": 1},
                                   "operations": {"start": []}})";
    const std::string odd = dir_.WriteFile("odd.json", plugin);
    const std::string bad = dir_.WriteFile("bad.json", "[]");
    const std::string place = "--plugin-directory=" + dir_.File("none");
    const std::string warning = odd + ": warning: unknown key 'metadata.x'\n1 plugin: 0 errors, 1 warning\n";
    EXPECT_EQ(0, RunWith({"analyze", "verify", place, odd}).status);
    EXPECT_EQ(warning, RunWith({"analyze", "verify", place, odd}).out);
    EXPECT_EQ(1, RunWith({"analyze", "verify", place, "--strict", odd}).status);
    EXPECT_EQ(warning, RunWith({"analyze", "verify", place, "--strict", odd}).out);
    EXPECT_EQ(1, RunWith({"analyze", "verify", place, bad}).status);
    const Outcome json = RunWith({"analyze", "verify", place, "--json", odd});
    EXPECT_EQ(0, json.status);
    EXPECT_TRUE(json.out.starts_with("{\"plugins\":1,\"errors\":0,\"warnings\":1,"));
    EXPECT_EQ("", json.err);
}

}  // namespace
}  // namespace bootweave
