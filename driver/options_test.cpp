// SPDX-License-Identifier: Apache-2.0
#include "driver/options.h"

#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "driver/help_text.h"
#include "gmock/gmock.h"
#include "tests/support/fake_platform.h"

namespace bootweave {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr std::int64_t kStartSeed = 1'700'000'000;
constexpr const char* kUsageLine = "usage: bootweave --help for usage information\n";

/// What became of one command line.
struct Outcome {
    std::optional<int> exit_status;
    std::string values;  ///< all that differ from their defaults, see Describe
    std::string output;
    std::string diagnostics;
    std::vector<LogMessage> log;
};

template <typename List>
std::string Join(const List& list) {
    std::string text;
    for (const std::string& item : list) {
        text += (text.empty() ? "" : "|") + item;
    }
    return text;
}

/// Every value that a command line can set and that differs from its default: a test that compares the text
/// also sees what was not meant to change. Lists are joined by "|".
class Description {
  public:
    Description(const DriverOptions& options, const RunConfig& config) {
        const DriverOptions plain;
        RunConfig fresh;
        fresh.seed = kStartSeed;
        Flag("init", options.init_mode);
        Flag("daemon", options.daemon_mode);
        Flag("dump", options.dump_requested);
        if (options.dump_path.has_value()) {
            Add("dump_path=" + *options.dump_path);
        }
        Text("plugins", Join(options.plugins), "");
        Text("plugin_flags", Join(options.plugin_flags), "");
        Text("run_once", Join(options.run_once_names), "");
        Text("directory", options.plugin_directory, plain.plugin_directory);
        Flag("verbose", config.verbose);
        Flag("parallel", config.parallel);
        Flag("randomize", config.randomize);
        Flag("interactive", config.interactive);
        Flag("trace", config.trace);
        Text("threads", std::to_string(config.threads), std::to_string(fresh.threads));
        Text("seed", std::to_string(config.seed), std::to_string(fresh.seed));
        Text("config_directory", config.plugin_directory, "");
        Text("disabled", Join(config.disabled_plugins), "");
        Text("requires", Join(config.interactive_mode_requires), "");
        Text("method", config.method, "");
        Flag("invoke", config.invoke);
        Flag("wait", config.daemon_wait);
        Text("timeout", std::to_string(config.daemon_wait_timeout),
             std::to_string(fresh.daemon_wait_timeout));
    }
    [[nodiscard]] const std::string& text() const { return text_; }

  private:
    void Add(const std::string& item) { text_ += (text_.empty() ? "" : " ") + item; }
    void Flag(const std::string& name, bool set) {
        if (set) {
            Add(name);
        }
    }
    void Text(const std::string& name, const std::string& value, const std::string& usual) {
        if (value != usual) {
            Add(name + "=" + value);
        }
    }

