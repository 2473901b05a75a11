// SPDX-License-Identifier: Apache-2.0
#include "util/replace_file.h"

#include <cerrno>
#include <filesystem>
#include <initializer_list>

#include <sys/stat.h>
#include <unistd.h>

#include "gmock/gmock.h"
#include "tests/support/temp_dir.h"

extern "C" {
static bool g_fail_fsync = false;
int __real_fsync(int fd);
int __wrap_fsync(int fd) {
    if (g_fail_fsync) {
        errno = EIO;
        return -1;
    }
    return __real_fsync(fd);
}

static bool g_fail_stat = false;
int __real_stat64(const char* path, struct stat64* status);
int __wrap_stat64(const char* path, struct stat64* status) {
    if (g_fail_stat) {
        errno = EIO;
        return -1;
    }
    return __real_stat64(path, status);
}
}

namespace bootweave {
namespace {

using testing::ElementsAre;

class ReplaceFileTest : public testing::Test {
  protected:
    void TearDown() override { g_fail_fsync = g_fail_stat = false; }
    static unsigned ModeOf(const std::string& path) {
        return static_cast<unsigned>(std::filesystem::status(path).permissions());
    }
    TempDir dir_;
};

TEST_F(ReplaceFileTest, ReplacesTheContentAndKeepsTheMode) {
    const std::string path = dir_.WriteFile("a", "old");
    std::filesystem::permissions(path, std::filesystem::perms(0604));
    EXPECT_TRUE(ReplaceFile(path, "new"));
    EXPECT_EQ("new", ReadFile(path));
    EXPECT_EQ(0604U, ModeOf(path));
    EXPECT_THAT(dir_.Names(), ElementsAre("a"));
}

TEST_F(ReplaceFileTest, ANewFileHasTheModeThatTheUmaskLeaves) {
    const mode_t before = ::umask(0027);
    EXPECT_TRUE(ReplaceFile(dir_.File("a"), "new"));
    EXPECT_EQ(0027U, ::umask(before));
    EXPECT_EQ(0640U, ModeOf(dir_.File("a")));
}

TEST_F(ReplaceFileTest, FollowsLinksAlsoToAFileThatIsNotThere) {
    std::filesystem::create_directory(dir_.File("elsewhere"));
    std::filesystem::create_symlink("second", dir_.File("first"));
    std::filesystem::create_symlink("elsewhere/target", dir_.File("second"));
    EXPECT_TRUE(ReplaceFile(dir_.File("first"), "new"));
    EXPECT_EQ("new", ReadFile(dir_.File("elsewhere/target")));
    EXPECT_TRUE(std::filesystem::is_symlink(dir_.File("first")));
    EXPECT_THAT(dir_.Names(), ElementsAre("elsewhere", "first", "second"));
}

TEST_F(ReplaceFileTest, ACircleOfLinksIsAnError) {
    std::filesystem::create_symlink("b", dir_.File("a"));
    std::filesystem::create_symlink("a", dir_.File("b"));
    errno = 0;
    EXPECT_FALSE(ReplaceFile(dir_.File("a"), "new"));
    EXPECT_EQ(ELOOP, errno);
}

TEST_F(ReplaceFileTest, AFailureLeavesTheOldFileAndNoOther) {
    const std::string path = dir_.WriteFile("a", "old");
    g_fail_fsync = true;
    EXPECT_FALSE(ReplaceFile(path, "new"));
    EXPECT_EQ(EIO, errno);
    EXPECT_EQ("old", ReadFile(path));
    EXPECT_THAT(dir_.Names(), ElementsAre("a"));
}

TEST_F(ReplaceFileTest, AFileWhoseModeCannotBeReadStaysAsItIs) {
    const std::string path = dir_.WriteFile("a", "old");
    g_fail_stat = true;
    EXPECT_FALSE(ReplaceFile(path, "new"));
    g_fail_stat = false;
    EXPECT_EQ(EIO, errno);
    EXPECT_EQ("old", ReadFile(path));
    EXPECT_THAT(dir_.Names(), ElementsAre("a"));
}

TEST_F(ReplaceFileTest, ADirectoryThatIsMissingOrInTheWayIsAnError) {
    EXPECT_FALSE(ReplaceFile(dir_.File("missing/a"), "new"));
    EXPECT_EQ(ENOENT, errno);
    std::filesystem::create_directories(dir_.File("directory/child"));
    EXPECT_FALSE(ReplaceFile(dir_.File("directory"), "new"));
    EXPECT_THAT(dir_.Names(), ElementsAre("directory"));
}

}  // namespace
}  // namespace bootweave
