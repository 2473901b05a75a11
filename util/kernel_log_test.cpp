// SPDX-License-Identifier: Apache-2.0
#include "util/kernel_log.h"

#include <string>

#include "gmock/gmock.h"
#include "tests/support/fake_platform.h"

namespace bootweave {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class KernelLogTest : public testing::Test {
  protected:
    void SetUp() override { FakePlatform::Reset(); }
};

TEST_F(KernelLogTest, EachCallIsOneRecord) {
    KernelLog("Activating Bootweave plugin %s.", "net");
    KernelLog("Bootweave plugin %s activation failed: %s", "net", "100% wrong");
    EXPECT_THAT(FakePlatform::kernel_log(),
                ElementsAre("Activating Bootweave plugin net.",
                            "Bootweave plugin net activation failed: 100% wrong"));
    EXPECT_THAT(FakePlatform::syslog(), IsEmpty());
    EXPECT_THAT(FakePlatform::log(), IsEmpty());
}

TEST_F(KernelLogTest, ALongTextIsHandedOnWhole) {
    const std::string text(100'000, 'x');
    KernelLog("%s", text.c_str());
    EXPECT_THAT(FakePlatform::kernel_log(), ElementsAre(text));
}

TEST_F(KernelLogTest, AFailureOfTheHostGoesToTheSystemLogWithTheMessage) {
    FakePlatform::FailKernelLog(FakePlatform::KernelLogFailure::kHostException, "No space left on device");
    KernelLog("Activating Bootweave plugin %s.", "%s");
    EXPECT_THAT(FakePlatform::kernel_log(), IsEmpty());
    EXPECT_THAT(FakePlatform::syslog(),
                ElementsAre(LogMessage{3, "Exception occurred while logging msg: No space left on device"},
                            LogMessage{3, "Activating Bootweave plugin %s."}));
    EXPECT_THAT(FakePlatform::log(), IsEmpty());
}

TEST_F(KernelLogTest, AnyOtherFailureGoesToTheSystemLogWithTheMessage) {
    FakePlatform::FailKernelLog(FakePlatform::KernelLogFailure::kOther, "unsaid");
    KernelLog("the message %d", 7);
    EXPECT_THAT(FakePlatform::kernel_log(), IsEmpty());
    EXPECT_THAT(FakePlatform::syslog(), ElementsAre(LogMessage{3, "Unexpected exception while logging msg"},
                                                    LogMessage{3, "the message 7"}));
    EXPECT_THAT(FakePlatform::log(), IsEmpty());
}

TEST_F(KernelLogTest, AFailureIsNotRemembered) {
    FakePlatform::FailKernelLog(FakePlatform::KernelLogFailure::kHostException, "x");
    KernelLog("one");
    KernelLog("two");
    EXPECT_THAT(FakePlatform::kernel_log(), ElementsAre("two"));
}

}  // namespace
}  // namespace bootweave
