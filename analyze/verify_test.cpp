// SPDX-License-Identifier: Apache-2.0
#include "analyze/verify.h"

#include <filesystem>
#include <string>
#include <vector>

#include <sys/stat.h>
#include <unistd.h>

#include "gmock/gmock.h"

#include "analyze/verify_test_support.h"
#include "plugins/native_test_support.h"
#include "tests/support/temp_dir.h"

namespace bootweave {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr const char* kGood = R"({"metadata": {"version": 1, "requires": [], "provides": []},
                                  "operations": {"start": []}})";

std::string Plugin(const std::string& needed, const std::string& given, const std::string& commands = "") {
    return R"({"metadata": {"version": 1, "requires": [)" + needed + R"(], "provides": [)" + given +
           R"(]}, "operations": {"start": [)" + commands + "]}}";
}

class VerifyTest : public testing::Test {
  protected:
    VerifyTest() {
        std::filesystem::create_directory(dir_.File("plugins"));
        std::filesystem::create_directory(dir_.File("commands"));
        sources_.directory = dir_.File("plugins");
        sources_.injections = dir_.File("debug.conf");
        sources_.native.program = BOOTWEAVE_NATIVE_READER;
        sources_.command_directories = {dir_.File("commands")};
        sources_.user = ::geteuid();
    }

    /// Findings about these paths; about the host's own without any.
    Findings FindingsOf(const std::vector<std::string>& paths = {}) {
        sources_.paths = paths;
        return Verify(sources_).findings;
    }

    Finding Error(const std::string& name, FindingKind kind, const std::string& plugin,
                  const std::string& text) {
        return {dir_.File(name), Severity::kError, kind, plugin, text};
    }
    Finding Warning(const std::string& name, FindingKind kind, const std::string& plugin,
                    const std::string& text) {
        return {dir_.File(name), Severity::kWarning, kind, plugin, text};
    }

    TempDir dir_;
    VerifySources sources_;
};

TEST_F(VerifyTest, AHostWithGoodPluginsOfEveryKindHasNoFindings) {
    dir_.WriteProgram("commands/net.up", "#!/bin/sh\n");
    dir_.WriteFile("plugins/a.json", Plugin("", R"("x", "r1", "r2")", R"("net up --all")"));
    std::filesystem::copy_file(BOOTWEAVE_NATIVE_OBJECTS "/version3.so", dir_.File("plugins/libn.so"));
    dir_.WriteFile("plugins/b.json", Plugin(R"("p1", "p2", "z")", ""));
    dir_.WriteFile("debug.conf", "probe:x:z:true\n");
    const VerifyReport report = Verify(sources_);
    EXPECT_EQ(4U, report.plugins);
    EXPECT_THAT(report.findings, IsEmpty());
}

TEST_F(VerifyTest, AFileThatCannotBeLoadedHasTheTextOfTheLoader) {
    dir_.WriteFile("plugins/a.json", R"({"metadata": {}})");
    std::filesystem::copy_file(BOOTWEAVE_NATIVE_OBJECTS "/version5.so", dir_.File("plugins/b.so"));
    std::filesystem::create_symlink("nowhere", dir_.File("plugins/c.json"));
    const auto refused = [this](const std::string& name, const std::string& plugin,
                                const std::string& reason) {
        return Error(name, FindingKind::kNotLoaded, plugin,
                     "plugin `" + dir_.File(name) + "' is invalid: " + reason);
    };
    EXPECT_THAT(FindingsOf(),
                ElementsAre(refused("plugins/a.json", "a", "metadata is corrupt (unable to parse version)"),
                            refused("plugins/b.so", "b", "Unsupported API version"),
                            refused("plugins/c.json", "c", "no such file or directory")));
    EXPECT_EQ(0U, Verify(sources_).plugins);
}

TEST_F(VerifyTest, ANativePluginWithoutAnOperationForStartHasTheTextOfWhatRunsIt) {
    std::filesystem::copy_file(BOOTWEAVE_NATIVE_OBJECTS "/no_start.so", dir_.File("plugins/libn.so"));
    EXPECT_THAT(FindingsOf(),
                ElementsAre(Error("plugins/libn.so", FindingKind::kNoOperation, "n",
                                  dir_.File("plugins/libn.so") + ": has no operation for start")));
    EXPECT_EQ(1U, Verify(sources_).plugins);
}

