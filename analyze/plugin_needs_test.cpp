// SPDX-License-Identifier: Apache-2.0
#include "analyze/plugin_needs.h"

#include <chrono>
#include <filesystem>

#include "gmock/gmock.h"
#include "tests/support/temp_dir.h"
#include "util/exception.h"

namespace bootweave {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class PluginNeedsTest : public testing::Test {
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

    PluginNeeds Read(const std::string& reader = BOOTWEAVE_NATIVE_READER) {
        return ReadPluginNeeds(block_, {.directory = dir_.path(),
                                        .native = {.program = reader, .patience = std::chrono::seconds(60)},
                                        .injections = dir_.File("debug.conf")});
    }

    TempDir dir_;
    ProfileBlock block_;
};

TEST_F(PluginNeedsTest, ProvidersAreThoseOfAllBarriersThatAPluginRequires) {
    Write("a.json", R"("nobody")", R"("x","y")");
    Write("b.json", R"("x")", R"("x")");  // waits for itself, as a boot has it
    Write("c.json", R"("y","x","y")", "");
    Ran({"c", "b", "a"});
    const PluginNeeds needs = Read();
    EXPECT_THAT(needs.warnings, IsEmpty());
    EXPECT_THAT(needs.providers, ElementsAre(ElementsAre(1, 2), ElementsAre(1, 2), IsEmpty()));
}

TEST_F(PluginNeedsTest, NativePluginsTakePart) {
    Link("modern");  // requires "r"
    Write("a.json", "", R"("r")");
    Ran({"modern", "a"});
    const PluginNeeds needs = Read();
    EXPECT_THAT(needs.warnings, IsEmpty());
    EXPECT_THAT(needs.providers, ElementsAre(ElementsAre(1), IsEmpty()));
}

TEST_F(PluginNeedsTest, WithoutTheReaderNativePluginsCostAWarningAndTheOthersCount) {
    Link("modern");
    Write("a.json", "", R"("x")");
    Write("b.json", R"("x")", "");
    Ran({"modern", "a", "b"});
    const PluginNeeds needs = Read("/no/such/reader");
    EXPECT_THAT(needs.warnings,
                ElementsAre("modern: what it waited for is unknown: plugin `" + dir_.File("libmodern.so") +
                            "' is invalid: metadata reader failed to spawn: No such file or directory"));
    EXPECT_THAT(needs.providers, ElementsAre(IsEmpty(), IsEmpty(), ElementsAre(1)));
}

TEST_F(PluginNeedsTest, DebugInjectionsTakePart) {
    static_cast<void>(dir_.WriteFile("debug.conf", "slow:x:y:sleep 1\na:y:x:false\n"));
    Write("a.json", "", R"("x")");
    Write("b.json", R"("y")", "");
    Ran({"a", "b", "slow"});
    const PluginNeeds needs = Read();
    EXPECT_THAT(needs.warnings, IsEmpty());
    EXPECT_THAT(needs.providers, ElementsAre(IsEmpty(), ElementsAre(2), ElementsAre(0)));
}

TEST_F(PluginNeedsTest, AFileThatIsGoneOrBrokenCostsAWarning) {
    static_cast<void>(dir_.WriteFile("broken.json", "{"));
    Ran({"gone", "broken"});
    EXPECT_THAT(Read().warnings,
                ElementsAre("gone has no file in " + dir_.path() + ": what it waited for is unknown",
                            "broken: what it waited for is unknown: plugin `" + dir_.File("broken.json") +
                                "' is invalid: plugin root is not an object"));
}

TEST_F(PluginNeedsTest, FilesOfPluginsThatDidNotRunAreNotLookedAt) {
    static_cast<void>(dir_.WriteFile("broken.json", "{"));
    static_cast<void>(dir_.WriteFile("other.json", "{"));
    block_.plugins.push_back({"broken", {}, {}});
    EXPECT_THAT(Read().warnings, IsEmpty());
}

TEST_F(PluginNeedsTest, ADirectoryThatCannotBeReadIsAnError) {
    try {
        static_cast<void>(ReadPluginNeeds(block_, {.directory = "/no/such/directory"}));
        FAIL() << "nothing was thrown";
    } catch (const Exception& exception) {
        EXPECT_STREQ("cannot read /no/such/directory: No such file or directory", exception.what());
    }
}

}  // namespace
}  // namespace bootweave
