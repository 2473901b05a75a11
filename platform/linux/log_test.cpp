// SPDX-License-Identifier: Apache-2.0
#include "platform/log.h"

#include <cerrno>
#include <regex>
#include <string>

#include <unistd.h>

#include "gmock/gmock.h"
#include "platform/linux/log_internal.h"
#include "platform/linux/log_test_support.h"

namespace bootweave {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

/// Settings for one output, made and freed around a call.
class Settings {
  public:
    Settings() : dictionary_(Dictionary_Create()) {}
    ~Settings() { Dictionary_Free(dictionary_); }
    Settings(const Settings&) = delete;
    Settings& operator=(const Settings&) = delete;
    Settings& Text(const char* key, const char* value) {
        Dict_SetString(dictionary_, key, value);
        return *this;
    }
    Settings& Flag(const char* key, bool value) {
        Dict_SetBool(dictionary_, key, value);
        return *this;
    }
    [[nodiscard]] Dictionary* get() const { return dictionary_; }

  private:
    Dictionary* dictionary_;
};

class LogTest : public LogFixture {
  protected:
    /// What standard output gets while `log` runs.
    template <typename Body>
    std::string Output(Body log) {
        const std::string path = dir_.WriteFile("stdout", "");
        {
            const StdoutToFile redirected(path);
            log();
        }
        return ReadFile(path);
    }

