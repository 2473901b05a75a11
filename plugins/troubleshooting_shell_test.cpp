// SPDX-License-Identifier: Apache-2.0
#include "plugins/troubleshooting_shell.h"

#include <cerrno>
#include <string>

#include <fcntl.h>
#include <unistd.h>

#include "gmock/gmock.h"
#include "tests/support/fake_platform.h"
#include "tests/support/system_calls.h"
#include "tests/support/temp_dir.h"
#include "util/child_process.h"

// The linker gives these names to the wrapped functions.
// NOLINTBEGIN(bugprone-reserved-identifier)
extern "C" {

static bool g_fail_setsid = false;
static bool g_fail_execl = false;

pid_t __real_setsid();
pid_t __wrap_setsid();
pid_t __wrap_setsid() {
    if (g_fail_setsid) {
        errno = EPERM;
        return -1;
    }
    return __real_setsid();
}

/// Only the path matters to what is tested here.
int __wrap_execl(const char* path, const char* name, ...);
int __wrap_execl(const char* path, const char* name, ...) {
    if (g_fail_execl) {
        errno = ENOENT;
        return -1;
    }
    const std::string word = name;
    char* const words[] = {const_cast<char*>(word.c_str()), nullptr};
    return ::execv(path, words);
}

}  // extern "C"
// NOLINTEND(bugprone-reserved-identifier)

namespace bootweave {
namespace {

class TroubleshootingShellTest : public testing::Test {
  protected:
    void SetUp() override {
        FakePlatform::Reset();
        SystemCalls::Reset();
    }
    void TearDown() override {
        SystemCalls::Reset();
        g_fail_setsid = false;
        g_fail_execl = false;
    }

    /// What a child that asks for the shell says, its own children's lines among it. Their input is `input`.
    [[nodiscard]] std::string OutputOfShell(const std::string& input) const {
        const std::string out = dir_.File("out");
        const std::string in = dir_.WriteFile("in", input);
        auto child = ChildProcess::Fork([&] {
            ::dup2(::open(in.c_str(), O_RDONLY | O_CLOEXEC), STDIN_FILENO);
            ::dup2(::open(out.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_APPEND | O_CLOEXEC, 0600),
                   STDOUT_FILENO);
            FakePlatform::EchoTo(STDOUT_FILENO);
            RunTroubleshootingShell();
            return 0;
        });
        EXPECT_EQ(0, child->Wait());
        return ReadFile(out);
    }

    TempDir dir_;
};

TEST_F(TroubleshootingShellTest, TheShellReadsStandardInputInASessionOfItsOwn) {
    EXPECT_EQ("/bin/sh leads its session\n",
              OutputOfShell("[ $(cut -d' ' -f6 /proc/$$/stat) = $$ ] && echo $0 leads its session\n"));
}

TEST_F(TroubleshootingShellTest, WithoutASessionThereIsALineAndNoShell) {
    g_fail_setsid = true;
    EXPECT_EQ("2 unable to create new session: Operation not permitted\n", OutputOfShell("echo ran\n"));
}

TEST_F(TroubleshootingShellTest, AMissingShellIsALine) {
    g_fail_execl = true;
    EXPECT_EQ("2 unable to exec shell: No such file or directory\n", OutputOfShell("echo ran\n"));
}

TEST_F(TroubleshootingShellTest, AChildThatCannotBeMadeIsALine) {
    SystemCalls::Fail(SystemCall::kFork, {.error = EAGAIN});
    RunTroubleshootingShell();
    EXPECT_THAT(FakePlatform::log(),
                testing::ElementsAre(LogMessage{2,
                                                "failed to fork - unable to launch troubleshooting shell: "
                                                "Resource temporarily unavailable\n"}));
}

}  // namespace
}  // namespace bootweave
