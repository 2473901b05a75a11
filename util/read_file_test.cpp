// SPDX-License-Identifier: Apache-2.0
#include "util/read_file.h"

#include <cstdint>
#include <filesystem>

#include <string>

#include <sys/stat.h>
#include <unistd.h>

#include "gtest/gtest.h"
#include "tests/support/temp_dir.h"

namespace bootweave {
namespace {

TEST(ReadFileTest, ReturnsTheWholeContent) {
    const TempDir dir;
    const std::string binary("a\0b\r\n\xFF", 6);
    std::string large;
    while (large.size() < 3'000'000) {
        large += "0123456789";
    }
    EXPECT_EQ("", ReadRegularFile(dir.WriteFile("empty", "")));
    EXPECT_EQ("text\n", ReadRegularFile(dir.WriteFile("text", "text\n")));
    EXPECT_EQ(binary, ReadRegularFile(dir.WriteFile("binary", binary)));
    EXPECT_TRUE(large == ReadRegularFile(dir.WriteFile("large", large)));
}

TEST(ReadFileTest, FollowsLinks) {
    const TempDir dir;
    dir.WriteFile("text", "text\n");
    ASSERT_EQ(0, ::symlink("text", dir.File("link").c_str()));
    EXPECT_EQ("text\n", ReadRegularFile(dir.File("link")));
}

TEST(ReadFileTest, AFileThatIsNotThereIsNothing) {
    const TempDir dir;
    ASSERT_EQ(0, ::symlink("nowhere", dir.File("dangling").c_str()));
    ASSERT_EQ(0, ::symlink("loop", dir.File("loop").c_str()));
    EXPECT_EQ(std::nullopt, ReadRegularFile(dir.File("missing")));
    EXPECT_EQ(std::nullopt, ReadRegularFile(dir.File("missing/file")));
    EXPECT_EQ(std::nullopt, ReadRegularFile(dir.File("dangling")));
    EXPECT_EQ(std::nullopt, ReadRegularFile(dir.File("loop")));
    EXPECT_EQ(std::nullopt, ReadRegularFile(""));
    EXPECT_EQ(std::nullopt, ReadRegularFile(std::string(5000, 'x')));
}

TEST(ReadFileTest, AnythingButAFileIsNothingAndHoldsUpNobody) {
    const TempDir dir;
    ASSERT_EQ(0, ::mkfifo(dir.File("fifo").c_str(), 0600));
    ASSERT_EQ(0, ::symlink("fifo", dir.File("link").c_str()));
    EXPECT_EQ(std::nullopt, ReadRegularFile(dir.File("fifo")));
    EXPECT_EQ(std::nullopt, ReadRegularFile(dir.File("link")));
    EXPECT_EQ(std::nullopt, ReadRegularFile(dir.path()));
    EXPECT_EQ(std::nullopt, ReadRegularFile("/dev/zero"));
    EXPECT_EQ(std::nullopt, ReadRegularFile("/dev/null"));
}

TEST(ReadFileTest, AFileThatIsLongerThanItSaysIsReadWhole) {
    const auto content = ReadRegularFile("/proc/self/status");  // says it is empty
    ASSERT_TRUE(content.has_value());
    EXPECT_NE(std::string::npos, content->find("\nPid:\t" + std::to_string(::getpid()) + "\n"));
    EXPECT_EQ('\n', content->back());
}

TEST(ReadFileTest, AFileOverTheBoundIsNotRead) {
    const TempDir dir;
    const std::string path = dir.WriteFile("large", "x");
    std::filesystem::resize_file(path, std::uintmax_t{64} * 1024 * 1024 + 1);  // a hole: no memory, no disk
    EXPECT_EQ(std::nullopt, ReadRegularFile(path));
    std::filesystem::resize_file(path, std::uintmax_t{1} << 42U);
    EXPECT_EQ(std::nullopt, ReadRegularFile(path));
}

}  // namespace
}  // namespace bootweave
