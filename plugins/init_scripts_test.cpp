// SPDX-License-Identifier: Apache-2.0
#include "plugins/init_scripts.h"

#include <cerrno>
#include <string>

#include <sys/stat.h>
#include <sys/types.h>

#include "gmock/gmock.h"
#include "tests/support/temp_dir.h"
#include "util/exception.h"

// The linker gives these names to the wrapped function.
// NOLINTBEGIN(bugprone-reserved-identifier)
extern "C" {
static bool g_fail_read = false;
ssize_t __real_read(int descriptor, void* data, std::size_t size);
ssize_t __wrap_read(int descriptor, void* data, std::size_t size);
ssize_t __wrap_read(int descriptor, void* data, std::size_t size) {
    if (g_fail_read) {
        errno = EIO;
        return -1;
    }
    return __real_read(descriptor, data, size);
}
}
// NOLINTEND(bugprone-reserved-identifier)

namespace bootweave {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;

TEST(InitScriptsTest, ScriptsComeByPriorityAndThenAsListed) {
    EXPECT_THAT(
        ParseInitScriptList("/etc/init.d/c 30\n/etc/init.d/b 20\n/etc/init.d/a 20\n/etc/init.d/d -1\n"),
        ElementsAre(Pair(-1, "/etc/init.d/d"), Pair(20, "/etc/init.d/b"), Pair(20, "/etc/init.d/a"),
                    Pair(30, "/etc/init.d/c")));
}

TEST(InitScriptsTest, BlanksSeparateAndWhatFollowsTheNumberIsIgnored) {
    EXPECT_THAT(ParseInitScriptList("  /a\t 5 on off\n/b 6"), ElementsAre(Pair(5, "/a"), Pair(6, "/b")));
}

TEST(InitScriptsTest, LinesWithoutAWordAndANumberAreSkipped) {
    EXPECT_THAT(ParseInitScriptList("\n/a\n/a x\n/a 99999999999\n \n7\n/b 1\n"), ElementsAre(Pair(1, "/b")));
}

TEST(InitScriptsTest, AListerThatIsNotThereListsNothing) {
    EXPECT_THAT(ListInitScripts("exec /nowhere/chkconfig -p 2>/dev/null"), IsEmpty());
}

TEST(InitScriptsTest, HowTheListerEndsDoesNotMatter) {
    EXPECT_THAT(ListInitScripts("echo /etc/init.d/a 5; exit 3"), ElementsAre(Pair(5, "/etc/init.d/a")));
    EXPECT_THAT(ListInitScripts("echo /etc/init.d/a 5; kill -9 $$"), ElementsAre(Pair(5, "/etc/init.d/a")));
}

TEST(InitScriptsTest, AListThatCannotBeReadIsAnException) {
    g_fail_read = true;
    std::string message;
    try {
        static_cast<void>(ListInitScripts("echo /etc/init.d/a 5"));
    } catch (const Exception& error) {
        message = error.what();
    }
    g_fail_read = false;
    EXPECT_EQ("Failed obtaining list of init.d scripts", message);
}

class RunInitScriptListerTest : public testing::Test {
  protected:
    /// What comes of a lister that is this script, with this mode.
    InitScriptListing Run(const std::string& script, mode_t mode = 0700) {
        program_ = dir_.WriteFile("lister", script);
        EXPECT_EQ(0, ::chmod(program_.c_str(), mode));
        return RunInitScriptLister(program_);
    }

    TempDir dir_;
    std::string program_;
};

TEST_F(RunInitScriptListerTest, AListerThatIsAskedRightAndEndsWellHasNoFailure) {
    for (const std::string first_line : {"#!/bin/sh\n", ""}) {
        const InitScriptListing listing = Run(first_line + "test \"$*\" = -p && echo /etc/init.d/a 5\n");
        EXPECT_THAT(listing.scripts, ElementsAre(Pair(5, "/etc/init.d/a")));
        EXPECT_EQ("", listing.failure);
    }
}

TEST_F(RunInitScriptListerTest, OneThatEndsBadlyHasListedWhatItHasListed) {
    InitScriptListing listing = Run("#!/bin/sh\necho /etc/init.d/a 5; exit 3\n");
    EXPECT_THAT(listing.scripts, ElementsAre(Pair(5, "/etc/init.d/a")));
    EXPECT_EQ(program_ + ": exited with status 3", listing.failure);
    listing = Run("#!/bin/sh\necho /etc/init.d/a 5; kill -9 $$\n");
    EXPECT_THAT(listing.scripts, ElementsAre(Pair(5, "/etc/init.d/a")));
    EXPECT_EQ(program_ + ": killed by signal 9", listing.failure);
}

TEST_F(RunInitScriptListerTest, OneThatCannotBeStartedIsToldWithTheSystemsReason) {
    EXPECT_EQ("/nowhere/chkconfig: No such file or directory",
              RunInitScriptLister("/nowhere/chkconfig").failure);
    EXPECT_EQ("lister: Permission denied", Run("#!/bin/sh\n", 0600).failure.substr(dir_.path().size() + 1));
    EXPECT_EQ(dir_.path() + ": Permission denied", RunInitScriptLister(dir_.path()).failure);
}

TEST_F(RunInitScriptListerTest, AListThatCannotBeReadIsToldToo) {
    const std::string lister = "#!/bin/sh\necho /etc/init.d/a 5\n";
    program_ = dir_.WriteFile("lister", lister);
    ASSERT_EQ(0, ::chmod(program_.c_str(), 0700));
    g_fail_read = true;
    const InitScriptListing listing = RunInitScriptLister(program_);
    g_fail_read = false;
    EXPECT_EQ(program_ + ": Input/output error", listing.failure);
}

}  // namespace
}  // namespace bootweave
