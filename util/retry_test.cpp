// SPDX-License-Identifier: Apache-2.0
#include "util/retry.h"

#include <vector>

#include "gtest/gtest.h"

namespace bootweave {
namespace {

/// A call that fails with each of the error numbers in turn; 0 succeeds and returns 7.
struct Script {
    std::vector<int> errors;
    std::size_t calls = 0;

    long operator()() {
        const int error = errors.at(calls++);
        if (error != 0) {
            errno = error;
            return -1;
        }
        return 7;
    }
};

TEST(RetryTest, AnInterruptedCallIsMadeAgainUntilItSucceeds) {
    Script script{{EINTR, EINTR, EINTR, 0}};
    EXPECT_EQ(7, RetryOnEintr([&] { return script(); }));
    EXPECT_EQ(4U, script.calls);
}

TEST(RetryTest, AnyOtherErrorIsTheResult) {
    Script script{{EINTR, EBADF, 0}};
    EXPECT_EQ(-1, RetryOnEintr([&] { return script(); }));
    EXPECT_EQ(EBADF, errno);
    EXPECT_EQ(2U, script.calls);
}

TEST(RetryTest, ASuccessIsNotRepeatedWhateverErrnoSays) {
    Script script{{0, 0}};
    errno = EINTR;
    EXPECT_EQ(7, RetryOnEintr([&] { return script(); }));
    EXPECT_EQ(1U, script.calls);
}

}  // namespace
}  // namespace bootweave
