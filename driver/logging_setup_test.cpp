// SPDX-License-Identifier: Apache-2.0
#include "driver/logging_setup.h"

#include <cstdio>
#include <string>
#include <vector>

#include <fcntl.h>
#include <unistd.h>

#include "gmock/gmock.h"
#include "tests/support/fake_platform.h"
#include "tests/support/temp_dir.h"
#include "util/scope_guard.h"
#include "util/unique_fd.h"

namespace bootweave {
namespace {

using testing::ElementsAreArray;

using Calls = std::vector<std::string>;

const Calls kWholeSetup{
    "Dictionary_Create()",
    "Dict_SetString(log.syslogID, bootweave)",
    "Dict_SetString(log.syslogLevel, info)",
    "Log_SetProductInfo(bootweave, 9.8.7, build-6, debug)",
    "Log_InitWithSyslogInt(bootweave, {log.syslogID=bootweave, log.syslogLevel=info}, 0)",
    "Dictionary_Clear()",
    "Dict_SetString(log.stdoutLevel, info)",
    "Dict_SetBool(log.useTimeStamps.stdio, true)",
    "Dict_SetBool(log.useMilliseconds.stdio, true)",
    "Log_NewStdioOutput(bootweave, {log.stdoutLevel=info, log.useMilliseconds.stdio=true,"
    " log.useTimeStamps.stdio=true}, 0)",
    "Log_AddOutput(stdio)",
    "Log_SetStderrLevel(null, -1)",
    "Dictionary_Free()",
};

/// The calls up to and including the one that fails, and the clean-up.
Calls SetupUpTo(const std::string& failing) {
    Calls calls;
    for (const std::string& call : kWholeSetup) {
        calls.push_back(call);
        if (call.starts_with(failing + "(")) {
            break;
        }
    }
    calls.emplace_back("Dictionary_Free()");
    return calls;
}

/// Sets logging up while one of its calls fails. Returns what came on standard error.
std::string SetUpWithFailing(const std::string& call) {
    FakePlatform::Reset();
    FakePlatform::FailLogSetup(call);
    testing::internal::CaptureStderr();
    SetUpLogging("bootweave");
    return testing::internal::GetCapturedStderr();
}

TEST(LoggingSetupTest, ConnectsBothOutputsInOrder) {
    EXPECT_EQ("", SetUpWithFailing("nothing"));
    EXPECT_THAT(FakePlatform::calls(), ElementsAreArray(kWholeSetup));
}

TEST(LoggingSetupTest, PassesItsIdentifierOn) {
    FakePlatform::Reset();
    SetUpLogging("other");
    const Calls calls = FakePlatform::calls();
    ASSERT_EQ(kWholeSetup.size(), calls.size());
    EXPECT_EQ("Dict_SetString(log.syslogID, other)", calls[1]);
    EXPECT_EQ("Log_InitWithSyslogInt(other, {log.syslogID=other, log.syslogLevel=info}, 0)", calls[4]);
    EXPECT_EQ(
        "Log_NewStdioOutput(other, {log.stdoutLevel=info, log.useMilliseconds.stdio=true,"
        " log.useTimeStamps.stdio=true}, 0)",
        calls[9]);
}

TEST(LoggingSetupTest, WithoutSystemLogNoStandardOutputIsMade) {
    EXPECT_EQ("Failed to initialize logging to syslog.\n", SetUpWithFailing("Log_InitWithSyslogInt"));
    EXPECT_THAT(FakePlatform::calls(), ElementsAreArray(SetupUpTo("Log_InitWithSyslogInt")));
}

TEST(LoggingSetupTest, AStandardOutputThatCannotBeMadeIsReported) {
    EXPECT_EQ("Failed creating standard out logging interface.\n", SetUpWithFailing("Log_NewStdioOutput"));
    EXPECT_THAT(FakePlatform::calls(), ElementsAreArray(SetupUpTo("Log_NewStdioOutput")));
}

TEST(LoggingSetupTest, AStandardOutputThatCannotBeAddedIsReported) {
    EXPECT_EQ("Failed adding standard out logging interface.\n", SetUpWithFailing("Log_AddOutput"));
    EXPECT_THAT(FakePlatform::calls(), ElementsAreArray(SetupUpTo("Log_AddOutput")));
}

TEST(LoggingSetupTest, StandardOutputIsFlushedAndThenUnbuffered) {
    FakePlatform::Reset();
    const TempDir dir;
    const std::string path = dir.WriteFile("stdout", "");
    std::fflush(stdout);
    UniqueFd terminal(::dup(STDOUT_FILENO));
    {
        const UniqueFd file(::open(path.c_str(), O_WRONLY | O_APPEND | O_CLOEXEC));
        ASSERT_EQ(STDOUT_FILENO, ::dup2(file.get(), STDOUT_FILENO));
    }
    const ScopeGuard restore([&] { ::dup2(terminal.get(), STDOUT_FILENO); });
    static char buffer[4096];  // without one the C library keeps a stream unbuffered that was so before
    std::setvbuf(stdout, buffer, _IOFBF, sizeof buffer);
    std::fputs("before,", stdout);
    const std::string buffered = ReadFile(path);
    SetUpLogging("bootweave");
    const std::string flushed = ReadFile(path);
    std::fputs("after", stdout);
    const std::string unbuffered = ReadFile(path);

    EXPECT_EQ("", buffered);
    EXPECT_EQ("before,", flushed);
    EXPECT_EQ("before,after", unbuffered);
}

}  // namespace
}  // namespace bootweave
