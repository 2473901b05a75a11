// SPDX-License-Identifier: Apache-2.0
#include "platform/system_alert.h"

#include <cerrno>
#include <string>

#include <unistd.h>

#include "platform/linux/log_test_support.h"

namespace bootweave {
namespace {

class SystemAlertTest : public LogFixture {
  protected:
    static void Raise(const std::string& message) {
        MantleCtl::System::SystemInfoImpl().SetSystemAlert(message);
    }
};

TEST_F(SystemAlertTest, GoesToBothLogsWithTheHighestUrgencyBeforeLoggingIsSetUp) {
    dir_.WriteFile("kmsg", "");
    LogDaemon daemon(socket_path());
    Raise("host is %d in danger\nnow\n");
    EXPECT_EQ("<25>" + Origin(::getpid()) + "host is %d in danger\\x0anow\n", daemon.Receive());
    EXPECT_EQ("<1>bootweave: host is %d in danger\\x0anow\n", ReadFile(kernel_log_path()));
}

TEST_F(SystemAlertTest, ReachesTheOneThatIsThere) {
    {
        LogDaemon daemon(socket_path());
        Raise("no kernel log");
        EXPECT_EQ("<25>" + Origin(::getpid()) + "no kernel log", daemon.Receive());
    }
    dir_.WriteFile("kmsg", "");
    Raise("no daemon");
    EXPECT_EQ("<1>bootweave: no daemon\n", ReadFile(kernel_log_path()));
}

TEST_F(SystemAlertTest, WithNeitherNothingHappens) {
    Raise("nobody hears");
    EXPECT_TRUE(dir_.Names().empty());
}

}  // namespace
}  // namespace bootweave
