// SPDX-License-Identifier: Apache-2.0
#include "plugins/init_scripts.h"

#include "gmock/gmock.h"

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

}  // namespace
}  // namespace bootweave
