// SPDX-License-Identifier: Apache-2.0
#include "util/error_text.h"

#include <cerrno>
#include <cstring>

#include "gtest/gtest.h"

namespace bootweave {
namespace {

TEST(ErrorTextTest, IsWhatTheCLocaleSays) {
    EXPECT_EQ("No such file or directory", ErrorText(ENOENT));
    EXPECT_EQ("Connection reset by peer", ErrorText(ECONNRESET));
    EXPECT_EQ("Exec format error", ErrorText(ENOEXEC));
    EXPECT_EQ("Success", ErrorText(0));
    for (int error = 0; error < 200; ++error) {  // the process has the C locale
        EXPECT_EQ(std::strerror(error), ErrorText(error));
    }
}

TEST(ErrorTextTest, ANumberThatIsNoErrorIsNamed) {
    EXPECT_EQ("Unknown error 99999", ErrorText(99999));
    EXPECT_EQ("Unknown error -1", ErrorText(-1));
}

TEST(ErrorTextTest, LeavesErrnoAlone) {
    errno = EXDEV;
    static_cast<void>(ErrorText(ENOENT));
    static_cast<void>(ErrorText(99999));
    EXPECT_EQ(EXDEV, errno);
}

TEST(ErrorTextTest, TheLastErrorIsErrno) {
    errno = EACCES;
    const std::string text = LastErrorText();
    EXPECT_EQ(EACCES, errno);
    EXPECT_EQ("Permission denied", text);
}

}  // namespace
}  // namespace bootweave
