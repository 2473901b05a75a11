// SPDX-License-Identifier: Apache-2.0
#include "plugins/init_scripts.h"

#include <cerrno>
#include <string>

#include <sys/types.h>

#include "gmock/gmock.h"
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

}  // namespace
}  // namespace bootweave
