// SPDX-License-Identifier: Apache-2.0
#include "analyze/run_graph.h"

#include <chrono>
#include <filesystem>
#include <set>

#include <sys/stat.h>

#include "gmock/gmock.h"
#include "tests/support/temp_dir.h"
#include "util/exception.h"

namespace bootweave {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class RunGraphTest : public testing::Test {
  protected:
    /// Writes a JSON plugin; `names` are elements of arrays.
    void Write(const std::string& file, const std::string& required, const std::string& provided) {
        static_cast<void>(dir_.WriteFile(file, R"({"metadata":{"version":1,"requires":[)" + required +
                                                   R"(],"provides":[)" + provided +
                                                   R"(]},"operations":{"start":[]}})"));
    }

    /// Adds plugins that ran.
    void Ran(const std::vector<std::string>& names) {
        for (const std::string& name : names) {
            block_.plugins.push_back({name, Instant(Duration(1)), Instant(Duration(2))});
        }
    }

    void Link(const std::string& object) {
        std::filesystem::create_symlink(std::string(BOOTWEAVE_NATIVE_OBJECTS) + "/" + object + ".so",
                                        dir_.File("lib" + object + ".so"));
    }

    RunGraph Read(const std::string& reader = BOOTWEAVE_NATIVE_READER) {
        return ReadRunGraph(block_, {.directory = dir_.path(),
                                     .native = {.program = reader, .patience = std::chrono::seconds(60)},
                                     .injections = dir_.File("debug.conf"),
                                     .lister = ""});
    }

    /// Of each plugin, those that it waited for.
    static std::vector<std::vector<std::size_t>> Providers(const RunGraph& graph) {
        std::vector<std::vector<std::size_t>> all;
        for (const RunPlugin& plugin : graph.plugins) {
            std::set<std::size_t> providers;
            for (const std::size_t barrier : plugin.required) {
                const std::vector<std::size_t>& own = graph.barriers[barrier].providers;
                providers.insert(own.begin(), own.end());
            }
            all.emplace_back(providers.begin(), providers.end());
        }
        return all;
    }

    /// The plugins' kinds, in one line.
    static std::string Kinds(const RunGraph& graph) {
        std::string kinds;
        for (const RunPlugin& plugin : graph.plugins) {
            kinds += std::string(PluginKindText(plugin.kind)) + " ";
        }
        return kinds;
    }

    /// Reads a block of daemons on a host with these init scripts, a line each.
    RunGraph ReadDaemons(const std::string& scripts) {
        return ReadDaemonsFrom(Lister("cat <<'end'\n" + scripts + "end\n"));
    }
    RunGraph ReadDaemonsFrom(const std::string& lister) {
        block_.kind = RunKind::kDaemon;
        return ReadRunGraph(block_, {.directory = "/no/such", .lister = lister});
    }
    std::string Lister(const std::string& script) {
        const std::string path = dir_.WriteFile("lister", "#!/bin/sh\n" + script);
        EXPECT_EQ(0, ::chmod(path.c_str(), 0700));
        return path;
    }

