// SPDX-License-Identifier: Apache-2.0
#include "analyze/verify_commands.h"

#include <string>
#include <vector>

#include <unistd.h>

#include "gmock/gmock.h"

#include "analyze/verify.h"
#include "analyze/verify_test_support.h"
#include "tests/support/temp_dir.h"

namespace bootweave {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class VerifyCommandsTest : public testing::Test {
  protected:
    /// What is found about a plugin with these commands.
    [[nodiscard]] Findings Check(const std::vector<std::string>& commands, bool reported = true) const {
        Findings findings;
        CheckCommands({{.name = "a", .file = "a.json", .reported = reported, .commands = commands}},
                      {.command_directories = {dir_.File("missing"), dir_.path()}, .user = ::geteuid()},
                      findings);
        return findings;
    }

    [[nodiscard]] std::vector<std::string> Texts(const std::string& command) const {
        std::vector<std::string> texts;
        for (const Finding& finding : Check({command})) {
            texts.push_back(finding.text);
        }
        return texts;
    }

    TempDir dir_;
};

TEST_F(VerifyCommandsTest, ACommandThatATrustedProgramAnswersIsFineAndNotRun) {
    dir_.WriteProgram("net.ip.set", "#!/bin/sh\ntouch " + dir_.File("ran") + "\n");
    EXPECT_THAT(Check({"net ip set --name=eth0", "net ip set"}), IsEmpty());
    EXPECT_THAT(dir_.Names(), ElementsAre("net.ip.set"));
}

TEST_F(VerifyCommandsTest, ACommandThatNoProgramAnswersIsAnError) {
    EXPECT_THAT(Check({"net ip set --name=eth0"}),
                ElementsAre(Finding{"a.json", Severity::kError, FindingKind::kCommand, "a",
                                    "command 'net ip set --name=eth0': unknown command: net ip set"}));
}

TEST_F(VerifyCommandsTest, ACommandThatWouldNotBeTrustedIsAnError) {
    dir_.WriteFile("net.up", "");
    EXPECT_THAT(Texts("net up"), ElementsAre("command 'net up': net.up: not a trusted executable"));
}

TEST_F(VerifyCommandsTest, ALineThatDoesNotParseHasAllItsErrors) {
    EXPECT_THAT(Texts("a/b x --1=2"), ElementsAre("command 'a/b x --1=2': invalid command word 'a/b'",
                                                  "command 'a/b x --1=2': invalid option '--1=2'"));
    EXPECT_THAT(Texts(""), ElementsAre("command '': empty command"));
}

TEST_F(VerifyCommandsTest, ALineThatStopsTheExecutorIsAnErrorEvenWhereThereIsSuchACommand) {
    dir_.WriteProgram("stopwatch.reset", "#!/bin/sh\n");
    EXPECT_THAT(
        Texts("stopwatch reset"),
        ElementsAre("command 'stopwatch reset': stops the command executor, because it begins with 'stop'"));
    EXPECT_THAT(Texts("STOP"),
                ElementsAre("command 'STOP': stops the command executor, because it begins with 'stop'"));
}

TEST_F(VerifyCommandsTest, ALineThatDoesNotReachTheExecutorWholeIsAnError) {
    dir_.WriteProgram("a", "#!/bin/sh\n");
    const std::string longest = "a --x=" + std::string(1023 - 6, 'x');
    EXPECT_THAT(Texts(longest), IsEmpty());
    EXPECT_THAT(
        Texts(longest + "x"),
        ElementsAre("command '" + longest + "x': only its first 1023 bytes reach the command executor"));
    const std::string with_nul("a\0 b", 4);
    EXPECT_THAT(Texts(with_nul),
                ElementsAre("command '" + with_nul + "': only its first 1 bytes reach the command executor"));
}

TEST_F(VerifyCommandsTest, NothingIsSaidOfWhatStandsAround) {
    EXPECT_THAT(Check({"unknown"}, false), IsEmpty());
}

TEST_F(VerifyCommandsTest, WithoutCommandDirectoriesOnlyTheLinesAreLookedAt) {
    Findings findings;
    CheckCommands({{.name = "a", .file = "a.json", .commands = {"unknown", "a 'b"}}},
                  {.command_directories = {dir_.File("missing"), dir_.File("none")}}, findings);
    EXPECT_THAT(
        findings,
        ElementsAre(Finding{"a.json", Severity::kError, FindingKind::kCommand, "a",
                            "command 'a 'b': unterminated quote"},
                    Finding{dir_.File("missing"), Severity::kWarning, FindingKind::kCommand, "",
                            "cannot be read, nor can any other command directory: commands are not looked "
                            "up"}));
    findings.clear();
    CheckCommands({{.name = "a", .file = "a.json"}}, {.command_directories = {dir_.File("missing")}},
                  findings);
    EXPECT_THAT(findings, IsEmpty());
}

}  // namespace
}  // namespace bootweave
