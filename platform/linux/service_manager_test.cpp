// SPDX-License-Identifier: Apache-2.0
#include "platform/linux/service_manager.h"

#include "gmock/gmock.h"

#include "platform/linux/notify_receiver.h"
#include "tests/support/temp_dir.h"

namespace bootweave {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

TEST(ServiceManagerTest, AStatusIsOneDatagramToASocketFile) {
    const TempDir dir;
    NotifyReceiver manager(dir.File("notify"));
    SendServiceStatus(manager.address().c_str(), "two words");
    EXPECT_THAT(manager.Received(), ElementsAre("STATUS=two words"));
}

TEST(ServiceManagerTest, AnAddressThatBeginsWithAnAtSignIsAnAbstractName) {
    const TempDir dir;
    NotifyReceiver manager("@" + dir.path());
    SendServiceStatus(manager.address().c_str(), "text");
    EXPECT_THAT(manager.Received(), ElementsAre("STATUS=text"));
}

TEST(ServiceManagerTest, WhatIsNoAddressIsNoManager) {
    const TempDir dir;
    NotifyReceiver manager(dir.File("notify"));
    const std::string relative = manager.address().substr(1);
    const std::string too_long = "/" + std::string(200, 'x');
    for (const char* address : {static_cast<const char*>(nullptr), "", "/", "@", "vsock:2:1",
                                relative.c_str(), too_long.c_str(), "/no/such/socket"}) {
        SendServiceStatus(address, "text");
    }
    EXPECT_THAT(manager.Received(), IsEmpty());
}

TEST(ServiceManagerTest, AManagerThatDoesNotReadMissesWhatDoesNotFitAndIsNotWaitedFor) {
    const TempDir dir;
    NotifyReceiver manager(dir.File("notify"));
    constexpr int kSent = 10000;  // more than any socket queues
    for (int i = 0; i < kSent; ++i) {
        SendServiceStatus(manager.address().c_str(), std::to_string(i));
    }
    const auto received = manager.Received();
    ASSERT_FALSE(received.empty());
    EXPECT_EQ("STATUS=0", received.front());
    EXPECT_LT(received.size(), kSent);
}

}  // namespace
}  // namespace bootweave