    TempDir dir_;
    ProfileBlock block_;
};

TEST_F(RunGraphTest, ProvidersAreThoseOfAllBarriersThatAPluginRequires) {
    Write("a.json", R"("nobody")", R"("x","y")");
    Write("b.json", R"("x")", R"("x")");  // waits for itself, as a boot has it
    Write("c.json", R"("y","x","y")", "");
    Ran({"c", "b", "a"});
    const RunGraph graph = Read();
    EXPECT_THAT(graph.warnings, IsEmpty());
    EXPECT_THAT(Providers(graph), ElementsAre(ElementsAre(1, 2), ElementsAre(1, 2), IsEmpty()));
}

TEST_F(RunGraphTest, NativePluginsTakePart) {
    Link("modern");  // requires "r"
    Write("a.json", "", R"("r")");
    Ran({"modern", "a"});
    const RunGraph graph = Read();
    EXPECT_THAT(graph.warnings, IsEmpty());
    EXPECT_THAT(Providers(graph), ElementsAre(ElementsAre(1), IsEmpty()));
}

TEST_F(RunGraphTest, WithoutTheReaderNativePluginsCostAWarningAndTheOthersCount) {
    Link("modern");
    Write("a.json", "", R"("x")");
    Write("b.json", R"("x")", "");
    Ran({"modern", "a", "b"});
    const RunGraph graph = Read("/no/such/reader");
    EXPECT_THAT(graph.warnings,
                ElementsAre("modern: what it waited for is unknown: plugin `" + dir_.File("libmodern.so") +
                            "' is invalid: metadata reader failed to spawn: No such file or directory"));
    EXPECT_THAT(Providers(graph), ElementsAre(IsEmpty(), IsEmpty(), ElementsAre(1)));
}

TEST_F(RunGraphTest, DebugInjectionsTakePart) {
    static_cast<void>(dir_.WriteFile("debug.conf", "slow:x:y:sleep 1\na:y:x:false\n"));
    Write("a.json", "", R"("x")");
    Write("b.json", R"("y")", "");
    Ran({"a", "b", "slow", "a"});
    const RunGraph graph = Read();
    EXPECT_THAT(graph.warnings, IsEmpty());
    EXPECT_THAT(Providers(graph), ElementsAre(IsEmpty(), ElementsAre(2), ElementsAre(0, 3), ElementsAre(2)));
}

TEST_F(RunGraphTest, AFileAndAnInjectionOfOneNameHaveALineEach) {
    static_cast<void>(dir_.WriteFile("debug.conf", "twin:y:z:true\n"));
    Write("twin.json", R"("x")", "");
    Ran({"twin", "twin"});
    const RunGraph graph = Read();
    EXPECT_THAT(graph.warnings, IsEmpty());
    EXPECT_EQ("json debug ", Kinds(graph));
    ASSERT_EQ(3U, graph.barriers.size());
    EXPECT_THAT(graph.barriers[0].requirers, ElementsAre(0));  // x
    EXPECT_THAT(graph.barriers[1].requirers, ElementsAre(1));  // y
}

TEST_F(RunGraphTest, OfSeveralInjectionsWithOneNameEachHasALine) {
    static_cast<void>(dir_.WriteFile("debug.conf", "twin:x:z:true\ntwin:y:z:true\n"));
    Ran({"twin", "twin"});
    const RunGraph graph = Read();
    EXPECT_THAT(graph.warnings, IsEmpty());
    EXPECT_THAT(graph.barriers[0].requirers, ElementsAre(0));
    EXPECT_THAT(graph.barriers[1].requirers, ElementsAre(1));
}

TEST_F(RunGraphTest, AFileThatNamesAnInjectionMakesItsLineTwice) {
    static_cast<void>(dir_.WriteFile("debug.conf", "twin:x:z:true\n"));
    static_cast<void>(dir_.WriteFile("twin.debug", ""));
    Ran({"twin", "twin"});
    const RunGraph graph = Read();
    EXPECT_THAT(graph.warnings, IsEmpty());
    EXPECT_EQ("debug debug ", Kinds(graph));
}

TEST_F(RunGraphTest, TwoFilesOfOneNameAreAGuess) {
    Write("twin.json", R"("x")", "");
    Write("libtwin.json", R"("y")", "");
    Ran({"twin", "twin"});
    const RunGraph graph = Read();
    EXPECT_THAT(graph.warnings, ElementsAre("twin: 2 plugins have this name now, and 2 had it in the run: "
                                            "which is which is a guess"));
    EXPECT_NE(graph.plugins[0].required, graph.plugins[1].required);
    Write("libtwin.json", R"("x")", "");
    EXPECT_THAT(Read().warnings, IsEmpty());  // whichever it is, it waited for the same
}

TEST_F(RunGraphTest, OneLineForAFileAndAnInjectionIsTakenForTheInjectionWithAWarning) {
    static_cast<void>(dir_.WriteFile("debug.conf", "twin:y:z:true\n"));
    Write("twin.json", R"("x")", "");
    Ran({"twin"});
    const RunGraph graph = Read();
    EXPECT_THAT(graph.warnings, ElementsAre("twin: 2 plugins have this name now, and 1 had it in the run: "
                                            "which is which is a guess"));
    EXPECT_EQ("debug ", Kinds(graph));
}

TEST_F(RunGraphTest, AFileThatCannotBeLoadedHasNoLineBesideItsTwin) {
    static_cast<void>(dir_.WriteFile("debug.conf", "twin:y:z:true\n"));
    static_cast<void>(dir_.WriteFile("twin.json", "{"));
    Ran({"twin"});
    const RunGraph graph = Read();
    EXPECT_THAT(graph.warnings, IsEmpty());
    EXPECT_EQ("debug ", Kinds(graph));
}

TEST_F(RunGraphTest, MoreLinesThanPluginsOfANameAreAGuess) {
    Write("twin.json", R"("x")", "");
    Ran({"twin", "twin"});
    const RunGraph graph = Read();
    EXPECT_THAT(graph.warnings, ElementsAre("twin: 1 plugin has this name now, and 2 had it in the run: "
                                            "which is which is a guess"));
    EXPECT_EQ("unknown json ", Kinds(graph));
}

TEST_F(RunGraphTest, NamesOfBarriersAreFields) {
    Write("a.json", "", R"("x\ty")");
    Ran({"a"});
    EXPECT_EQ("x\\x09y", Read().barriers.at(0).name);
}

TEST_F(RunGraphTest, AFileThatIsGoneOrBrokenCostsAWarning) {
    static_cast<void>(dir_.WriteFile("broken.json", "{"));
    Ran({"gone", "broken"});
    EXPECT_THAT(Read().warnings,
                ElementsAre("gone has no file in " + dir_.path() + ": what it waited for is unknown",
                            "broken: what it waited for is unknown: plugin `" + dir_.File("broken.json") +
                                "' is invalid: plugin root is not an object"));
}

TEST_F(RunGraphTest, APluginThatDidNotRunHasItsPlaceAndWarnsOfNothing) {
    static_cast<void>(dir_.WriteFile("broken.json", "{"));
    static_cast<void>(dir_.WriteFile("other.json", "{"));
    Write("a.json", R"("x")", "");
    for (const char* name : {"broken", "gone", "a"}) {
        block_.plugins.push_back({name, {}, {}});
    }
    const RunGraph graph = Read();
    EXPECT_THAT(graph.warnings, IsEmpty());
    EXPECT_EQ("unknown unknown json ", Kinds(graph));
    ASSERT_EQ(1U, graph.barriers.size());
    EXPECT_THAT(graph.barriers[0].requirers, ElementsAre(2));
}

TEST_F(RunGraphTest, BarriersHaveTheirNamesAndWhoMeetsThere) {
    Write("a.json", "", R"("x","n\u001bet","x")");
    Write("b.json", R"("x","x")", R"("x")");
    Ran({"b", "a"});
    const RunGraph graph = Read();
    ASSERT_EQ(2U, graph.barriers.size());
    EXPECT_EQ("n\\x1bet", graph.barriers[0].name);
    EXPECT_THAT(graph.barriers[0].providers, ElementsAre(1));
    EXPECT_THAT(graph.barriers[0].requirers, IsEmpty());
    EXPECT_EQ("x", graph.barriers[1].name);
    EXPECT_THAT(graph.barriers[1].providers, ElementsAre(0, 1));
    EXPECT_THAT(graph.barriers[1].requirers, ElementsAre(0));
    EXPECT_THAT(graph.plugins[0].required, ElementsAre(1));
    EXPECT_THAT(graph.plugins[1].provided, ElementsAre(1, 0));
}

TEST_F(RunGraphTest, EachPluginHasItsKind) {
    Link("modern");
    Write("a.json", "", "");
    static_cast<void>(dir_.WriteFile("debug.conf", "slow:x:y:sleep 1\n"));
    Ran({"modern", "a", "slow", "gone"});
    EXPECT_EQ("native json debug unknown ", Kinds(Read()));
}

TEST_F(RunGraphTest, AJsonPluginHasAsManyCommandsAsItsStartMethod) {
    static_cast<void>(dir_.WriteFile(
        "a.json",
        R"({"metadata":{"version":1,"requires":[],"provides":[]},"operations":{"start":["x","y"]}})"));
    Link("modern");
    Ran({"a", "modern"});
    const RunGraph graph = Read();
    EXPECT_EQ(2U, graph.plugins[0].commands);
    EXPECT_EQ(0U, graph.plugins[1].commands);
}

TEST_F(RunGraphTest, APluginIsFoundByItsNameAsTheLogHasIt) {
    Write("a\n.json", "", "");
    Ran({"a\\x0a"});
    EXPECT_EQ("json ", Kinds(Read()));
}

TEST_F(RunGraphTest, FilesThatAreNewerThanTheRunCostOneWarning) {
    Write("a.json", "", "");
    Ran({"a"});
    block_.end = Instant(Duration(2));
    EXPECT_THAT(
        Read().warnings,
        ElementsAre(dir_.File("a.json") + " is newer than the run: what waited for what may have changed"));
    static_cast<void>(dir_.WriteFile("debug.conf", "slow:x:y:sleep 1\n"));
    Ran({"slow"});
    EXPECT_THAT(Read().warnings,
                ElementsAre(dir_.File("a.json") +
                            " and 1 more are newer than the run: what waited for what may have changed"));
    block_.end = std::chrono::floor<Duration>(std::chrono::system_clock::now()) + std::chrono::hours(1);
    EXPECT_THAT(Read().warnings, IsEmpty());
}

TEST_F(RunGraphTest, DaemonsWaitForThoseOfTheNextLowerPriorityInTheRun) {
    Ran({"first", "also", "later", "last"});
    const RunGraph graph = ReadDaemons(
        "/etc/init.d/last 30\n/etc/init.d/first 5\n/etc/init.d/also 5\n/etc/init.d/other 7\n"
        "/etc/init.d/later 20\n");
    EXPECT_THAT(graph.warnings, IsEmpty());
    EXPECT_EQ("daemon daemon daemon daemon ", Kinds(graph));
    EXPECT_THAT(Providers(graph), ElementsAre(IsEmpty(), IsEmpty(), ElementsAre(0, 1), ElementsAre(2)));
    ASSERT_EQ(3U, graph.barriers.size());
    EXPECT_EQ("priority 5", graph.barriers[2].name);
}

TEST_F(RunGraphTest, DaemonsThatAreStoppedWaitForThoseOfTheNextHigherPriority) {
    Ran({"first", "later", "last"});
    block_.plugins[0].start += Duration(20);
    block_.plugins[1].start += Duration(10);
    const RunGraph graph = ReadDaemons("/etc/init.d/first 5\n/etc/init.d/later 20\n/etc/init.d/last 30\n");
    EXPECT_THAT(Providers(graph), ElementsAre(ElementsAre(1), ElementsAre(2), IsEmpty()));
}

TEST_F(RunGraphTest, ScriptsOfOneNameHaveALineEach) {
    Ran({"twin", "between", "twin"});
    const RunGraph graph = ReadDaemons("/etc/init.d/twin 5\n/etc/init.d/between 10\n/opt/init.d/twin 20\n");
    EXPECT_THAT(graph.warnings, IsEmpty());
    EXPECT_THAT(Providers(graph), ElementsAre(IsEmpty(), ElementsAre(0), ElementsAre(1)));
}

TEST_F(RunGraphTest, AnotherNumberOfScriptsOfOneNameIsAGuess) {
    Ran({"twin"});
    EXPECT_THAT(ReadDaemons("/etc/init.d/twin 5\n/opt/init.d/twin 20\n").warnings,
                ElementsAre("twin: 2 plugins have this name now, and 1 had it in the run: which is which is "
                            "a guess"));
    EXPECT_THAT(ReadDaemons("/etc/init.d/twin 5\n/opt/init.d/twin 5\n").warnings, IsEmpty());
    Ran({"twin"});
    EXPECT_THAT(ReadDaemons("/etc/init.d/twin 5\n").warnings,
                ElementsAre("twin: 1 plugin has this name now, and 2 had it in the run: which is which is a "
                            "guess"));
}

TEST_F(RunGraphTest, ADaemonWithoutAScriptCostsAWarning) {
    Ran({"gone"});
    const RunGraph graph = ReadDaemons("");
    EXPECT_THAT(graph.warnings,
                ElementsAre("gone is no init script any more: what it waited for is unknown"));
    EXPECT_THAT(Providers(graph), ElementsAre(IsEmpty()));
}

TEST_F(RunGraphTest, ADaemonThatDidNotRunCostsNone) {
    block_.plugins.push_back({"gone", Instant(), Instant()});
    EXPECT_THAT(ReadDaemons("").warnings, IsEmpty());
}

TEST_F(RunGraphTest, ADaemonThatDidNotRunMakesNoStopOfAStart) {
    Ran({"first", "last"});
    block_.plugins[1].start += Duration(10);
    block_.plugins.push_back({"left-out", Instant(), Instant()});
    const RunGraph graph = ReadDaemons("/etc/init.d/first 5\n/etc/init.d/last 20\n/etc/init.d/left-out 30\n");
    EXPECT_THAT(Providers(graph), ElementsAre(IsEmpty(), ElementsAre(0), ElementsAre(1)));
}

TEST_F(RunGraphTest, AListerThatFailsIsToldOnceAndNotForEachDaemon) {
    Ran({"one", "two"});
    EXPECT_THAT(ReadDaemonsFrom("/no/such").warnings,
                ElementsAre("cannot list the init scripts: /no/such: No such file or directory"));
    const std::string lister = Lister("echo /etc/init.d/one 5; exit 3\n");
    const RunGraph graph = ReadDaemonsFrom(lister);
    EXPECT_THAT(graph.warnings,
                ElementsAre("cannot list the init scripts: " + lister + ": exited with status 3"));
    EXPECT_EQ("daemon unknown ", Kinds(graph));
}

TEST_F(RunGraphTest, ADirectoryThatCannotBeReadIsAnError) {
    try {
        static_cast<void>(ReadRunGraph(block_, {.directory = "/no/such/directory"}));
        FAIL() << "nothing was thrown";
    } catch (const Exception& exception) {
        EXPECT_STREQ("cannot read /no/such/directory: No such file or directory", exception.what());
    }
}

}  // namespace
}  // namespace bootweave
