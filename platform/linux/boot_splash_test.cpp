// SPDX-License-Identifier: Apache-2.0
#include "platform/linux/boot_splash.h"

#include <cerrno>
#include <cstddef>

#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include "gmock/gmock.h"

#include "tests/support/child_report.h"
#include "tests/support/temp_dir.h"
#include "util/unique_fd.h"

namespace bootweave {
namespace {

using testing::ElementsAre;

class BootSplashTest : public testing::Test {
  protected:
    BootSplashTest() {
        splash_.socket = dir_.path();  // a name that nobody else has
        splash_.clients = {dir_.File("missing"), dir_.File("client")};
        EXPECT_EQ(0, ::mkfifo(dir_.File("said").c_str(), 0600));
        // The reader of the FIFO waits for the client, so that nothing here has to.
        Client("printf '<%s>' \"$@\" > " + dir_.File("said"));
    }

    void Client(const std::string& body) { dir_.WriteProgram("client", "#!/bin/sh\n" + body + "\n"); }

    /// Listens as the splash daemon does.
    void Listen(int backlog) {
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        splash_.socket.copy(address.sun_path + 1, sizeof address.sun_path - 1);
        const auto length =
            static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + 1 + splash_.socket.size());
        daemon_.Reset(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
        ASSERT_EQ(0, ::bind(daemon_.get(), reinterpret_cast<const sockaddr*>(&address), length));
        ASSERT_EQ(0, ::listen(daemon_.get(), backlog));
    }

    TempDir dir_;
    BootSplash splash_;
    UniqueFd daemon_;
};

TEST_F(BootSplashTest, TheFirstClientThatRunsGetsTheArguments) {
    Listen(5);
    splash_.Tell({"display-message", "--text=two words"});
    EXPECT_EQ("<display-message><--text=two words>", ReadFile(dir_.File("said")));
}

TEST_F(BootSplashTest, MessageStatusAndStepAreTheClientsOwnCommands) {
    Listen(5);
    splash_.ShowMessage("two words");
    EXPECT_EQ("<display-message><--text=two words>", ReadFile(dir_.File("said")));
    splash_.ShowStatus("storage");
    EXPECT_EQ("<update><--status=storage>", ReadFile(dir_.File("said")));
    splash_.ShowStep(12);
    EXPECT_EQ("<update><--status=bootweave-12>", ReadFile(dir_.File("said")));
}

TEST_F(BootSplashTest, NoClientRunsWhereNoDaemonListens) {
    Client("echo ran > " + dir_.File("ran"));
    splash_.Tell({"x"});
    Listen(5);
    daemon_.Reset();
    splash_.Tell({"x"});
    splash_.socket = std::string(200, 'x');
    splash_.Tell({"x"});
    EXPECT_THAT(dir_.Names(), ElementsAre("client", "said"));
}

TEST_F(BootSplashTest, AClientIsNotWaitedForAndLeavesNoZombie) {
    Listen(5);
    Client("read -r line < " + dir_.File("said"));  // waits for a line that is not written yet
    splash_.Tell({});
    EXPECT_EQ(-1, ::waitpid(-1, nullptr, WNOHANG));
    EXPECT_EQ(ECHILD, errno);
    const UniqueFd writer(::open(dir_.File("said").c_str(), O_WRONLY | O_CLOEXEC));  // it is there, reading
    EXPECT_EQ(1, ::write(writer.get(), "\n", 1));
}

TEST_F(BootSplashTest, ADaemonThatDoesNotAcceptIsLeftAloneOnceItsBacklogIsFull) {
    Listen(0);
    Client("exit 0");
    for (int i = 0; i < 20; ++i) {
        splash_.Tell({"x"});  // would hang in connect
    }
    SUCCEED();
}

TEST_F(BootSplashTest, AClientHasNoDescriptorButThreeOfTheNullDevice) {
    Listen(5);
    splash_.clients = {"/proc/self/exe"};
    splash_.Tell({"--role=report", "--out=" + dir_.File("said"), "--text=x"});
    const ChildReport report = ReadChildReport(dir_.File("said"));
    EXPECT_THAT(report.arguments, ElementsAre("--text=x"));
    EXPECT_THAT(report.descriptors, ElementsAre("0 /dev/null", "1 /dev/null", "2 /dev/null"));
    EXPECT_THAT(report.environment, ElementsAre());
}

}  // namespace
}  // namespace bootweave
