// SPDX-License-Identifier: Apache-2.0
#include "analyze/verify_names.h"

#include <string>
#include <vector>

#include "gmock/gmock.h"

#include "analyze/verify_test_support.h"

namespace bootweave {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

VerifiedPlugin Plugin(const std::string& name, const std::string& file = "") {
    return {.name = name, .file = file.empty() ? name + ".json" : file};
}

VerifiedPlugin OnceOnly(const std::string& name, const std::string& version) {
    VerifiedPlugin plugin = Plugin(name);
    plugin.run_once = true;
    plugin.version = version;
    return plugin;
}

VerifiedPlugin Around(VerifiedPlugin plugin) {
    plugin.reported = false;
    return plugin;
}

Findings FlagFindings(const std::set<std::string>& required, const std::set<std::string>& disabling) {
    VerifiedPlugin plugin = Plugin("a");
    plugin.required_flags = required;
    plugin.disabling_flags = disabling;
    Findings findings;
    CheckFlags(plugin, findings);
    return findings;
}

Findings KeyFindings(const std::vector<VerifiedPlugin>& plugins) {
    Findings findings;
    CheckRunOnceKeys(plugins, findings);
    return findings;
}

Findings NameFindings(const std::vector<VerifiedPlugin>& plugins) {
    Findings findings;
    CheckNames(plugins, findings);
    return findings;
}

Finding Flag(Severity severity, const std::string& text) {
    return {"a.json", severity, FindingKind::kFlags, "a", text};
}

TEST(VerifyFlagsTest, FlagsThatLeaveAChoiceAreFine) {
    EXPECT_THAT(FlagFindings({"x", "y"}, {"z"}), IsEmpty());
}

TEST(VerifyFlagsTest, AFlagThatIsRequiredAndDisablingKeepsThePluginOut) {
    EXPECT_THAT(
        FlagFindings({"x", "y"}, {"y"}),
        ElementsAre(Flag(Severity::kError, "never runs: the flag 'y' is both required and disabling")));
}

TEST(VerifyFlagsTest, AFlagThatNoCommandLineCanGiveIsNamed) {
    EXPECT_THAT(
        FlagFindings({"", "x,y"}, {"p,q"}),
        ElementsAre(Flag(Severity::kError, "never runs: no command line can give the required flag ''"),
                    Flag(Severity::kError, "never runs: no command line can give the required flag 'x,y'"),
                    Flag(Severity::kWarning, "no command line can give the disabling flag 'p,q'")));
}

TEST(VerifyRunOnceTest, AKeyOfTheRightCharactersIsFine) {
    EXPECT_THAT(KeyFindings({OnceOnly("net", "1.0-2+b_3"), OnceOnly("net2", "")}), IsEmpty());
}

TEST(VerifyRunOnceTest, AKeyWithForeignCharactersIsNeverFoundAgain) {
    EXPECT_THAT(KeyFindings({OnceOnly("net", "1 0")}),
                ElementsAre(Finding{"net.json", Severity::kWarning, FindingKind::kRunOnce, "net",
                                    "runs on every boot: its run-once key 'net1 0' is recorded as 'net10'"}));
}

TEST(VerifyRunOnceTest, PluginsThatRunOnEveryBootHaveNoKey) {
    VerifiedPlugin plugin = OnceOnly("net", "1 0");
    plugin.run_once = false;
    EXPECT_THAT(KeyFindings({plugin}), IsEmpty());
}

TEST(VerifyRunOnceTest, OfTwoPluginsWithOneKeyOnlyOneRuns) {
    const Finding second{
        "net1.json", Severity::kError, FindingKind::kRunOnce, "net1",
        "left out once another plugin has run: its run-once key 'net10' is also recorded for net.json"};
    const Finding first{
        "net.json", Severity::kError, FindingKind::kRunOnce, "net",
        "left out once another plugin has run: its run-once key 'net10' is also recorded for net1.json"};
    EXPECT_THAT(KeyFindings({OnceOnly("net", "10"), OnceOnly("net1", "0")}), ElementsAre(second));
    EXPECT_THAT(KeyFindings({Around(OnceOnly("net", "10")), OnceOnly("net1", "0")}), ElementsAre(second));
    EXPECT_THAT(KeyFindings({OnceOnly("net", "10"), Around(OnceOnly("net1", "0"))}), ElementsAre(first));
}

TEST(VerifyRunOnceTest, AKeyThatIsNeverFoundAgainKeepsAnotherPluginOut) {
    const Finding odd{"net.json", Severity::kWarning, FindingKind::kRunOnce, "net",
                      "runs on every boot: its run-once key 'net1 0' is recorded as 'net10'"};
    const Finding kept_out{
        "net1.json", Severity::kError, FindingKind::kRunOnce, "net1",
        "left out once another plugin has run: its run-once key 'net10' is also recorded for net.json"};
    EXPECT_THAT(KeyFindings({OnceOnly("net", "1 0"), OnceOnly("net1", "0")}), ElementsAre(odd, kept_out));
    EXPECT_THAT(KeyFindings({OnceOnly("net1", "0"), OnceOnly("net", "1 0")}), ElementsAre(odd, kept_out));
    EXPECT_THAT(KeyFindings({Around(OnceOnly("net1", "0")), OnceOnly("net", "1 0")}), ElementsAre(odd));
}

TEST(VerifyRunOnceTest, OfTwoKeysThatAreNeverFoundAgainNeitherKeepsTheOtherOut) {
    EXPECT_EQ(2U, KeyFindings({OnceOnly("net", "1 0"), OnceOnly("net1", " 0")}).size());
}

TEST(VerifyNamesTest, DifferentNamesAreFine) {
    EXPECT_THAT(NameFindings({Plugin("a"), Plugin("b")}), IsEmpty());
}

TEST(VerifyNamesTest, ANameThatTwoFilesHaveIsSaidOfTheSecond) {
    EXPECT_THAT(NameFindings({Plugin("a", "a.json"), Plugin("b"), Plugin("a", "liba.so")}),
                ElementsAre(Finding{"liba.so", Severity::kWarning, FindingKind::kDuplicateName, "a",
                                    "its name 'a' is also that of a.json"}));
}

TEST(VerifyNamesTest, AnInitScriptMayBeCalledAsAPluginOfAnotherKind) {
    VerifiedPlugin script = Plugin("a", "/etc/init.d/a");
    script.is_script = true;
    EXPECT_THAT(NameFindings({Plugin("a"), script}), IsEmpty());
    EXPECT_THAT(NameFindings({script, Plugin("a")}), IsEmpty());
}

TEST(VerifyNamesTest, OfWhatOnlyStandsAroundNothingIsSaid) {
    const VerifiedPlugin json = Plugin("a", "a.json");
    const VerifiedPlugin native = Plugin("a", "liba.so");
    EXPECT_THAT(NameFindings({Around(json), Around(native)}), IsEmpty());
    EXPECT_THAT(NameFindings({json, Around(native)}),
                ElementsAre(Finding{"a.json", Severity::kWarning, FindingKind::kDuplicateName, "a",
                                    "its name 'a' is also that of liba.so"}));
}

TEST(VerifyNamesTest, AFindingAboutAnInjectionNamesIt) {
    VerifiedPlugin injection = Plugin("a", "debug.conf");
    injection.injected = true;
    EXPECT_THAT(NameFindings({Plugin("a"), injection}),
                ElementsAre(Finding{"debug.conf", Severity::kWarning, FindingKind::kDuplicateName, "a",
                                    "injection 'a': its name 'a' is also that of a.json"}));
}

}  // namespace
}  // namespace bootweave
