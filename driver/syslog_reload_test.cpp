// SPDX-License-Identifier: Apache-2.0
#include "driver/syslog_reload.h"

#include <csignal>
#include <cstdlib>

#include <unistd.h>

#include "driver/shell_test_support.h"
#include "gmock/gmock.h"
#include "tests/support/fake_platform.h"
#include "tests/support/temp_dir.h"
#include "util/child_process.h"

namespace bootweave {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

volatile std::sig_atomic_t g_reloads = 0;

class SyslogReloadTest : public testing::Test {
  protected:
    void SetUp() override {
        FakePlatform::Reset();
        g_reloads = 0;
        std::signal(SIGUSR1, [](int) { g_reloads = g_reloads + 1; });
        paths_.legacy_configuration = dir_.File("syslog.conf");
        paths_.upgrade_script = dir_.File("upgrade.sh");
        paths_.pid_file = dir_.WriteFile("pid", " \n" + std::to_string(::getpid()) + " \n");
    }
    void TearDown() override { std::signal(SIGUSR1, SIG_DFL); }

    TempDir dir_;
    SyslogPaths paths_;
};

TEST_F(SyslogReloadTest, TheRealPathsAreTheHosts) {
    const SyslogPaths paths;
    EXPECT_EQ("/etc/syslog.conf", paths.legacy_configuration);
    EXPECT_EQ("/usr/lib/corvane/logrelay/bin/upgrade-syslog.conf.sh", paths.upgrade_script);
    EXPECT_EQ("/var/run/corvane/logrelayd.pid", paths.pid_file);
}

TEST_F(SyslogReloadTest, WithoutALegacyFileOnlyTheSignalIsSent) {
    dir_.WriteProgram("upgrade.sh", "#!/bin/sh\ntouch " + dir_.File("ran") + "\n");
    ReloadSystemLog(paths_);
    EXPECT_EQ(1, g_reloads);
    EXPECT_THAT(dir_.Names(), ElementsAre("pid", "upgrade.sh"));
    EXPECT_THAT(FakePlatform::log(), IsEmpty());
}

TEST_F(SyslogReloadTest, TheUpgradeRunsBeforeTheSignalAndItsStatusIsItsOwn) {
    dir_.WriteFile("syslog.conf", "");
    dir_.WriteProgram("upgrade.sh", "#!/bin/sh\ntouch " + dir_.File("ran") + "\nexit 3\n");
    ReloadSystemLog(paths_);
    EXPECT_EQ(1, g_reloads);
    EXPECT_THAT(dir_.Names(), ElementsAre("pid", "ran", "syslog.conf", "upgrade.sh"));
    EXPECT_THAT(FakePlatform::log(), IsEmpty());
}

TEST_F(SyslogReloadTest, AnUpgradeThatCannotBeRunIsALineAndTheSignalIsSent) {
    dir_.WriteFile("syslog.conf", "");
    ShellStub::Exhaust();
    ReloadSystemLog(paths_);
    ShellStub::Reset();
    EXPECT_THAT(FakePlatform::log(),
                ElementsAre(LogMessage{2, "failed to call " + paths_.upgrade_script + "\n"}));
    EXPECT_EQ(1, g_reloads);
}

TEST_F(SyslogReloadTest, ALegacyLinkThatLeadsNowhereIsNoLegacyFile) {
    ASSERT_EQ(0, ::symlink("nowhere", paths_.legacy_configuration.c_str()));
    dir_.WriteProgram("upgrade.sh", "#!/bin/sh\ntouch " + dir_.File("ran") + "\n");
    ReloadSystemLog(paths_);
    EXPECT_THAT(dir_.Names(), ElementsAre("pid", "syslog.conf", "upgrade.sh"));
}

// No stat can tell what is behind a circle of links, any more than on a broken disk.
TEST_F(SyslogReloadTest, ALegacyFileThatCannotBeLookedAtIsLeftToTheScript) {
    ASSERT_EQ(0, ::symlink("syslog.conf", paths_.legacy_configuration.c_str()));
    dir_.WriteProgram("upgrade.sh", "#!/bin/sh\ntouch " + dir_.File("ran") + "\n");
    ReloadSystemLog(paths_);
    EXPECT_THAT(dir_.Names(), ElementsAre("pid", "ran", "syslog.conf", "upgrade.sh"));
}

TEST_F(SyslogReloadTest, ALegacyFileBelowAFileIsNone) {
    paths_.legacy_configuration = dir_.WriteFile("file", "") + "/syslog.conf";
    dir_.WriteProgram("upgrade.sh", "#!/bin/sh\ntouch " + dir_.File("ran") + "\n");
    ReloadSystemLog(paths_);
    EXPECT_THAT(dir_.Names(), ElementsAre("file", "pid", "upgrade.sh"));
}

TEST_F(SyslogReloadTest, AMissingPidFileIsALine) {
    paths_.pid_file = dir_.File("missing");
    ReloadSystemLog(paths_);
    EXPECT_THAT(FakePlatform::log(), ElementsAre(LogMessage{3, "unable to open mantlesyslogd pid file.\n"}));
}

TEST_F(SyslogReloadTest, ADaemonThatIsGoneIsALine) {
    auto child = ChildProcess::Fork([] { return 0; });
    const pid_t gone = child->pid();
    ASSERT_TRUE(child->Wait().has_value());
    dir_.WriteFile("pid", std::to_string(gone));
    ReloadSystemLog(paths_);
    EXPECT_THAT(FakePlatform::log(),
                ElementsAre(LogMessage{3, "failed to reload logrelayd: No such process.\n"}));
}

TEST_F(SyslogReloadTest, WhatIsNoProcessToSignalIsALineAndNobodyIsSignalled) {
    for (const char* text : {"", "x", "0", "1", "-1", "-2", "4294967297", "99999999999999999999"}) {
        FakePlatform::Reset();
        dir_.WriteFile("pid", text);
        ReloadSystemLog(paths_);
        EXPECT_THAT(FakePlatform::log(),
                    ElementsAre(LogMessage{3, "failed to reload logrelayd: No such process.\n"}))
            << text;
    }
    EXPECT_EQ(0, g_reloads);
}

}  // namespace
}  // namespace bootweave