    std::string origin_ = Origin(::getpid());
};

TEST_F(LogTest, AMessageGoesToBothOutputsWithTheSameText) {
    LogDaemon daemon(socket_path());
    SetUpLog();
    const std::string output = Output([] { Log_Level(5, "Setting up %s\n", "Executor"); });
    EXPECT_THAT(LinesWithoutStamp(output), ElementsAre(origin_ + "Setting up Executor"));
    EXPECT_EQ("<29>" + origin_ + "Setting up Executor\n", daemon.Receive());
}

TEST_F(LogTest, AnOutputLineIsStampNameProcessMessageAndOneNewline) {
    SetUpLog();
    const std::string output = Output([] { Log_Level(5, "the message"); });
    const std::regex line(R"([0-9]{4}-[0-9]{2}-[0-9]{2}T[0-9]{2}:[0-9]{2}:[0-9]{2}\.[0-9]{3}Z bootweave\[)" +
                          std::to_string(::getpid()) + R"(\]: the message\n)");
    EXPECT_TRUE(std::regex_match(output, line)) << output;
}

TEST_F(LogTest, LevelsBecomeSyslogSeverities) {
    LogDaemon daemon(socket_path());
    SetUpLog();
    Output([] {
        Log_Level(2, "an error");
        Log_Level(3, "a warning");
        Log_Level(5, "a notice");
        Warning("level three, too");
    });
    EXPECT_THAT(daemon.Drain(),
                ElementsAre("<27>" + origin_ + "an error", "<28>" + origin_ + "a warning",
                            "<29>" + origin_ + "a notice", "<28>" + origin_ + "level three, too"));
}

TEST_F(LogTest, TrailingNewlinesAreKeptForSyslogAndBecomeOneOnTheOutput) {
    LogDaemon daemon(socket_path());
    SetUpLog();
    const std::string output = Output([] {
        Log_Level(3, "none");
        Log_Level(3, "one\n");
        Log_Level(3, "two\n\n");
        Log_Level(3, "\n");
        Log_Level(3, "%s", "");
    });
    EXPECT_THAT(LinesWithoutStamp(output),
                ElementsAre(origin_ + "none", origin_ + "one", origin_ + "two", origin_, origin_));
    const std::string head = "<28>" + origin_;
    EXPECT_THAT(daemon.Drain(),
                ElementsAre(head + "none", head + "one\n", head + "two\n\n", head + "\n", head));
}

TEST_F(LogTest, APluginNameCannotForgeALine) {
    LogDaemon daemon(socket_path());
    SetUpLog();
    const char* const name =
        "x\n2026-11-15T15:04:56.123Z bootweave[1]: forged\x1b[2K\r\xC2\x9B"
        "1A\tend\n";
    const std::string output = Output([&] { Log_Level(2, "plugin %s\n", name); });
    const std::string harmless =
        "plugin x\\x0a2026-11-15T15:04:56.123Z bootweave[1]: forged\\x1b[2K\\x0d\\xc2\\x9b1A\tend";
    EXPECT_THAT(LinesWithoutStamp(output), ElementsAre(origin_ + harmless));
    EXPECT_EQ("<27>" + origin_ + harmless + "\n\n", daemon.Receive());
}

TEST_F(LogTest, ALongMessageArrivesWholeOnBoth) {
    LogDaemon daemon(socket_path());
    SetUpLog();
    const std::string text(50'000, 'x');
    const std::string output = Output([&] { Log_Level(5, "%s|%d\n", text.c_str(), 42); });
    EXPECT_THAT(LinesWithoutStamp(output), ElementsAre(origin_ + text + "|42"));
    EXPECT_EQ("<29>" + origin_ + text + "|42\n", daemon.Receive());
}

TEST_F(LogTest, WithoutADaemonTheOutputHasEverythingAndErrnoIsKept) {
    SetUpLog();
    int kept = 0;
    const std::string output = Output([&] {
        errno = EXDEV;
        Log_Level(5, "one");
        Warning("two");
        Log_Syslog(3, "nowhere");
        kept = errno;
    });
    EXPECT_EQ(EXDEV, kept);
    EXPECT_THAT(LinesWithoutStamp(output), ElementsAre(origin_ + "one", origin_ + "two"));
}

TEST_F(LogTest, NothingGoesAnywhereBeforeTheLogIsSetUp) {
    LogDaemon daemon(socket_path());
    EXPECT_EQ("", Output([] { Log_Level(2, "too early"); }));
    EXPECT_THAT(daemon.Drain(), IsEmpty());
}

TEST_F(LogTest, SyslogMessagesGoToTheSystemLogAloneSetUpOrNot) {
    LogDaemon daemon(socket_path());
    EXPECT_EQ("", Output([] { Log_Syslog(3, "before %d\n", 1); }));
    EXPECT_EQ("<27>" + origin_ + "before 1\n", daemon.Receive());
    SetUpLog();
    EXPECT_EQ("", Output([] { Log_Syslog(1, "after"); }));
    EXPECT_EQ("<25>" + origin_ + "after", daemon.Receive());
}

TEST_F(LogTest, ProductInformationIsKeptForCoreFilesAndCutToItsRoom) {
    Log_SetProductInfo("bootweave", "9.8.7", "build-6", "debug");
    EXPECT_EQ("bootweave 9.8.7 build-6 debug", LogProductForTest());
    Log_SetProductInfo(nullptr, std::string(500, 'x').c_str(), "", nullptr);
    EXPECT_EQ(std::string(159, 'x'), LogProductForTest());
}

TEST_F(LogTest, ALevelBelowAllIsAnErrorAndOneAboveAllIsNotLogged) {
    EXPECT_EQ("", Output([] { Log_Level(-7, "not set up"); }));
    LogDaemon daemon(socket_path());
    SetUpLog();
    Output([] {
        Log_Level(-7, "low");
        Log_Level(6, "high");
    });
    EXPECT_THAT(daemon.Drain(), ElementsAre("<27>" + origin_ + "low"));
}

TEST_F(LogTest, TheIdentifierOfTheDictionaryWinsInTheSystemLog) {
    LogDaemon daemon(socket_path());
    ASSERT_TRUE(Log_InitWithSyslogInt("other", Settings().Text("log.syslogID", "name").get(), 0));
    Log_Level(5, "x");
    const std::string process = "[" + std::to_string(::getpid()) + "]: ";
    EXPECT_EQ("<29>name" + process + "x", daemon.Receive());
    ASSERT_TRUE(Log_InitWithSyslogInt("other", Settings().get(), 0));
    Log_Level(5, "y");
    Log_Syslog(3, "z");
    EXPECT_THAT(daemon.Drain(), ElementsAre("<29>other" + process + "y", "<27>other" + process + "z"));
}

TEST_F(LogTest, EachOutputHasALevelOfItsOwn) {
    LogDaemon daemon(socket_path());
    ASSERT_TRUE(Log_InitWithSyslogInt("bootweave", Settings().Text("log.syslogLevel", "error").get(), 0));
    ASSERT_TRUE(Log_AddOutput(
        Log_NewStdioOutput("bootweave", Settings().Text("log.stdoutLevel", "warning").get(), 0)));
    const std::string output = Output([] {
        Log_Level(2, "two");
        Log_Level(3, "three");
        Log_Level(5, "five");
    });
    EXPECT_EQ(origin_ + "two\n" + origin_ + "three\n", output);
    EXPECT_THAT(daemon.Drain(), ElementsAre("<27>" + origin_ + "two"));
}

TEST_F(LogTest, TimeStampsAndTheirMillisecondsAreSwitches) {
    ASSERT_TRUE(Log_AddOutput(
        Log_NewStdioOutput("bootweave", Settings().Flag("log.useTimeStamps.stdio", true).get(), 0)));
    const std::string output = Output([] { Log_Level(5, "x"); });
    const std::regex line(R"([0-9-]{10}T[0-9:]{8}Z bootweave\[[0-9]+\]: x\n)");
    EXPECT_TRUE(std::regex_match(output, line)) << output;
}

TEST_F(LogTest, TheSystemLogCannotBeSetUpWithBadArguments) {
    EXPECT_FALSE(Log_InitWithSyslogInt("bootweave", nullptr, 0));
    EXPECT_FALSE(Log_InitWithSyslogInt("bootweave", Settings().get(), 1));
    EXPECT_FALSE(Log_InitWithSyslogInt(nullptr, Settings().get(), 0));
    EXPECT_FALSE(Log_InitWithSyslogInt("", Settings().get(), 0));
    EXPECT_FALSE(Log_InitWithSyslogInt("a\nb", Settings().get(), 0));
    EXPECT_FALSE(Log_InitWithSyslogInt(std::string(49, 'x').c_str(), Settings().get(), 0));
    EXPECT_FALSE(Log_InitWithSyslogInt("bootweave", Settings().Text("log.syslogLevel", "chatty").get(), 0));
    EXPECT_FALSE(Log_InitWithSyslogInt("bootweave", Settings().Flag("log.syslogLevel", true).get(), 0));
    EXPECT_FALSE(Log_InitWithSyslogInt("bootweave", Settings().Flag("log.syslogID", true).get(), 0));
    EXPECT_FALSE(Log_InitWithSyslogInt("bootweave", Settings().Text("log.syslogID", nullptr).get(), 0));
    EXPECT_TRUE(Log_InitWithSyslogInt(std::string(48, 'x').c_str(), Settings().get(), 0));
}

TEST_F(LogTest, AStandardOutputCannotBeMadeWithBadArguments) {
    EXPECT_EQ(nullptr, Log_NewStdioOutput("bootweave", nullptr, 0));
    EXPECT_EQ(nullptr, Log_NewStdioOutput("bootweave", Settings().get(), 1));
    EXPECT_EQ(nullptr, Log_NewStdioOutput(nullptr, Settings().get(), 0));
    EXPECT_EQ(nullptr, Log_NewStdioOutput("", Settings().get(), 0));
    EXPECT_EQ(nullptr, Log_NewStdioOutput("bootweave", Settings().Text("log.stdoutLevel", "").get(), 0));
    EXPECT_EQ(nullptr,
              Log_NewStdioOutput("bootweave", Settings().Text("log.useTimeStamps.stdio", "true").get(), 0));
    EXPECT_EQ(nullptr,
              Log_NewStdioOutput("bootweave", Settings().Text("log.useMilliseconds.stdio", "1").get(), 0));
}

TEST_F(LogTest, ThereIsRoomForOneStandardOutput) {
    EXPECT_FALSE(Log_AddOutput(nullptr));
    LogOutput* const first = Log_NewStdioOutput("bootweave", Settings().get(), 0);
    EXPECT_TRUE(Log_AddOutput(first));
    EXPECT_FALSE(Log_AddOutput(first));
    EXPECT_FALSE(Log_AddOutput(Log_NewStdioOutput("other", Settings().get(), 0)));
    EXPECT_EQ(origin_ + "once\n", Output([] { Log_Level(5, "once"); }));
}

TEST_F(LogTest, MessagesUpToTheStandardErrorLevelGoThereToo) {
    ASSERT_TRUE(Log_AddOutput(Log_NewStdioOutput("bootweave", Settings().get(), 0)));
    Log_SetStderrLevel(nullptr, 3);
    testing::internal::CaptureStderr();
    const std::string output = Output([] {
        Log_Level(2, "two");
        Log_Level(3, "three");
        Log_Level(5, "five");
    });
    EXPECT_EQ(origin_ + "two\n" + origin_ + "three\n", testing::internal::GetCapturedStderr());
    EXPECT_EQ(origin_ + "two\n" + origin_ + "three\n" + origin_ + "five\n", output);
}

TEST_F(LogTest, ANewLevelOfMinusOneKeepsStandardErrorQuiet) {
    SetUpLog();
    testing::internal::CaptureStderr();
    Output([] { Log_Level(2, "two"); });
    EXPECT_EQ("", testing::internal::GetCapturedStderr());
}

}  // namespace
}  // namespace bootweave