TEST_F(VerifyTest, AFileThatIsNoJsonAlsoHasThePlace) {
    dir_.WriteFile("plugins/a.json", "{\n  \"metadata\"\n}\n");
    EXPECT_THAT(
        FindingsOf(),
        ElementsAre(
            Error("plugins/a.json", FindingKind::kNotLoaded, "a",
                  "plugin `" + dir_.File("plugins/a.json") + "' is invalid: plugin root is not an object"),
            Error("plugins/a.json", FindingKind::kSyntax, "a", "line 3, column 1: syntax error")));
}

TEST_F(VerifyTest, AFileOfAnotherTypeIsIgnoredAsABootDoes) {
    dir_.WriteFile("plugins/README", "");
    dir_.WriteFile("plugins/a.json.bak", "");
    EXPECT_THAT(FindingsOf(), ElementsAre(Warning("plugins/README", FindingKind::kIgnored, "",
                                                  "ignoring plugin 'README' of unspecified type..."),
                                          Warning("plugins/a.json.bak", FindingKind::kIgnored, "",
                                                  "ignoring plugin 'a.json.bak' of unknown type (bak)...")));
}

TEST_F(VerifyTest, AScriptThatIsGivenByItselfIsAnInitScript) {
    const std::string good = dir_.WriteProgram("good", "#!/bin/sh\n");
    const std::string bad = dir_.WriteFile("bad", "#!/bin/sh\n");
    EXPECT_THAT(FindingsOf({good, bad}),
                ElementsAre(Error("bad", FindingKind::kInitScript, "bad", "not executable")));
    EXPECT_EQ(2U, Verify(sources_).plugins);
    dir_.WriteProgram("plugins/good", "#!/bin/sh\n");
    EXPECT_THAT(FindingsOf(), ElementsAre(Warning("plugins/good", FindingKind::kIgnored, "",
                                                  "ignoring plugin 'good' of unspecified type...")));
}

TEST_F(VerifyTest, EachCheckIsMade) {
    dir_.WriteFile("plugins/a.json", R"({"metadata": {"version": 3, "requires": ["x"], "provides": ["y"],
        "required_flags": ["f"], "disabling_flags": ["f"], "run_once": true, "plugin_version": "1 0",
        "comment": ""}, "operations": {"start": ["net up"], "apply_host_profile": ["net down"]}})");
    dir_.WriteFile("plugins/b.json", Plugin(R"("y", "v")", R"("x", "w")"));
    dir_.WriteFile("plugins/liba.json", kGood);
    std::vector<FindingKind> kinds;
    for (const Finding& finding : FindingsOf()) {
        kinds.push_back(finding.kind);
    }
    using enum FindingKind;
    EXPECT_THAT(kinds, ElementsAre(kUnknownKey, kFlags, kRunOnce, kCommand, kCommand, kCircle, kNotProvided,
                                   kNotRequired, kDuplicateName));
}

TEST_F(VerifyTest, AMalformedDebugLineHasTheTextOfTheLoader) {
    dir_.WriteFile("debug.conf", "a:x:x:true\nb:c\n");
    EXPECT_THAT(FindingsOf(), ElementsAre(Error("debug.conf", FindingKind::kDebugLine, "",
                                                "ignoring malformed debug entry at line 2: b:c"),
                                          Error("debug.conf", FindingKind::kCircle, "a",
                                                "injection 'a': plugins wait for each other: a -> a")));
}

TEST_F(VerifyTest, AFileThatNamesAnInjectionMakesItRunTwiceOrDoesNothing) {
    dir_.WriteFile("debug.conf", "probe:x:y:true\n");
    dir_.WriteFile("plugins/a.json", Plugin(R"("y")", ""));
    dir_.WriteFile("plugins/b.json", Plugin("", R"("x")"));
    dir_.WriteFile("plugins/probe.debug", "");
    dir_.WriteFile("plugins/prob.debug", "");
    EXPECT_THAT(FindingsOf(), ElementsAre(Warning("plugins/prob.debug", FindingKind::kDebugFile, "prob",
                                                  "there is no debug injection 'prob'"),
                                          Warning("plugins/probe.debug", FindingKind::kDebugFile, "probe",
                                                  "makes the debug injection 'probe' run twice")));
}

