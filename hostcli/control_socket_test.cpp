// SPDX-License-Identifier: Apache-2.0
#include "hostcli/control_socket.h"

#include <cerrno>
#include <csignal>
#include <string>
#include <thread>

#include <sys/socket.h>
#include <unistd.h>

#include "gmock/gmock.h"
#include "tests/support/system_calls.h"
#include "util/scope_guard.h"

namespace bootweave {
namespace {

/// Two ends that talk to each other.
class ControlSocketTest : public testing::Test {
  protected:
    void SetUp() override {
        SystemCalls::Reset();
        int ends[2];
        ASSERT_EQ(0, ::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends));
        near_.Reset(ends[0]);
        far_.Reset(ends[1]);
    }
    void TearDown() override { SystemCalls::Reset(); }

    UniqueFd near_;
    UniqueFd far_;
};

TEST_F(ControlSocketTest, TheAddressIsTheFixedPath) {
    const sockaddr_un address = ControlSocketAddress();
    EXPECT_EQ(AF_UNIX, address.sun_family);
    EXPECT_STREQ("/var/run/corvane/bootweaveExecutor.sock", address.sun_path);
}

TEST_F(ControlSocketTest, SocketsAreStreamsThatDoNotOutliveAnExec) {
    const UniqueFd socket = CreateControlSocket();
    ASSERT_TRUE(socket.valid());
    EXPECT_EQ(SOCK_STREAM | SOCK_CLOEXEC, SystemCalls::Seen().socket_type);
}

TEST_F(ControlSocketTest, RequestsThatStartWithStopInAnyCaseAreStopRequests) {
    for (const char* request : {"stop", "STOP", "sToP", "STOPxyz", "stop now", "stopwatch show"}) {
        EXPECT_TRUE(IsStopRequest(request)) << request;
    }
    for (const char* request : {"", "s", "sto", "st op", " stop", "sto\xFF", "nonstop"}) {
        EXPECT_FALSE(IsStopRequest(request)) << request;
    }
}

TEST_F(ControlSocketTest, OfARequestTheExecutorGets1023BytesAndNothingBehindANul) {
    EXPECT_EQ("a b", ReceivedRequest("a b"));
    EXPECT_EQ("", ReceivedRequest(""));
    EXPECT_EQ("a", ReceivedRequest(std::string("a\0b", 3)));
    EXPECT_EQ(std::string(1023, 'x'), ReceivedRequest(std::string(1023, 'x')));
    EXPECT_EQ(std::string(1023, 'x'), ReceivedRequest(std::string(1024, 'x')));
}

TEST_F(ControlSocketTest, SendAllSendsMoreThanTheSocketHolds) {
    const int small = 4096;
    ASSERT_EQ(0, ::setsockopt(near_.get(), SOL_SOCKET, SO_SNDBUF, &small, sizeof small));
    const std::string sent(1'000'000, 'x');
    std::string received;
    std::thread reader([&] {
        char buffer[8192];
        ssize_t count = 0;
        while ((count = ::read(far_.get(), buffer, sizeof buffer)) > 0) {
            received.append(buffer, static_cast<std::size_t>(count));
        }
    });
    EXPECT_TRUE(SendAll(near_, sent.data(), sent.size()));
    near_.Reset();
    reader.join();
    EXPECT_EQ(sent.size(), received.size());
    EXPECT_EQ(sent, received);
}

TEST_F(ControlSocketTest, ASendThatTookPartOfTheBytesGoesOn) {
    SystemCalls::LimitSend(3);
    EXPECT_TRUE(SendAll(near_, "abcdefgh", 8));
    char buffer[16] = {};
    EXPECT_EQ(8, ReceiveOnce(far_, buffer, sizeof buffer));
    EXPECT_STREQ("abcdefgh", buffer);
}

TEST_F(ControlSocketTest, InterruptedCallsAreRepeated) {
    SystemCalls::Fail(SystemCall::kSend, {.error = EINTR, .times = 3});
    SystemCalls::Fail(SystemCall::kRecv, {.error = EINTR, .times = 3});
    EXPECT_TRUE(SendAll(near_, "ab", 2));
    char buffer[8] = {};
    EXPECT_EQ(2, ReceiveOnce(far_, buffer, sizeof buffer));
    EXPECT_STREQ("ab", buffer);
}

TEST_F(ControlSocketTest, AFailedCallIsAFailureWithItsError) {
    SystemCalls::Fail(SystemCall::kSend, {.error = ENOBUFS});
    EXPECT_FALSE(SendAll(near_, "ab", 2));
    EXPECT_EQ(ENOBUFS, errno);
    SystemCalls::Fail(SystemCall::kRecv, {.error = EIO});
    char buffer[8];
    EXPECT_EQ(-1, ReceiveOnce(far_, buffer, sizeof buffer));
    EXPECT_EQ(EIO, errno);
}

TEST_F(ControlSocketTest, APeerThatHasGoneIsAFailureAndNoSignal) {
    const auto before = ::signal(SIGPIPE, SIG_DFL);  // would end this process
    const ScopeGuard restore([&] { ::signal(SIGPIPE, before); });
    far_.Reset();
    EXPECT_FALSE(SendAll(near_, "ab", 2));
    EXPECT_EQ(EPIPE, errno);
}

TEST_F(ControlSocketTest, TheEndOfTheStreamIsNoBytes) {
    far_.Reset();
    char buffer[8];
    EXPECT_EQ(0, ReceiveOnce(near_, buffer, sizeof buffer));
}

TEST_F(ControlSocketTest, NothingIsSentInOneCallToo) {
    SystemCalls::Fail(SystemCall::kSend, {.error = EIO});
    EXPECT_FALSE(SendAll(near_, "", 0));
    EXPECT_TRUE(SendAll(near_, "", 0));
}

}  // namespace
}  // namespace bootweave
