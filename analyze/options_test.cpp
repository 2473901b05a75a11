// SPDX-License-Identifier: Apache-2.0
#include "analyze/options.h"

#include <string>
#include <vector>

#include "gtest/gtest.h"

namespace bootweave {
namespace {

AnalyzeOptions Parse(std::vector<std::string> words) {
    words.insert(words.begin(), "analyze");
    std::vector<char*> argv;
    for (std::string& word : words) {
        argv.push_back(word.data());
    }
    argv.push_back(nullptr);
    return ParseAnalyzeOptions(static_cast<int>(words.size()), argv.data());
}

std::string ErrorOf(const std::vector<std::string>& words) {
    try {
        static_cast<void>(Parse(words));
    } catch (const UsageException& exception) {
        return exception.what();
    }
    return "";
}

TEST(AnalyzeOptionsTest, WithoutAWordItIsTheTimeOfTheLastBoot) {
    const AnalyzeOptions options = Parse({});
    EXPECT_EQ(AnalyzeCommand::kTime, options.command);
    EXPECT_EQ("/var/log/sysboot.log", options.profile);
    EXPECT_EQ(BlockChoice::Which::kLastBoot, options.block.which);
    EXPECT_EQ("/usr/libexec/bootweave/plugins", options.plugin_directory);
    EXPECT_EQ(std::nullopt, options.plugin);
    EXPECT_FALSE(options.json);
}

TEST(AnalyzeOptionsTest, OptionsMayStandBeforeAndBehindTheCommand) {
    const AnalyzeOptions options =
        Parse({"--profile", "/log", "dot", "--boot=12", "--plugin-directory", "/plugins", "--json"});
    EXPECT_EQ(AnalyzeCommand::kDot, options.command);
    EXPECT_EQ("/log", options.profile);
    EXPECT_EQ(BlockChoice::Which::kNumber, options.block.which);
    EXPECT_EQ(12U, options.block.number);
    EXPECT_EQ("/plugins", options.plugin_directory);
    EXPECT_TRUE(options.json);
    EXPECT_EQ(AnalyzeCommand::kTime, Parse({"time"}).command);
    EXPECT_EQ(AnalyzeCommand::kList, Parse({"list"}).command);
}

TEST(AnalyzeOptionsTest, TheBlockIsAWordOrANumberFromOne) {
    EXPECT_EQ(BlockChoice::Which::kLastBoot, Parse({"--boot=boot"}).block.which);
    EXPECT_EQ(BlockChoice::Which::kLast, Parse({"--boot=last"}).block.which);
    EXPECT_EQ(1U, Parse({"--boot=1"}).block.number);
    EXPECT_EQ("--boot takes 'boot', 'last' or a number from 1, not '0'; see --help", ErrorOf({"--boot=0"}));
    EXPECT_EQ("--boot takes 'boot', 'last' or a number from 1, not ''; see --help", ErrorOf({"--boot="}));
    EXPECT_EQ("--boot takes 'boot', 'last' or a number from 1, not '1x'; see --help", ErrorOf({"--boot=1x"}));
    EXPECT_EQ("--boot takes 'boot', 'last' or a number from 1, not '-1'; see --help",
              ErrorOf({"--boot", "-1"}));
}

TEST(AnalyzeOptionsTest, ACriticalChainMayBeThatOfOnePlugin) {
    EXPECT_EQ(AnalyzeCommand::kCriticalChain, Parse({"critical-chain"}).command);
    EXPECT_EQ(std::nullopt, Parse({"critical-chain"}).plugin);
    EXPECT_EQ("storage", Parse({"critical-chain", "storage"}).plugin);
    EXPECT_EQ("a word too many: 'b'; see --help", ErrorOf({"critical-chain", "a", "b"}));
}

TEST(AnalyzeOptionsTest, ADifferenceIsThatOfTwoProfiles) {
    const AnalyzeOptions options = Parse({"diff", "old.log", "--json", "new.log"});
    EXPECT_EQ(AnalyzeCommand::kDiff, options.command);
    EXPECT_EQ("old.log", options.profile);
    EXPECT_EQ("new.log", options.newer_profile);
    EXPECT_EQ("diff takes two profiles, the old one first; see --help", ErrorOf({"diff"}));
    EXPECT_EQ("diff takes two profiles, the old one first; see --help", ErrorOf({"diff", "old.log"}));
    EXPECT_EQ("a word too many: 'c'; see --help", ErrorOf({"diff", "a", "b", "c"}));
}

TEST(AnalyzeOptionsTest, AVerificationIsOfAnyNumberOfFiles) {
    EXPECT_EQ(AnalyzeCommand::kVerify, Parse({"verify"}).command);
    EXPECT_TRUE(Parse({"verify"}).files.empty());
    EXPECT_FALSE(Parse({"verify"}).strict);
    const AnalyzeOptions options = Parse({"verify", "a", "--strict", "b", "--", "-c"});
    EXPECT_EQ((std::vector<std::string>{"a", "b", "-c"}), options.files);
    EXPECT_TRUE(options.strict);
}

TEST(AnalyzeOptionsTest, APictureMayGoIntoAFile) {
    EXPECT_EQ(AnalyzeCommand::kPlot, Parse({"plot"}).command);
    EXPECT_EQ(std::nullopt, Parse({"plot"}).output);
    EXPECT_EQ("a.svg", Parse({"plot", "-o", "a.svg"}).output);
    EXPECT_EQ("a.svg", Parse({"-oa.svg", "plot"}).output);
    EXPECT_EQ("a.svg", Parse({"plot", "--output=a.svg"}).output);
    EXPECT_EQ("option '-o' needs a value; see --help", ErrorOf({"plot", "-o"}));
    EXPECT_EQ("option '--output' needs a value; see --help", ErrorOf({"plot", "--output"}));
    EXPECT_EQ("plot writes a picture, not JSON; see --help", ErrorOf({"plot", "--json"}));
}

TEST(AnalyzeOptionsTest, AGraphMayBeThatAroundOnePlugin) {
    EXPECT_EQ(AnalyzeCommand::kDot, Parse({"dot"}).command);
    EXPECT_EQ(std::nullopt, Parse({"dot"}).around);
    EXPECT_EQ("storage", Parse({"dot", "--around", "storage"}).around);
    EXPECT_EQ("option '--around' is for dot; see --help", ErrorOf({"plot", "--around", "storage"}));
}

TEST(AnalyzeOptionsTest, AnImaginedRunMayHaveOtherThreadsPluginsAndTimes) {
    EXPECT_EQ(AnalyzeCommand::kSimulate, Parse({"simulate"}).command);
    EXPECT_EQ(std::nullopt, Parse({"simulate"}).what_if.threads);
    const WhatIf what_if =
        Parse({"simulate", "--threads", "8", "--without=a", "--without", "b", "--time=c=250", "--time=d=e=0"})
            .what_if;
    EXPECT_EQ(8U, what_if.threads);
    EXPECT_EQ((std::vector<std::string>{"a", "b"}), what_if.without);
    ASSERT_EQ(2U, what_if.times.size());
    EXPECT_EQ(std::pair(std::string("c"), Duration(250'000)), what_if.times[0]);
    EXPECT_EQ(std::pair(std::string("d=e"), Duration(0)), what_if.times[1]);
}

TEST(AnalyzeOptionsTest, WhatCannotBeImaginedIsRefused) {
    for (const std::string text : {"0", "-1", "x", "", "1000001", "4x"}) {
        EXPECT_EQ("--threads takes a number from 1 to 1000000, not '" + text + "'; see --help",
                  ErrorOf({"simulate", "--threads=" + text}));
    }
    for (const std::string text : {"a", "a=", "=5", "a=-1", "a=1.5", "a=5ms", "a=1000000001"}) {
        EXPECT_EQ("--time takes PLUGIN=MS with at most 1000000000 ms, such as storage=250, not '" + text +
                      "'; see --help",
                  ErrorOf({"simulate", "--time=" + text}));
    }
    EXPECT_EQ("option '--threads' is for simulate; see --help", ErrorOf({"time", "--threads=2"}));
    EXPECT_EQ("option '--without' is for simulate; see --help", ErrorOf({"--without=a"}));
    EXPECT_EQ("option '--time' is for simulate; see --help", ErrorOf({"plot", "--time=a=1"}));
}

TEST(AnalyzeOptionsTest, AnOptionOfAnotherCommandIsRefused) {
    EXPECT_EQ("option '--output' is for plot; see --help", ErrorOf({"-o", "a.svg"}));
    EXPECT_EQ("option '--output' is for plot; see --help", ErrorOf({"blame", "--output=a.svg"}));
    EXPECT_EQ("option '--strict' is for verify; see --help", ErrorOf({"--strict"}));
}

TEST(AnalyzeOptionsTest, AnOptionThatACommandWouldIgnoreIsRefused) {
    EXPECT_EQ("option '--boot' is not for list; see --help", ErrorOf({"list", "--boot", "99"}));
    EXPECT_EQ("option '--boot' is not for verify; see --help", ErrorOf({"verify", "--boot=1"}));
    EXPECT_EQ("option '--profile' is not for verify; see --help", ErrorOf({"--profile=x", "verify"}));
    EXPECT_EQ("option '--profile' is not for diff; see --help", ErrorOf({"diff", "a", "b", "--profile=x"}));
    for (const std::string command : {"time", "blame", "list"}) {
        EXPECT_EQ("option '--plugin-directory' is not for " + command + "; see --help",
                  ErrorOf({command, "--plugin-directory=/p"}));
    }
    EXPECT_EQ("option '--plugin-directory' is not for diff; see --help",
              ErrorOf({"diff", "a", "b", "--plugin-directory=/p"}));
    EXPECT_EQ("option '--boot' is not for list; see --help", ErrorOf({"list", "--boot=1", "--json"}));
}

TEST(AnalyzeOptionsTest, APathIsNotEmpty) {
    EXPECT_EQ("option '--profile' needs a value; see --help", ErrorOf({"--profile="}));
    EXPECT_EQ("option '--profile' needs a value; see --help", ErrorOf({"--profile", ""}));
    EXPECT_EQ("option '--plugin-directory' needs a value; see --help",
              ErrorOf({"verify", "--plugin-directory="}));
    EXPECT_EQ("option '-o' needs a value; see --help", ErrorOf({"plot", "-o", ""}));
    EXPECT_EQ("verify takes files and directories, not ''; see --help", ErrorOf({"verify", "a", ""}));
    EXPECT_EQ("diff takes two profiles, the old one first; see --help", ErrorOf({"diff", "a", ""}));
}

TEST(AnalyzeOptionsTest, PluginsAreNamedAsReportsNameThem) {
    EXPECT_EQ("a\\x09b", Parse({"critical-chain", "a\tb"}).plugin);
    EXPECT_EQ("a\\x09b", Parse({"dot", "--around=a\tb"}).around);
    const WhatIf what_if = Parse({"simulate", "--without=a\tb", "--time=c\td=1"}).what_if;
    EXPECT_EQ("a\\x09b", what_if.without.at(0));
    EXPECT_EQ("c\\x09d", what_if.times.at(0).first);
}

TEST(AnalyzeOptionsTest, HelpEndsTheParsing) {
    EXPECT_EQ(AnalyzeCommand::kHelp, Parse({"--help", "--nonsense"}).command);
    EXPECT_EQ(AnalyzeCommand::kHelp, Parse({"-h"}).command);
    EXPECT_EQ(AnalyzeCommand::kHelp, Parse({"blame", "-h"}).command);
}

TEST(AnalyzeOptionsTest, AMisspeltWordIsAnsweredWithTheOneThatWasMeant) {
    EXPECT_EQ("unknown command 'blames'; did you mean 'blame'?", ErrorOf({"blames"}));
    EXPECT_EQ("invalid option '--thraeds=4'; did you mean '--threads'?", ErrorOf({"--thraeds=4"}));
    EXPECT_EQ("invalid option '--profle'; did you mean '--profile'?", ErrorOf({"--profle", "/log"}));
    EXPECT_EQ("invalid option '--json=1'; did you mean '--json'?", ErrorOf({"--json=1"}));
}

TEST(AnalyzeOptionsTest, WhatMakesNoSenseIsNamed) {
    EXPECT_EQ("unknown command 'halt'; see --help", ErrorOf({"halt"}));
    EXPECT_EQ("a word too many: 'time'; see --help", ErrorOf({"blame", "time"}));
    EXPECT_EQ("invalid option '--nonsense'; see --help", ErrorOf({"--nonsense"}));
    EXPECT_EQ("invalid option '-x'; see --help", ErrorOf({"-x"}));
    EXPECT_EQ("invalid option '-x'; see --help", ErrorOf({"-xy"}));
    EXPECT_EQ("option '--profile' needs a value; see --help", ErrorOf({"blame", "--profile"}));
}

}  // namespace
}  // namespace bootweave
