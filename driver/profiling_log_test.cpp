// SPDX-License-Identifier: Apache-2.0
#include "driver/profiling_log.h"

#include <climits>
#include <csignal>
#include <filesystem>
#include <stdexcept>

#include <sys/resource.h>
#include <sys/stat.h>

#include "gmock/gmock.h"
#include "tests/support/fake_platform.h"
#include "tests/support/temp_dir.h"

namespace bootweave {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

class NamedPlugin : public Plugin {
  public:
    explicit NamedPlugin(const std::string& name) : Plugin(name) {}
    void Start() override {}
    [[nodiscard]] bool SupportsHostProfile() const override { return false; }
    void ApplyHostProfile() override {}
};

class ProfilingLogTest : public testing::Test {
  protected:
    void SetUp() override {
        FakePlatform::Reset();
        config_.seed = -5;
        config_.parallel = true;
        run_.start = {.tv_sec = 1'794'754'800, .tv_usec = 123};
        run_.end = {.tv_sec = 1'794'754'801, .tv_usec = 999'999};
        run_.uptime_seconds = 12;
    }

    TempDir dir_;
    RunConfig config_;
    RunProfile run_;
};

constexpr const char* kBootBlock =
    "Mantle Initialization Time: 12000000\n"
    "[1970-01-01 00:00:00.000000 - 1970-01-01 00:00:00.000000] sysboot: b\n"
    "[1970-01-01 00:00:00.000000 - 1970-01-01 00:00:00.000000] sysboot: a\n"
    "=== Bootweave configuration info ===\n"
    " Start: 2026-11-15 15:00:00.000123\n"
    " End: 2026-11-15 15:00:01.999999\n"
    " Verbose: 0\n"
    " Parallel: 1\n"
    " Randomize: 0\n"
    " Interactive Mode: 0\n"
    " Random Seed: -5\n";

constexpr const char* kDaemonBlock =
    "[1970-01-01 00:00:00.000000 - 1970-01-01 00:00:00.000000] daemon: b\n"
    "=== Daemon configuration info ===\n"
    " Start Daemon: 2026-11-15 15:00:00.000123\n"
    " End Daemon: 2026-11-15 15:00:01.999999\n"
    " Verbose: 0\n"
    " Parallel: 1\n"
    " Randomize: 0\n"
    " Interactive Mode: 0\n"
    " Random Seed: -5\n";

TEST_F(ProfilingLogTest, ABootReplacesTheLogByItsBlock) {
    const std::string path = dir_.WriteFile("log", "old\n");
    const NamedPlugin a("a");
    const NamedPlugin b("b");
    run_.plugins = {&b, &a};
    WriteBootProfile(run_, config_, path);
    EXPECT_EQ(kBootBlock, ReadFile(path));
    EXPECT_THAT(dir_.Names(), ElementsAre("log"));
}

TEST_F(ProfilingLogTest, ControlCharactersOfANameAreMadeHarmless) {
    const std::string boot = dir_.File("boot");
    const std::string daemon = dir_.WriteFile("daemon", "old\n");
    const NamedPlugin plugin("a\n[forged]\x1b[2J\tb");
    run_.plugins = {&plugin};
    WriteBootProfile(run_, config_, boot);
    AppendDaemonProfile(run_, config_, daemon);
    EXPECT_THAT(ReadFile(boot), HasSubstr("] sysboot: a\\x0a[forged]\\x1b[2J\tb\n==="));
    EXPECT_THAT(ReadFile(daemon), HasSubstr("] daemon: a\\x0a[forged]\\x1b[2J\tb\n==="));
}

TEST_F(ProfilingLogTest, DaemonRunsAddTheirBlocks) {
    const std::string path = dir_.WriteFile("log", "old\n");
    const NamedPlugin b("b");
    run_.plugins = {&b};
    AppendDaemonProfile(run_, config_, path);
    AppendDaemonProfile(run_, config_, path);
    EXPECT_EQ(std::string("old\n") + kDaemonBlock + kDaemonBlock, ReadFile(path));
}

TEST_F(ProfilingLogTest, ALogThatCannotBeOpenedIsALine) {
    const std::string path = dir_.File("missing/log");
    WriteBootProfile(run_, config_, path);
    EXPECT_THAT(FakePlatform::log(), ElementsAre(LogMessage{2, "unable to open profiling log (" + path +
                                                                   "): No such file or directory.\n"}));
}

TEST_F(ProfilingLogTest, ALogThatIsNotThereCannotBeReopened) {
    const std::string path = dir_.File("log");
    AppendDaemonProfile(run_, config_, path);
    EXPECT_THAT(FakePlatform::log(), ElementsAre(LogMessage{2, "unable to reopen profiling log (" + path +
                                                                   "): No such file or directory.\n"}));
    EXPECT_THAT(dir_.Names(), IsEmpty());
}

TEST_F(ProfilingLogTest, WhatIsNoFileCountsAsMissingAndIsNotReopened) {
    const std::string fifo = dir_.File("fifo");
    ASSERT_EQ(0, ::mkfifo(fifo.c_str(), 0600));
    const std::string device = dir_.File("device");
    std::filesystem::create_symlink("/dev/null", device);
    for (const std::string& path : {fifo, device}) {
        FakePlatform::Reset();
        AppendDaemonProfile(run_, config_, path);
        EXPECT_THAT(FakePlatform::log(), ElementsAre(LogMessage{2, "unable to reopen profiling log (" + path +
                                                                       "): No such file or directory.\n"}));
    }
    EXPECT_THAT(dir_.Names(), ElementsAre("device", "fifo"));
}

TEST_F(ProfilingLogTest, AFinishedLogThatCannotBePutInPlaceIsRaised) {
    const std::string path = dir_.File("log");
    std::filesystem::create_directories(path + "/in the way");
    EXPECT_THROW(WriteBootProfile(run_, config_, path), std::runtime_error);
    EXPECT_THAT(dir_.Names(), ElementsAre("log"));
}

TEST_F(ProfilingLogTest, ALogThatCannotBeWrittenIsALineAndTheOldOneStaysWhole) {
    const std::string path = dir_.WriteFile("log", "old\n");
    const NamedPlugin a("a");
    run_.plugins = {&a};
    rlimit before{};
    ASSERT_EQ(0, ::getrlimit(RLIMIT_FSIZE, &before));
    const rlimit small{.rlim_cur = 40, .rlim_max = before.rlim_max};
    const auto signal_before = std::signal(SIGXFSZ, SIG_IGN);
    ASSERT_EQ(0, ::setrlimit(RLIMIT_FSIZE, &small));
    WriteBootProfile(run_, config_, path);
    ASSERT_EQ(0, ::setrlimit(RLIMIT_FSIZE, &before));
    std::signal(SIGXFSZ, signal_before);
    EXPECT_THAT(FakePlatform::log(), ElementsAre(LogMessage{2, "unable to write profiling log (" + path +
                                                                   "): File too large.\n"}));
    EXPECT_EQ("old\n", ReadFile(path));
    EXPECT_THAT(dir_.Names(), ElementsAre("log"));
}

TEST(TimeStampTest, IsUtcWithEveryFieldPadded) {
    EXPECT_EQ("2026-11-15 15:04:56.000123", FormatTimeStamp({.tv_sec = 1'794'755'096, .tv_usec = 123}));
    EXPECT_EQ("2024-02-29 23:59:59.999999", FormatTimeStamp({.tv_sec = 1'709'251'199, .tv_usec = 999'999}));
    EXPECT_EQ("1970-01-01 00:00:00.000000", FormatTimeStamp({}));
}

TEST(TimeStampTest, NeverHasANegativeOrOverflowingField) {
    EXPECT_EQ("1970-01-01 00:00:00.000000", FormatTimeStamp({.tv_sec = -1, .tv_usec = -1}));
    EXPECT_EQ("9999-12-31 23:59:59.999999", FormatTimeStamp({.tv_sec = LONG_MAX, .tv_usec = 1'000'000}));
}

}  // namespace
}  // namespace bootweave