TEST_F(VerifyTest, WhatOthersMayWriteIsNamedWithItsMode) {
    dir_.WriteFile("plugins/a.json", kGood);
    dir_.WriteFile("plugins/b.json", kGood);
    dir_.WriteFile("debug.conf", "");
    ASSERT_EQ(0, ::chmod(dir_.File("plugins").c_str(), 01777));
    ASSERT_EQ(0, ::chmod(dir_.File("plugins/a.json").c_str(), 0664));
    ASSERT_EQ(0, ::chmod(dir_.File("debug.conf").c_str(), 0646));
    EXPECT_THAT(
        FindingsOf(),
        ElementsAre(
            Warning("debug.conf", FindingKind::kWritable, "", "others may change it (mode 0646)"),
            Warning("plugins", FindingKind::kWritable, "", "others may change it (mode 1777)"),
            Warning("plugins/a.json", FindingKind::kWritable, "a", "others may change it (mode 0664)")));
}

TEST_F(VerifyTest, OnAHostTheDirectoriesOfCommandsAndInjectionsAreLookedAtToo) {
    std::filesystem::create_directory(dir_.File("etc"));
    sources_.injections = dir_.WriteFile("etc/debug.conf", "");
    const std::string plugin = dir_.WriteFile("plugins/a.json", kGood);
    EXPECT_THAT(FindingsOf(), IsEmpty());
    ASSERT_EQ(0, ::chmod(dir_.File("commands").c_str(), 0777));
    ASSERT_EQ(0, ::chmod(dir_.File("etc").c_str(), 0775));
    EXPECT_THAT(
        FindingsOf(),
        ElementsAre(Warning("commands", FindingKind::kWritable, "", "others may change it (mode 0777)"),
                    Warning("etc", FindingKind::kWritable, "", "others may change it (mode 0775)")));
    EXPECT_THAT(FindingsOf({plugin}), IsEmpty());
}

TEST_F(VerifyTest, WhatSomebodyElseOwnsIsNamedUnlessItIsVerifiedByItsOwner) {
    if (::geteuid() != 0) {
        GTEST_SKIP() << "only root can give files away";
    }
    ASSERT_EQ(0, ::chown(dir_.WriteFile("plugins/a.json", kGood).c_str(), 4711, 0));
    EXPECT_THAT(FindingsOf(), ElementsAre(Warning("plugins/a.json", FindingKind::kWritable, "a",
                                                  "user 4711 may change it, who owns it")));
    sources_.user = 4711;
    EXPECT_THAT(FindingsOf(), IsEmpty());
}

TEST_F(VerifyTest, WhatIsNotThereCannotBeRead) {
    sources_.directory = dir_.File("missing");
    EXPECT_THAT(FindingsOf(), ElementsAre(Error("missing", FindingKind::kUnreadable, "",
                                                "cannot read: No such file or directory")));
    EXPECT_THAT(FindingsOf({dir_.File("no.json")}),
                ElementsAre(Error("no.json", FindingKind::kUnreadable, "",
                                  "cannot read: No such file or directory")));
}

TEST_F(VerifyTest, AFileIsVerifiedAsAnAdditionToTheHostsOwn) {
    dir_.WriteFile("plugins/bad.json", "{");
    dir_.WriteFile("plugins/a.json", Plugin("", R"("x")", R"("unknown")"));
    dir_.WriteFile("debug.conf", "probe:x:y:true\nmalformed\n");
    const std::string added = dir_.WriteFile("b.json", Plugin(R"("x", "y")", ""));
    EXPECT_THAT(FindingsOf({added}), IsEmpty());
    EXPECT_EQ(1U, Verify(sources_).plugins);
}

TEST_F(VerifyTest, WhatIsNamedTwiceIsVerifiedOnce) {
    const std::string odd = dir_.WriteFile("plugins/odd.json", "[]");
    const std::string good = dir_.WriteFile("plugins/good.json", kGood);
    const std::string injections = dir_.WriteFile("debug.conf", "a:b:c:true\n");
    const std::string plugins = dir_.File("plugins");
    const Findings once = FindingsOf({plugins});
    ASSERT_FALSE(once.empty());
    EXPECT_EQ(once, FindingsOf({plugins, plugins + "/", plugins + "/../plugins", odd, good}));
    EXPECT_THAT(FindingsOf({good, plugins + "/../plugins/good.json", good}), IsEmpty());
    EXPECT_EQ(1U, Verify(sources_).plugins);
    sources_.directory = dir_.File("none");
    EXPECT_EQ(FindingsOf({injections}), FindingsOf({injections, injections}));
    EXPECT_EQ(1U, Verify(sources_).plugins);
}

