// SPDX-License-Identifier: Apache-2.0
#include "hostcli/command_runner.h"

#include <stdexcept>
#include <string>
#include <vector>

#include <unistd.h>

#include "gmock/gmock.h"
#include "tests/support/fake_platform.h"
#include "tests/support/temp_dir.h"
#include "util/exception.h"

namespace bootweave {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class CommandRunnerTest : public testing::Test {
  protected:
    void SetUp() override {
        FakePlatform::Reset();
        dispatcher_->AddExternalDirectory(commands_.path());
    }

    void AddCommand(const std::string& name, const std::string& script) {
        commands_.WriteProgram(name, "#!/bin/sh\n" + script + "\n");
    }

    /// Runs a command line. Returns the failure, "" for none.
    std::string Run(const std::string& line) {
        try {
            RunCommandLine(line, [this] { return dispatcher_; });
        } catch (const Exception& error) {
            return error.what();
        }
        return "";
    }

    const TempDir commands_;
    const TempDir results_;
    const std::shared_ptr<Plinth::Cmdgen::Dispatcher> dispatcher_ =
        std::make_shared<Plinth::Cmdgen::Dispatcher>();
};

TEST_F(CommandRunnerTest, ACommandThatSucceedsCostsNoLine) {
    AddCommand("net.ip.set", "touch " + results_.File("ran") + "; echo spoken >&2");
    EXPECT_EQ("", Run("net ip set"));
    EXPECT_THAT(results_.Names(), ElementsAre("ran"));
    EXPECT_THAT(FakePlatform::log(), IsEmpty());
}

TEST_F(CommandRunnerTest, ParametersArePassedOnInOrderWithRepetitions) {
    AddCommand("a.b", "for word in \"$@\"; do echo \"$word\"; done > " + results_.File("words"));
    EXPECT_EQ("", Run("a b --k=1 -n 'two words' --k=2 --all"));
    EXPECT_EQ("--k=1\n--n=two words\n--k=2\n--all=true\n", ReadFile(results_.File("words")));
}

TEST_F(CommandRunnerTest, TheCommandKnowsWhoSentIt) {
    AddCommand("a.b", "echo $HOSTCLI_DISPATCHER $HOSTCLI_COMMAND > " + results_.File("names"));
    EXPECT_EQ("", Run("a b"));
    EXPECT_EQ("bootweave a.b\n", ReadFile(results_.File("names")));
}

TEST_F(CommandRunnerTest, EachParseErrorIsALineAndTheSummaryNamesTheCommand) {
    EXPECT_EQ("Executor failed to parse command a b/c --1x", Run("a b/c --1x"));
    EXPECT_THAT(
        FakePlatform::log(),
        ElementsAre(LogMessage{2, "Executor was unable to parse command: invalid command word 'b/c'\n"},
                    LogMessage{2, "Executor was unable to parse command: invalid option '--1x'\n"}));
}

TEST_F(CommandRunnerTest, AnEmptyCommandDoesNotParse) {
    EXPECT_EQ("Executor failed to parse command ", Run(""));
    EXPECT_THAT(FakePlatform::log(),
                ElementsAre(LogMessage{2, "Executor was unable to parse command: empty command\n"}));
}

TEST_F(CommandRunnerTest, EachExecutionErrorIsALineAndTheSummaryNamesTheCommand) {
    AddCommand("a.b", "echo first >&2; echo second >&2; exit 1");
    EXPECT_EQ("Executor failed to execute command: a b --x=1", Run("a b --x=1"));
    EXPECT_THAT(FakePlatform::log(),
                ElementsAre(LogMessage{2, "execution of 'a b --x=1' failed : first\n"},
                            LogMessage{2, "execution of 'a b --x=1' failed : second\n"}));
}

TEST_F(CommandRunnerTest, ACommandThatIsNowhereFails) {
    EXPECT_EQ("Executor failed to execute command: no such", Run("no such"));
    EXPECT_THAT(FakePlatform::log(),
                ElementsAre(LogMessage{2, "execution of 'no such' failed : unknown command: no such\n"}));
}

TEST_F(CommandRunnerTest, TextsOfOthersAreNoFormats) {
    AddCommand("a.b", "echo '%s%n%d' >&2; exit 1");
    EXPECT_EQ("Executor failed to execute command: a b --x=%s%n", Run("a b --x=%s%n"));
    EXPECT_THAT(FakePlatform::log(),
                ElementsAre(LogMessage{2, "execution of 'a b --x=%s%n' failed : %s%n%d\n"}));
    EXPECT_EQ("Executor failed to parse command a --%s", Run("a --%s"));
}

TEST_F(CommandRunnerTest, TheDispatcherIsNotAskedForByACommandThatDoesNotParse) {
    bool asked = false;
    const DispatcherSource source = [&] {
        asked = true;
        return dispatcher_;
    };
    EXPECT_THROW(RunCommandLine("a/b", source), Exception);
    EXPECT_FALSE(asked);
    EXPECT_THROW(RunCommandLine("a b", source), Exception);
    EXPECT_TRUE(asked);
}

TEST_F(CommandRunnerTest, WhatTheFrameworkRaisesReachesTheCaller) {
    const DispatcherSource source = []() -> std::shared_ptr<Plinth::Cmdgen::Dispatcher> {
        throw std::runtime_error("no dispatcher");
    };
    EXPECT_THROW(RunCommandLine("a b", source), std::runtime_error);
    EXPECT_THAT(FakePlatform::log(), IsEmpty());
}

TEST_F(CommandRunnerTest, ACheckTellsWhatWouldKeepALineFromBeingRunAndRunsNothing) {
    AddCommand("a.b", "touch " + results_.File("ran"));
    const auto check = [this](const std::string& line) {
        return CheckCommandLine(line, dispatcher_.get(), ::geteuid());
    };
    EXPECT_THAT(check("a b --x=1"), IsEmpty());
    EXPECT_THAT(check("a c"), ElementsAre("unknown command: a c"));
    EXPECT_THAT(check("a/b --1"), ElementsAre("invalid command word 'a/b'", "invalid option '--1'"));
    EXPECT_THAT(check(""), ElementsAre("empty command"));
    EXPECT_THAT(results_.Names(), IsEmpty());
    EXPECT_THAT(FakePlatform::log(), IsEmpty());
}

TEST_F(CommandRunnerTest, ACheckWithoutADispatcherLooksAtTheLineOnly) {
    EXPECT_THAT(CheckCommandLine("a c", nullptr, ::geteuid()), IsEmpty());
    EXPECT_THAT(CheckCommandLine("a 'c", nullptr, ::geteuid()), ElementsAre("unterminated quote"));
}

}  // namespace
}  // namespace bootweave
