// SPDX-License-Identifier: Apache-2.0
#include "util/shell.h"

#include <cerrno>
#include <csignal>
#include <cstdlib>

#include <sys/wait.h>

#include "gtest/gtest.h"
#include "tests/support/temp_dir.h"

extern "C" {
static int g_spawn_error = 0;
int __real_clone(int (*run)(void*), void* stack, int flags, void* data);
int __wrap_clone(int (*run)(void*), void* stack, int flags, void* data) {
    if (g_spawn_error == 0) {
        return __real_clone(run, stack, flags, data);
    }
    errno = g_spawn_error;
    return -1;
}
}

namespace bootweave {
namespace {

class ShellTest : public testing::Test {
  protected:
    void TearDown() override { g_spawn_error = 0; }
    TempDir dir_;
};

TEST_F(ShellTest, TheRawWaitStatusComesBack) {
    EXPECT_EQ(0, RunShellCommand("true"));
    EXPECT_EQ(3 << 8, RunShellCommand("exit 3"));
    EXPECT_EQ(SIGKILL, RunShellCommand("kill -KILL $$"));
}

TEST_F(ShellTest, TheCommandHasThisProcesssEnvironment) {
    ::setenv("BOOTWEAVE_SHELL_TEST", "seen", 1);
    EXPECT_EQ(0, RunShellCommand("test \"$BOOTWEAVE_SHELL_TEST\" = seen"));
    ::unsetenv("BOOTWEAVE_SHELL_TEST");
}

TEST_F(ShellTest, TheCommandHasTheThreeStandardDescriptorsOnly) {
    const std::string list = dir_.File("list");
    EXPECT_EQ(0, RunShellCommand("exec ls /proc/self/fd >" + list));
    EXPECT_EQ("0\n1\n2\n3\n", ReadFile(list));  // 3 is the directory that is being read
}

TEST_F(ShellTest, TheKeyboardsSignalsAreIgnoredMeanwhileAndAsBeforeAfterwards) {
    EXPECT_EQ(0, RunShellCommand("kill -INT $PPID; kill -QUIT $PPID"));
    struct sigaction now {};
    ::sigaction(SIGINT, nullptr, &now);
    EXPECT_EQ(SIG_DFL, now.sa_handler);
    ::sigaction(SIGQUIT, nullptr, &now);
    EXPECT_EQ(SIG_DFL, now.sa_handler);
}

TEST_F(ShellTest, TheCommandItselfCanBeInterrupted) {
    EXPECT_EQ(SIGINT, RunShellCommand("kill -INT $$"));
}

TEST_F(ShellTest, WithoutAShellTheStatusIsThatOf127) {
    g_spawn_error = ENOENT;
    EXPECT_EQ(127 << 8, RunShellCommand("true"));
}

TEST_F(ShellTest, WithoutAProcessItIsMinusOne) {
    for (const int error : {EAGAIN, ENOMEM, EMFILE, ENFILE}) {
        g_spawn_error = error;
        EXPECT_EQ(-1, RunShellCommand("true"));
    }
}

}  // namespace
}  // namespace bootweave
