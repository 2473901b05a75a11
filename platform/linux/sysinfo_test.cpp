// SPDX-License-Identifier: Apache-2.0
#include "platform/sysinfo.h"

#include <csignal>
#include <string>

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include "gmock/gmock.h"
#include "platform/linux/log_internal.h"
#include "platform/linux/log_test_support.h"

namespace bootweave {
namespace {

using MantleCtl::Util::Sysinfo;

class SysinfoTest : public LogFixture {
  protected:
    static void Write(const std::string& text) {
        Sysinfo node(KSI_NODE_system_log);
        node.AddInput(text);
        node.Set();
    }

    /// What the exception says; "" when there is none.
    template <typename Body>
    static std::string Failure(Body body) {
        try {
            body();
        } catch (const Hostrig::Lib::HostrigException& error) {
            return error.what();
        }
        return "";
    }
};

TEST_F(SysinfoTest, EachSetAddsOneRecord) {
    dir_.WriteFile("kmsg", "before\n");
    Write("Activating Bootweave plugin net.");
    Write("Bootweave plugin net activated.\n");
    EXPECT_EQ(
        "before\n<5>bootweave: Activating Bootweave plugin net.\n<5>bootweave: Bootweave plugin net "
        "activated.\n",
        ReadFile(kernel_log_path()));
}

TEST_F(SysinfoTest, InputsAreOneRecordAndControlCharactersAreHarmless) {
    dir_.WriteFile("kmsg", "");
    Sysinfo node(KSI_NODE_system_log);
    node.AddInput("plugin x\n<0>forged");
    node.AddInput(std::string("\0\x1b", 2));
    node.AddInput("\n");
    node.Set();
    EXPECT_EQ("<5>bootweave: plugin x\\x0a<0>forged\\x00\\x1b\n", ReadFile(kernel_log_path()));
}

TEST_F(SysinfoTest, ALongRecordIsCutTo900Bytes) {
    dir_.WriteFile("kmsg", "");
    Write(std::string(5000, 'x'));
    EXPECT_EQ("<5>bootweave: " + std::string(882, 'x') + "...\n", ReadFile(kernel_log_path()));
}

TEST_F(SysinfoTest, TheNodeIsOpenOnlyDuringACall) {
    ASSERT_EQ(0, ::mkfifo(kernel_log_path().c_str(), 0600));
    const UniqueFd reader(::open(kernel_log_path().c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC));
    Write("one");
    Write("two");
    char text[1024];
    const ssize_t size = ::read(reader.get(), text, sizeof text);
    EXPECT_EQ("<5>bootweave: one\n<5>bootweave: two\n", std::string(text, static_cast<std::size_t>(size)));
    EXPECT_EQ(0, ::read(reader.get(), text, sizeof text)) << "a writer still has the node open";
}

TEST_F(SysinfoTest, AMissingNodeRaisesTheSystemsText) {
    EXPECT_EQ("No such file or directory", Failure([] { Write("x"); }));
    EXPECT_FALSE(dir_.Names().size() > 0) << "the node was made";
}

TEST_F(SysinfoTest, AFailedWriteRaisesTheSystemsText) {
    g_log_paths.kernel_log = "/dev/full";
    EXPECT_EQ("No space left on device", Failure([] { Write("x"); }));
}

TEST_F(SysinfoTest, ARecordTakenInPartIsAFailureAndIsNotContinued) {
    dir_.WriteFile("kmsg", "");
    const int status = RunInChild([] {
        ::signal(SIGXFSZ, SIG_IGN);
        const rlimit ten_bytes{.rlim_cur = 10, .rlim_max = 10};
        ::setrlimit(RLIMIT_FSIZE, &ten_bytes);
        return Failure([] { Write("x"); }) == "Input/output error" ? 0 : 1;
    });
    EXPECT_EQ(0, status);
    EXPECT_EQ("<5>bootwea", ReadFile(kernel_log_path()));
}

TEST_F(SysinfoTest, AnUnknownNodeRaises) {
    dir_.WriteFile("kmsg", "");
    EXPECT_EQ("No such device", Failure([] { Sysinfo(2).Set(); }));
    EXPECT_EQ("", ReadFile(kernel_log_path()));
}

}  // namespace
}  // namespace bootweave
