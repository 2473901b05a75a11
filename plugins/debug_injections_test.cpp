// SPDX-License-Identifier: Apache-2.0
#include "plugins/debug_injections.h"

#include <sys/stat.h>
#include <unistd.h>

#include "gmock/gmock.h"
#include "tests/support/fake_platform.h"
#include "tests/support/temp_dir.h"

namespace bootweave {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class DebugInjectionsTest : public testing::Test {
  protected:
    void SetUp() override { FakePlatform::Reset(); }

    std::vector<DebugInjection> Parse(const std::string& text) {
        return DebugInjections(dir_.WriteFile("debug.conf", text)).Load();
    }

    TempDir dir_;
};

TEST_F(DebugInjectionsTest, ALineIsNameRequiresProvidesCommand) {
    EXPECT_THAT(
        Parse("netdebug:network:netdebug-done:/bin/sh /tmp/dump-net.sh\n"),
        ElementsAre(DebugInjection{"netdebug", {"network"}, {"netdebug-done"}, "/bin/sh /tmp/dump-net.sh"}));
    EXPECT_THAT(FakePlatform::log(), IsEmpty());
}

TEST_F(DebugInjectionsTest, ListsAreSplitAtCommasAndTrimmed) {
    EXPECT_THAT(Parse("a: x , y,,z :p,q:true"),
                ElementsAre(DebugInjection{"a", {"x", "y", "z"}, {"p", "q"}, "true"}));
}

TEST_F(DebugInjectionsTest, QuotesAndBackslashesKeepACommaInAName) {
    EXPECT_THAT(Parse(R"(a:"x,1",'y,2':p\,3,q\"4:true)"),
                ElementsAre(DebugInjection{"a", {"x,1", "y,2"}, {"p,3", "q\"4"}, "true"}));
}

TEST_F(DebugInjectionsTest, BlanksAroundTheNameGoAndThoseInTheCommandStay) {
    EXPECT_THAT(Parse("  a b : x : y :  echo  two  "),
                ElementsAre(DebugInjection{"a b", {"x"}, {"y"}, "  echo  two"}));
}

TEST_F(DebugInjectionsTest, EmptyLinesAreSkippedAndCounted) {
    Parse("\n   \t\nbroken\n");
    EXPECT_THAT(FakePlatform::log(),
                ElementsAre(LogMessage{5, "ignoring malformed debug entry at line 3: broken\n"}));
}

TEST_F(DebugInjectionsTest, EmptyFieldsAreDroppedSoThatAnotherCountIsMalformed) {
    EXPECT_THAT(Parse("a:::true\n a:b:c:d:e \n:a:b:c:d:\n"),
                ElementsAre(DebugInjection{"a", {"b"}, {"c"}, "d"}));
    EXPECT_THAT(FakePlatform::log(),
                ElementsAre(LogMessage{5, "ignoring malformed debug entry at line 1: a:::true\n"},
                            LogMessage{5, "ignoring malformed debug entry at line 2: a:b:c:d:e\n"}));
}

TEST_F(DebugInjectionsTest, ABadEscapeIsMalformedAndTheNextLineIsRead) {
    EXPECT_THAT(Parse("a:x\\y:p:true\nb:x:p\\:true\nc:x:p:true"),
                ElementsAre(DebugInjection{"c", {"x"}, {"p"}, "true"}));
    EXPECT_THAT(FakePlatform::log(),
                ElementsAre(LogMessage{5, "ignoring malformed debug entry at line 1: a:x\\y:p:true\n"},
                            LogMessage{5, "ignoring malformed debug entry at line 2: b:x:p\\:true\n"}));
}

TEST_F(DebugInjectionsTest, AMissingFileADirectoryAndAFifoHaveNone) {
    EXPECT_THAT(DebugInjections(dir_.File("missing")).Load(), IsEmpty());
    EXPECT_THAT(DebugInjections(dir_.path()).Load(), IsEmpty());
    const std::string fifo = dir_.File("fifo");
    ASSERT_EQ(0, ::mkfifo(fifo.c_str(), 0600));
    EXPECT_THAT(DebugInjections(fifo).Load(), IsEmpty());
}

TEST_F(DebugInjectionsTest, MalformedLinesAreReportedEachTimeTheFileIsLoaded) {
    DebugInjections injections(dir_.WriteFile("debug.conf", "broken\n"));
    injections.Load();
    injections.Load();
    EXPECT_EQ(2U, FakePlatform::log().size());
}

TEST_F(DebugInjectionsTest, AFileThatChangedOrWentAwayIsReadAnew) {
    const std::string path = dir_.WriteFile("debug.conf", "a:x:y:true\n");
    DebugInjections injections(path);
    EXPECT_EQ(1U, injections.Load().size());
    dir_.WriteFile("debug.conf", "a:x:y:true\nb:x:y:true\n");
    EXPECT_EQ(2U, injections.Load().size());
    ::unlink(path.c_str());
    EXPECT_THAT(injections.Load(), IsEmpty());
    dir_.WriteFile("debug.conf", "c:x:y:true\n");
    EXPECT_EQ(1U, injections.Load().size());
}

TEST_F(DebugInjectionsTest, AQuietLoadKeepsItsComplaintsToItself) {
    DebugInjections injections(dir_.WriteFile("debug.conf", "broken\na:b:c:d\n"));
    EXPECT_THAT(injections.LoadQuietly(), ElementsAre(DebugInjection{"a", {"b"}, {"c"}, "d"}));
    EXPECT_THAT(injections.complaints(), ElementsAre("ignoring malformed debug entry at line 1: broken"));
    EXPECT_THAT(FakePlatform::log(), IsEmpty());
}

}  // namespace
}  // namespace bootweave
