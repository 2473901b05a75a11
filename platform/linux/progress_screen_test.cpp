// SPDX-License-Identifier: Apache-2.0
#include "platform/progress_screen.h"

#include <cstdlib>
#include <string>

#include "gmock/gmock.h"

#include "platform/linux/notify_receiver.h"
#include "tests/support/temp_dir.h"

namespace {

using MantleCtl::System::KernelProgressScreenImpl;
using testing::ElementsAre;
using testing::IsEmpty;

class ProgressScreenTest : public testing::Test {
  protected:
    ProgressScreenTest() { ::setenv("NOTIFY_SOCKET", manager_.address().c_str(), 1); }
    ~ProgressScreenTest() override { ::unsetenv("NOTIFY_SOCKET"); }

    bootweave::TempDir dir_;
    bootweave::NotifyReceiver manager_{dir_.File("notify")};
    KernelProgressScreenImpl screen_;
};

TEST_F(ProgressScreenTest, BothTextsAreTheStatusOfTheService) {
    screen_.ProgressText("Activating Bootweave Plugins");
    screen_.StatusText("storage");
    EXPECT_THAT(manager_.Received(), ElementsAre("STATUS=Activating Bootweave Plugins", "STATUS=storage"));
}

TEST_F(ProgressScreenTest, AnEmptyStatusTextClearsNothing) {
    screen_.StatusText("");
    EXPECT_THAT(manager_.Received(), IsEmpty());
}

TEST_F(ProgressScreenTest, AStepHasNoText) {
    screen_.Step();
    EXPECT_THAT(manager_.Received(), IsEmpty());
}

TEST_F(ProgressScreenTest, ControlCharactersCannotForgeAnotherAssignment) {
    screen_.ProgressText("Starting service x\nREADY=1");
    screen_.StatusText(std::string("a\0b\x1B[2J", 7));
    EXPECT_THAT(manager_.Received(),
                ElementsAre("STATUS=Starting service x\\x0aREADY=1", "STATUS=a\\x00b\\x1b[2J"));
}

TEST_F(ProgressScreenTest, ALongTextIsCutBetweenCharacters) {
    screen_.StatusText(std::string(499, 'a') + "\xC3\xA4" + std::string(100000, 'b'));
    EXPECT_THAT(manager_.Received(), ElementsAre("STATUS=" + std::string(499, 'a')));
}

TEST_F(ProgressScreenTest, WithoutAManagerNothingIsSent) {
    ::unsetenv("NOTIFY_SOCKET");
    screen_.ProgressText("text");
    screen_.StatusText("text");
    EXPECT_THAT(manager_.Received(), IsEmpty());
}

}  // namespace
