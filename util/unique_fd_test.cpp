// SPDX-License-Identifier: Apache-2.0
#include "util/unique_fd.h"

#include <type_traits>
#include <utility>

#include <fcntl.h>
#include <sys/resource.h>
#include <unistd.h>

#include "gtest/gtest.h"

namespace bootweave {
namespace {

static_assert(!std::is_convertible_v<UniqueFd, int>);
static_assert(!std::is_convertible_v<int, UniqueFd>);
static_assert(!std::is_copy_constructible_v<UniqueFd> && !std::is_copy_assignable_v<UniqueFd>);

int OpenNull() {
    return ::open("/dev/null", O_RDWR | O_CLOEXEC);
}

bool IsOpen(int fd) {
    return ::fcntl(fd, F_GETFD) != -1;
}

TEST(UniqueFdTest, OwnsNothingAtFirst) {
    const UniqueFd none;
    EXPECT_FALSE(none.valid());
    EXPECT_EQ(-1, none.get());
    EXPECT_FALSE(UniqueFd(-1).valid());
}

TEST(UniqueFdTest, DestructionCloses) {
    const int fd = OpenNull();
    {
        const UniqueFd owner(fd);
        EXPECT_TRUE(owner.valid());
        EXPECT_EQ(fd, owner.get());
        EXPECT_TRUE(IsOpen(fd));
    }
    EXPECT_FALSE(IsOpen(fd));
}

TEST(UniqueFdTest, MovingHandsTheDescriptorOverAndClosesTheOldOne) {
    const int one = OpenNull();
    const int two = OpenNull();
    UniqueFd first(one);
    UniqueFd second(two);
    second = std::move(first);
    EXPECT_FALSE(first.valid());
    EXPECT_EQ(one, second.get());
    EXPECT_TRUE(IsOpen(one));
    EXPECT_FALSE(IsOpen(two));
    const UniqueFd third(std::move(second));
    EXPECT_FALSE(second.valid());
    EXPECT_EQ(one, third.get());
}

TEST(UniqueFdTest, MovingOntoItselfKeepsTheDescriptor) {
    UniqueFd owner(OpenNull());
    UniqueFd& same = owner;
    owner = std::move(same);
    EXPECT_TRUE(owner.valid());
    EXPECT_TRUE(IsOpen(owner.get()));
}

TEST(UniqueFdTest, ReleaseGivesTheDescriptorAway) {
    UniqueFd owner(OpenNull());
    const int fd = owner.Release();
    EXPECT_FALSE(owner.valid());
    owner.Reset();
    EXPECT_TRUE(IsOpen(fd));
    ::close(fd);
}

TEST(UniqueFdTest, ResetClosesWhatItOwnedUnlessItIsTheSame) {
    const int one = OpenNull();
    UniqueFd owner(one);
    owner.Reset(one);
    EXPECT_TRUE(IsOpen(one));
    const int two = OpenNull();
    owner.Reset(two);
    EXPECT_FALSE(IsOpen(one));
    EXPECT_TRUE(IsOpen(two));
    owner.Reset();
    EXPECT_FALSE(IsOpen(two));
}

TEST(UniqueFdTest, ClosingKeepsErrno) {
    UniqueFd not_open(9999);
    errno = EXDEV;
    not_open.Reset();
    EXPECT_EQ(EXDEV, errno);
}

TEST(PipeTest, WhatIsWrittenAtOneEndIsReadAtTheOtherAndNeitherSurvivesExec) {
    const Pipe pipe = Pipe::Create();
    EXPECT_EQ(FD_CLOEXEC, ::fcntl(pipe.read_end.get(), F_GETFD));
    EXPECT_EQ(FD_CLOEXEC, ::fcntl(pipe.write_end.get(), F_GETFD));
    EXPECT_EQ(3, ::write(pipe.write_end.get(), "abc", 3));
    char text[4] = {};
    EXPECT_EQ(3, ::read(pipe.read_end.get(), text, sizeof text));
    EXPECT_STREQ("abc", text);
}

TEST(PipeTest, WithoutDescriptorsToBeHadBothEndsAreInvalid) {
    rlimit old{};
    ASSERT_EQ(0, ::getrlimit(RLIMIT_NOFILE, &old));
    const rlimit none{.rlim_cur = 0, .rlim_max = old.rlim_max};
    ASSERT_EQ(0, ::setrlimit(RLIMIT_NOFILE, &none));
    errno = 0;
    const Pipe pipe = Pipe::Create();
    const int error = errno;
    ASSERT_EQ(0, ::setrlimit(RLIMIT_NOFILE, &old));
    EXPECT_FALSE(pipe.read_end.valid());
    EXPECT_FALSE(pipe.write_end.valid());
    EXPECT_EQ(EMFILE, error);
}

}  // namespace
}  // namespace bootweave