TEST_F(VerifyTest, AFileTakesThePlaceOfTheHostsOwnOfThatName) {
    dir_.WriteFile("plugins/a.json", Plugin(R"("x")", R"("x")"));
    dir_.WriteFile("debug.conf", "probe:x:y:true\n");
    std::filesystem::create_directory(dir_.File("new"));
    const std::string plugin = dir_.WriteFile("new/a.json", Plugin("", R"("x")"));
    EXPECT_THAT(FindingsOf({plugin}), IsEmpty());
    const std::string injections = dir_.WriteFile("new/debug.conf", "");
    EXPECT_THAT(FindingsOf({plugin, injections}),
                ElementsAre(Warning("new/a.json", FindingKind::kNotRequired, "a",
                                    "nobody requires the barrier 'x' that it provides")));
}

TEST_F(VerifyTest, WithoutAHostNobodyIsMissed) {
    sources_.directory = dir_.File("missing");
    const std::string one = dir_.WriteFile("one.json", Plugin(R"("a")", R"("b")"));
    const std::string two = dir_.WriteFile("two.json", Plugin(R"("b")", R"("a")"));
    EXPECT_THAT(FindingsOf({one}), IsEmpty());
    EXPECT_THAT(FindingsOf({one, two}), ElementsAre(Error("one.json", FindingKind::kCircle, "one",
                                                          "plugins wait for each other: one -> two -> one")));
}

TEST_F(VerifyTest, AHostsDirectoryThatIsThereAndCannotBeReadIsNamed) {
    std::filesystem::create_directory_symlink("loop", dir_.File("loop"));
    sources_.directory = dir_.File("loop");
    EXPECT_THAT(
        FindingsOf({dir_.WriteFile("one.json", Plugin(R"("a")", ""))}),
        ElementsAre(Warning("loop", FindingKind::kUnreadable, "",
                            "cannot read: Too many levels of symbolic links: what it holds is unknown")));
}

TEST_F(VerifyTest, ADirectoryIsAWholeHost) {
    dir_.WriteFile("plugins/a.json", Plugin("", R"("x")"));
    std::filesystem::create_directory(dir_.File("other"));
    dir_.WriteFile("other/b.json", Plugin(R"("x")", ""));
    EXPECT_THAT(FindingsOf({dir_.File("other")}),
                ElementsAre(Warning("other/b.json", FindingKind::kNotProvided, "b",
                                    "nobody provides the barrier 'x' that it requires")));
    EXPECT_THAT(FindingsOf({dir_.File("other"), dir_.File("plugins/a.json")}), IsEmpty());
}

TEST_F(VerifyTest, FindingsNameFilesAsTheyWereGiven) {
    const std::string directory = dir_.File("plugins") + "/";
    dir_.WriteFile("plugins/README", "");
    const Findings findings = FindingsOf({directory});
    ASSERT_EQ(1U, findings.size());
    EXPECT_EQ(directory + "README", findings[0].file);
}

TEST_F(VerifyTest, TheHostsOwnIsWhatABootReads) {
    const VerifySources sources;
    EXPECT_EQ("/usr/libexec/bootweave/plugins", sources.directory);
    EXPECT_EQ("/etc/corvane/bootweave/debug.conf", sources.injections);
    EXPECT_EQ("/usr/lib/corvane/bootweave/nativeReader", sources.native.program);
    EXPECT_EQ("/usr/lib/corvane/hostcli/ext", sources.command_directories.back());
    EXPECT_EQ(4U, sources.command_directories.size());
    EXPECT_EQ(0U, sources.user);
}

TEST(FindingTest, EachKindHasItsName) {
    std::vector<std::string> names;
    for (int kind = 0; kind <= static_cast<int>(FindingKind::kNoOperation); ++kind) {
        names.emplace_back(FindingKindText(static_cast<FindingKind>(kind)));
    }
    EXPECT_THAT(names, ElementsAre("unreadable", "not-loaded", "syntax", "ignored", "unknown-key",
                                   "unread-key", "repeated-key", "flags", "run-once", "command", "writable",
                                   "duplicate-name", "debug-line", "debug-file", "cycle", "not-provided",
                                   "not-required", "init-script", "no-operation"));
}

}  // namespace
}  // namespace bootweave