    std::string text_;
};

Outcome Parse(std::vector<std::string> arguments) {
    arguments.insert(arguments.begin(), "bootweave");
    std::vector<char*> argv;
    for (std::string& argument : arguments) {
        argv.push_back(argument.data());
    }
    argv.push_back(nullptr);
    FakePlatform::Reset();
    RunConfig config;
    config.seed = kStartSeed;
    testing::internal::CaptureStdout();
    testing::internal::CaptureStderr();
    const auto parsed = ParseOptions(static_cast<int>(arguments.size()), argv.data(), config);
    Outcome outcome;
    outcome.output = testing::internal::GetCapturedStdout();
    outcome.diagnostics = testing::internal::GetCapturedStderr();
    outcome.log = FakePlatform::log();
    if (const auto* early = std::get_if<EarlyExit>(&parsed)) {
        outcome.exit_status = early->status;
    } else {
        outcome.values = Description(std::get<DriverOptions>(parsed), config).text();
    }
    return outcome;
}

/// The command line is accepted, without a word, and sets exactly these values.
void ExpectValues(const std::vector<std::string>& arguments, const std::string& values) {
    SCOPED_TRACE(Join(arguments));
    const Outcome outcome = Parse(arguments);
    EXPECT_EQ(std::nullopt, outcome.exit_status);
    EXPECT_EQ(values, outcome.values);
    EXPECT_EQ("", outcome.output);
    EXPECT_EQ("", outcome.diagnostics);
    EXPECT_THAT(outcome.log, IsEmpty());
}

/// The parser itself refuses the command line, for this reason.
void ExpectUsageError(const std::vector<std::string>& arguments, const std::string& diagnostic) {
    SCOPED_TRACE(Join(arguments));
    const Outcome outcome = Parse(arguments);
    EXPECT_EQ(1, outcome.exit_status);
    EXPECT_EQ(diagnostic + "\n" + kUsageLine, outcome.diagnostics);
    EXPECT_EQ("", outcome.output);
    EXPECT_THAT(outcome.log, IsEmpty());
}

void ExpectInvalidCombination(const std::vector<std::string>& arguments) {
    SCOPED_TRACE(Join(arguments));
    const Outcome outcome = Parse(arguments);
    EXPECT_EQ(1, outcome.exit_status);
    EXPECT_THAT(outcome.log, ElementsAre(LogMessage{2, "Invalid combination of options passed. Exiting\n"}));
    EXPECT_EQ("", outcome.output);
    EXPECT_EQ("", outcome.diagnostics);
}

void ExpectInvokeRefused(const std::vector<std::string>& arguments) {
    SCOPED_TRACE(Join(arguments));
    const Outcome outcome = Parse(arguments);
    EXPECT_EQ(1, outcome.exit_status);
    EXPECT_THAT(outcome.log, ElementsAre(LogMessage{2, "invoke requires a method and plugin specified\n"}));
    EXPECT_EQ(kHelpText, outcome.output);
    EXPECT_EQ("", outcome.diagnostics);
}

void ExpectHelp(const std::vector<std::string>& arguments) {
    SCOPED_TRACE(Join(arguments));
    const Outcome outcome = Parse(arguments);
    EXPECT_EQ(0, outcome.exit_status);
    EXPECT_EQ(kHelpText, outcome.output);
    EXPECT_EQ("", outcome.diagnostics);
    EXPECT_THAT(outcome.log, IsEmpty());
}

TEST(OptionsTest, AnEmptyCommandLineKeepsTheDefaults) {
    ExpectValues({}, "");

    const DriverOptions options;
    EXPECT_FALSE(options.init_mode);
    EXPECT_FALSE(options.daemon_mode);
    EXPECT_FALSE(options.dump_requested);
    EXPECT_EQ(std::nullopt, options.dump_path);
    EXPECT_THAT(options.plugins, IsEmpty());
    EXPECT_THAT(options.plugin_flags, IsEmpty());
    EXPECT_THAT(options.run_once_names, IsEmpty());
    EXPECT_EQ("/usr/libexec/bootweave/plugins", options.plugin_directory);
}

TEST(OptionsTest, SwitchesSetTheirFlag) {
    ExpectValues({"--init"}, "init");
    ExpectValues({"--trace"}, "trace");
    ExpectValues({"--verbose"}, "verbose");
    ExpectValues({"--parallel"}, "parallel");
    ExpectValues({"--interactive"}, "interactive");
    ExpectValues({"--randomize"}, "randomize");
    ExpectValues({"--dump-dependency-tree"}, "dump");
    ExpectValues({"--init", "--trace", "--verbose"}, "init verbose trace");
}

TEST(OptionsTest, RequiredArgumentsMayBeJoinedOrStandAlone) {
    for (const std::string name : {"plugin-directory", "method", "plugin", "plugin-flags", "run-once",
                                   "disable-plugins", "interactive-mode-requires", "daemon-wait-timeout"}) {
        EXPECT_EQ(Parse({"--" + name + "=7"}).values, Parse({"--" + name, "7"}).values) << name;
        EXPECT_NE("", Parse({"--" + name, "7"}).values) << name;
    }
}

TEST(OptionsTest, TheLastOccurrenceOfASingleValueCounts) {
    ExpectValues({"--method=start"}, "method=start");
    ExpectValues({"--method=start", "--method=foo"}, "method=foo");
    ExpectValues({"--method=start", "--method="}, "");
    ExpectValues({"--plugin-directory=/a", "--plugin-directory=b"}, "directory=b");
    ExpectValues({"--plugin-directory="}, "directory=");
    ExpectValues({"--daemon-wait-timeout=1", "--daemon-wait-timeout=2"}, "timeout=2");
}

TEST(OptionsTest, PluginsAccumulateInOrderWithDuplicates) {
    ExpectValues({"--plugin=b,a", "--plugin", "b"}, "plugins=b|a|b");
    ExpectValues({"--plugin=a", "--plugin=b"}, "plugins=a|b");
}

TEST(OptionsTest, OnlyTheLastPluginFlagsCount) {
    ExpectValues({"--plugin-flags=b,a,b"}, "plugin_flags=a|b");
    ExpectValues({"--plugin-flags=a,b", "--plugin-flags=c"}, "plugin_flags=c");
    ExpectValues({"--plugin-flags=a,b", "--plugin-flags="}, "");
}

TEST(OptionsTest, RunOnceNamesAccumulateAsASet) {
    ExpectValues({"--run-once=net1.0,a", "--run-once=a,b"}, "run_once=a|b|net1.0");
}

TEST(OptionsTest, DisabledPluginsAccumulateInOrder) {
    ExpectValues({"--disable-plugins=b,a", "--disable-plugins=b"}, "disabled=b|a|b");
}

TEST(OptionsTest, InteractiveRequirementsAccumulateInOrder) {
    ExpectValues({"--interactive-mode-requires=b,a", "--interactive-mode-requires=c"}, "requires=b|a|c");
}

TEST(OptionsTest, EmptyItemsOfAListAreDropped) {
    ExpectValues({"--plugin=a,,b,"}, "plugins=a|b");
    ExpectValues({"--plugin=,,a"}, "plugins=a");
    ExpectValues({"--plugin="}, "");
    ExpectValues({"--plugin=,"}, "");
    ExpectValues({"--disable-plugins=,a,,"}, "disabled=a");
    ExpectValues({"--run-once=,a,,"}, "run_once=a");
    ExpectValues({"--plugin-flags=,a,,"}, "plugin_flags=a");
    ExpectValues({"--interactive-mode-requires=,a,,"}, "requires=a");
}

TEST(OptionsTest, ItemsOfAListAreNeitherTrimmedNorUnescaped) {
    ExpectValues({"--plugin= a ,\tb"}, "plugins= a |\tb");
    ExpectValues({"--plugin=a\\,b"}, "plugins=a\\|b");
    ExpectValues({"--plugin=\"a,b\""}, "plugins=\"a|b\"");
}

TEST(OptionsTest, ParallelAndInteractiveCancelEachOther) {
    ExpectValues({"--interactive", "--parallel"}, "parallel");
    ExpectValues({"--parallel", "--interactive"}, "interactive");
    ExpectValues({"--parallel", "--interactive", "--parallel"}, "parallel");
}

TEST(OptionsTest, RandomizeTakesASignedSeed) {
    ExpectValues({"--randomize=5"}, "randomize seed=5");
    ExpectValues({"--randomize=-5"}, "randomize seed=-5");
    ExpectValues({"--randomize=+5"}, "randomize seed=5");
    ExpectValues({"--randomize=007"}, "randomize seed=7");
    ExpectValues({"--randomize=0"}, "randomize seed=0");
    ExpectValues({"--randomize=2147483647"}, "randomize seed=2147483647");
    ExpectValues({"--randomize=-2147483648"}, "randomize seed=-2147483648");
}

TEST(OptionsTest, ASeedThatIsNoNumberKeepsThePreviousOneSilently) {
    for (const std::string seed : {"", "abc", " 5", "5 ", "5x", "0x10", "1.5", "1e3", "--5", "+-5", "+", "-",
                                   "2147483648", "-2147483649", "99999999999999999999", "1,000"}) {
        ExpectValues({"--randomize=" + seed}, "randomize");
        ExpectValues({"--randomize=8", "--randomize=" + seed}, "randomize seed=8");
    }
}

TEST(OptionsTest, RandomizeWithoutAValueKeepsAnEarlierSeed) {
    ExpectValues({"--randomize=8", "--randomize"}, "randomize seed=8");
}

TEST(OptionsTest, TheWordBehindAnOptionalArgumentIsNotItsValue) {
    ExpectValues({"--randomize", "5"}, "randomize");
    ExpectValues({"--dump-dependency-tree", "/tmp/x"}, "dump");
    ExpectValues({"--daemon", "wait", "--method=start"}, "daemon method=start");
}

TEST(OptionsTest, DumpTakesAPathThatMayBeEmpty) {
    ExpectValues({"--dump-dependency-tree=/a b"}, "dump dump_path=/a b");
    ExpectValues({"--dump-dependency-tree="}, "dump dump_path=");
    ExpectValues({"--dump-dependency-tree=x", "--dump-dependency-tree"}, "dump dump_path=x");
}

TEST(OptionsTest, DaemonWaitsOnlyForTheWordWait) {
    ExpectValues({"--daemon", "--method=start"}, "daemon method=start");
    ExpectValues({"--daemon=wait", "--method=stop"}, "daemon method=stop wait");
    for (const std::string other : {"nowait", "foo", "", "WAIT", "wait ", "waiting"}) {
        ExpectValues({"--daemon=" + other, "--method=start"}, "daemon method=start");
        ExpectValues({"--daemon=wait", "--daemon=" + other, "--method=start"}, "daemon method=start");
    }
    ExpectValues({"--daemon=wait", "--daemon", "--method=start"}, "daemon method=start wait");
}

TEST(OptionsTest, TheDaemonTimeoutIsUnsignedAndWraps) {
    ExpectValues({"--daemon-wait-timeout=0"}, "timeout=0");
    ExpectValues({"--daemon-wait-timeout=+5"}, "timeout=5");
    ExpectValues({"--daemon-wait-timeout=-1"}, "timeout=4294967295");
    ExpectValues({"--daemon-wait-timeout=-4294967295"}, "timeout=1");
    ExpectValues({"--daemon-wait-timeout=4294967295"}, "timeout=4294967295");
    ExpectValues({"--daemon-wait-timeout", "-1"}, "timeout=4294967295");
}

TEST(OptionsTest, ATimeoutThatIsNoNumberKeepsThePreviousOneSilently) {
    for (const std::string timeout :
         {"", "abc", " 5", "5 ", "5s", "0x10", "1.5", "4294967296", "-4294967296", "18446744073709551616"}) {
        ExpectValues({"--daemon-wait-timeout=" + timeout}, "");
        ExpectValues({"--daemon-wait-timeout=9", "--daemon-wait-timeout=" + timeout}, "timeout=9");
    }
}

TEST(OptionsTest, WordsThatAreNoOptionsAreIgnoredWhereverTheyStand) {
    ExpectValues({"one", "--init", "two", "--trace", "three"}, "init trace");
    ExpectValues({"-", "--init"}, "init");
}

TEST(OptionsTest, NothingBehindTwoDashesIsAnOption) {
    ExpectValues({"--init", "--", "--trace"}, "init");
}

TEST(OptionsTest, UnambiguousAbbreviationsAreAccepted) {
    ExpectValues({"--ini"}, "init");
    ExpectValues({"--par"}, "parallel");
    ExpectValues({"--rand=3"}, "randomize seed=3");
    ExpectValues({"--daemon-w=3"}, "timeout=3");
    ExpectValues({"--dump=p"}, "dump dump_path=p");
    ExpectHelp({"--he"});
}

TEST(OptionsTest, AWholeNameIsNoAbbreviationOfALongerOne) {
    ExpectValues({"--interactive"}, "interactive");
    ExpectValues({"--plugin=a"}, "plugins=a");
    ExpectValues({"--daemon", "--method=stop"}, "daemon method=stop");
}

TEST(OptionsTest, HelpPrintsTheHelpAndStopsAtOnce) {
    ExpectHelp({"--help"});
    ExpectHelp({"-h"});
    ExpectHelp({"--init", "--help", "--nonsense"});
    ExpectHelp({"--daemon", "--invoke", "-h"});
    ExpectHelp({"-hx"});
    ExpectHelp({"word", "--help"});
}

TEST(OptionsTest, AnUnknownOptionPrintsTheUsageLine) {
    ExpectUsageError({"--nonsense"}, "bootweave: unrecognized option '--nonsense'");
    ExpectUsageError({"--nonsense", "--help"}, "bootweave: unrecognized option '--nonsense'");
    ExpectUsageError({"-x"}, "bootweave: invalid option -- 'x'");
    ExpectUsageError({"--daemon", "--invoke", "--nonsense"},
                     "bootweave: unrecognized option '--nonsense'");  // before the combination is looked at
    ExpectUsageError({"--plugin-f=a", "--plugi=a"},
                     "bootweave: option '--plugi=a' is ambiguous; possibilities: '--plugin-flags' '--plugin'"
                     " '--plugin-directory'");
}

TEST(OptionsTest, AMissingArgumentPrintsTheUsageLine) {
    for (const std::string name : {"plugin-directory", "method", "plugin", "plugin-flags", "run-once",
                                   "disable-plugins", "interactive-mode-requires", "daemon-wait-timeout"}) {
        ExpectUsageError({"--" + name}, "bootweave: option '--" + name + "' requires an argument");
    }
}

TEST(OptionsTest, AnArgumentForASwitchPrintsTheUsageLine) {
    for (const std::string name : {"help", "init", "trace", "invoke", "verbose", "parallel", "interactive"}) {
        ExpectUsageError({"--" + name + "=1"},
                         "bootweave: option '--" + name + "' doesn't allow an argument");
    }
}

TEST(OptionsTest, TheUsageLineNamesTheProgramAsItWasCalled) {
    std::string program = "/usr/sbin/./other";
    std::string option = "--nonsense";
    char* argv[] = {program.data(), option.data(), nullptr};
    RunConfig config;
    testing::internal::CaptureStderr();
    static_cast<void>(ParseOptions(2, argv, config));
    EXPECT_EQ(
        "/usr/sbin/./other: unrecognized option '--nonsense'\n"
        "usage: /usr/sbin/./other --help for usage information\n",
        testing::internal::GetCapturedStderr());
}

TEST(OptionsTest, DaemonModeAcceptsStartAndStop) {
    ExpectValues({"--daemon", "--method=start"}, "daemon method=start");
    ExpectValues({"--daemon", "--method=stop"}, "daemon method=stop");
    ExpectValues({"--daemon=wait", "--daemon-wait-timeout=3", "--method=stop", "--parallel", "--verbose"},
                 "daemon verbose parallel method=stop wait timeout=3");
    ExpectValues({"--daemon", "--method=restart", "--method=stop"}, "daemon method=stop");
    ExpectValues({"--daemon", "--method=stop", "--plugin=,"}, "daemon method=stop");
    ExpectValues({"--daemon", "--method=stop", "--dump-dependency-tree"}, "daemon dump method=stop");
}

TEST(OptionsTest, DaemonModeRefusesOtherModes) {
    ExpectInvalidCombination({"--daemon", "--method=start", "--interactive"});
    ExpectInvalidCombination({"--daemon", "--method=start", "--invoke"});
    ExpectInvalidCombination({"--daemon", "--method=start", "--init"});
    ExpectInvalidCombination({"--daemon", "--method=start", "--plugin=x"});
    ExpectInvalidCombination({"--daemon", "--method=start", "--plugin=x", "--invoke"});
    // Not the message that a missing method has without daemon mode.
    ExpectInvalidCombination({"--daemon", "--invoke"});
}

TEST(OptionsTest, DaemonModeRefusesOtherMethods) {
    ExpectInvalidCombination({"--daemon"});
    ExpectInvalidCombination({"--daemon", "--method="});
    ExpectInvalidCombination({"--daemon", "--method=restart"});
    ExpectInvalidCombination({"--daemon", "--method=Start"});
    ExpectInvalidCombination({"--daemon", "--method=start "});
    ExpectInvalidCombination({"--daemon", "--method=apply_host_profile"});
}

TEST(OptionsTest, DaemonModeIsFineOnceInteractiveWasCancelled) {
    ExpectValues({"--daemon", "--method=start", "--interactive", "--parallel"},
                 "daemon parallel method=start");
}

TEST(OptionsTest, InvokeNeedsAMethodAndAPlugin) {
    ExpectInvokeRefused({"--invoke"});
    ExpectInvokeRefused({"--invoke", "--plugin=x"});
    ExpectInvokeRefused({"--invoke", "--method=start"});
    ExpectInvokeRefused({"--invoke", "--method=", "--plugin=x"});
    ExpectInvokeRefused({"--invoke", "--method=start", "--plugin=,"});
    ExpectInvokeRefused({"--init", "--invoke"});
    ExpectValues({"--invoke", "--method=start", "--plugin=x"}, "plugins=x method=start invoke");
    ExpectValues({"--invoke", "--method=whatever", "--plugin=x"}, "plugins=x method=whatever invoke");
}

TEST(OptionsTest, EverythingElseGoesTogether) {
    ExpectValues({"--init", "--invoke", "--method=start", "--plugin=x"},
                 "init plugins=x method=start invoke");
    ExpectValues({"--init", "--plugin=x", "--dump-dependency-tree=d", "--randomize=1", "--parallel"},
                 "init dump dump_path=d plugins=x parallel randomize seed=1");
    ExpectValues({"--method=foo"}, "method=foo");
}

TEST(OptionsTest, EachCommandLineIsParsedFromItsStart) {
    ExpectUsageError({"-x", "--init"}, "bootweave: invalid option -- 'x'");
    ExpectValues({"--trace", "word"}, "trace");
    ExpectHelp({"-hhh", "--init"});  // leaves the parser inside a word
    ExpectValues({"--init"}, "init");
}

}  // namespace
}  // namespace bootweave
