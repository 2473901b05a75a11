// SPDX-License-Identifier: Apache-2.0
#include "plugins/message_channel.h"

#include <thread>

#include <sys/socket.h>

#include "gmock/gmock.h"

namespace bootweave {
namespace {

using namespace std::string_literals;
using Status = ReceivedMessage::Status;

Deadline In(std::chrono::milliseconds time) {
    return std::chrono::steady_clock::now() + time;
}

class MessageChannelTest : public testing::Test {
  protected:
    MessageChannelTest() {
        int ends[2];
        EXPECT_EQ(0, ::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends));
        here_.Reset(ends[0]);
        there_.Reset(ends[1]);
    }

    void SendRaw(const std::string& bytes) const {
        EXPECT_EQ(static_cast<ssize_t>(bytes.size()),
                  ::send(there_.get(), bytes.data(), bytes.size(), MSG_NOSIGNAL));
    }

    UniqueFd here_;
    UniqueFd there_;
};

TEST_F(MessageChannelTest, MessagesArriveWholeAndApart) {
    EXPECT_TRUE(SendMessage(there_, "one"));
    EXPECT_TRUE(SendMessage(there_, ""));
    EXPECT_TRUE(SendMessage(there_, "\0three"s));
    for (const std::string& expected : {"one"s, ""s, "\0three"s}) {
        const ReceivedMessage message = ReceiveMessage(here_, 6);
        EXPECT_EQ(Status::kWhole, message.status);
        EXPECT_EQ(expected, message.bytes);
    }
}

TEST_F(MessageChannelTest, AMessageLargerThanTheSocketsBuffersArrives) {
    const std::string large(3'000'000, 'x');
    std::thread sender([&] { EXPECT_TRUE(SendMessage(there_, large)); });
    const ReceivedMessage message = ReceiveMessage(here_, large.size());
    sender.join();
    EXPECT_EQ(Status::kWhole, message.status);
    EXPECT_EQ(large, message.bytes);
}

TEST_F(MessageChannelTest, AMessageLargerThanAllowedIsNotTaken) {
    EXPECT_TRUE(SendMessage(there_, "four"));
    EXPECT_EQ(Status::kTooLong, ReceiveMessage(here_, 3).status);
}

TEST(MessageChannelEndTest, TheOtherSidesEndIsSeenAtEveryByte) {
    const std::string bytes = "\4\0\0\0four"s;
    for (std::size_t size = 0; size < bytes.size(); ++size) {
        int ends[2];
        ASSERT_EQ(0, ::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends));
        const UniqueFd here(ends[0]);
        UniqueFd there(ends[1]);
        EXPECT_EQ(static_cast<ssize_t>(size), ::send(there.get(), bytes.data(), size, MSG_NOSIGNAL));
        there.Reset();
        const ReceivedMessage message = ReceiveMessage(here, 100);
        EXPECT_EQ(Status::kClosed, message.status) << size;
        EXPECT_EQ("", message.bytes);
    }
}

TEST_F(MessageChannelTest, TheDeadlineEndsAWaitForAMessageOrForTheRestOfOne) {
    EXPECT_EQ(Status::kTimedOut, ReceiveMessage(here_, 100, In(std::chrono::milliseconds(20))).status);
    SendRaw("\4\0\0\0fo"s);
    EXPECT_EQ(Status::kTimedOut, ReceiveMessage(here_, 100, In(std::chrono::milliseconds(20))).status);
}

TEST_F(MessageChannelTest, WhatIsThereIsReadAfterTheDeadlineToo) {
    EXPECT_TRUE(SendMessage(there_, "late"));
    EXPECT_EQ("late", ReceiveMessage(here_, 100, In(std::chrono::milliseconds(-5))).bytes);
}

TEST_F(MessageChannelTest, SendingToNobodyFailsAndRaisesNoSignal) {
    here_.Reset();
    EXPECT_FALSE(SendMessage(there_, "x"));
}

TEST_F(MessageChannelTest, SendingToOneWhoDoesNotReadEndsAtTheDeadline) {
    EXPECT_FALSE(SendMessage(there_, std::string(3'000'000, 'x'), In(std::chrono::milliseconds(20))));
}

}  // namespace
}  // namespace bootweave
