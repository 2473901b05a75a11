// SPDX-License-Identifier: Apache-2.0
#include "platform/str.h"

#include <csignal>
#include <cstdlib>
#include <memory>
#include <string>

#include <sys/wait.h>
#include <unistd.h>

#include "platform/linux/log_test_support.h"

namespace bootweave {
namespace {

using Text = std::unique_ptr<char, void (*)(void*)>;

__attribute__((format(printf, 2, 3))) Text Format(std::size_t* length, const char* format, ...) {
    std::va_list arguments;
    va_start(arguments, format);
    Text text(Str_SafeVasprintf(length, format, arguments), std::free);
    va_end(arguments);
    return text;
}

class StrTest : public LogFixture {};

TEST_F(StrTest, FormatsIntoMemoryOfItsOwn) {
    std::size_t length = 99;
    EXPECT_STREQ("plugin net: 42%", Format(&length, "plugin %s: %d%%", "net", 42).get());
    EXPECT_EQ(15U, length);
    EXPECT_STREQ("", Format(&length, "%s", "").get());
    EXPECT_EQ(0U, length);
    EXPECT_STREQ("no length", Format(nullptr, "no %s", "length").get());
}

TEST_F(StrTest, HasNoLimitOfLength) {
    const std::string text(1'000'000, 'x');
    std::size_t length = 0;
    EXPECT_EQ(text, Format(&length, "%s", text.c_str()).get());
    EXPECT_EQ(text.size(), length);
}

TEST_F(StrTest, AFormatThatCannotBePrintedEndsTheProcessAndIsLogged) {
    LogDaemon daemon(socket_path());
    pid_t child = -1;
    const int status = RunInChild(
        [] {
            const wchar_t unprintable[] = {0x110000, 0};
            static_cast<void>(Format(nullptr, "%ls", unprintable));
            return 0;
        },
        &child);
    ASSERT_TRUE(WIFSIGNALED(status));
    EXPECT_EQ(SIGABRT, WTERMSIG(status));
    EXPECT_EQ("<26>" + Origin(child) +
                  "Cannot format a message \"%ls\": Invalid or incomplete multibyte or wide character",
              daemon.Receive());
}

}  // namespace
}  // namespace bootweave
