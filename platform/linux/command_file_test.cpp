// SPDX-License-Identifier: Apache-2.0
#include "platform/linux/command_file.h"

#include <filesystem>
#include <functional>

#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include "gmock/gmock.h"

#include "platform/linux/command_process.h"
#include "tests/support/temp_dir.h"
#include "util/exception.h"
#include "util/scope_guard.h"

namespace bootweave {
namespace {

using testing::StartsWith;

constexpr std::size_t kBound = 1000;

std::string RefusalOf(const std::string& directory, const std::string& name) {
    try {
        return CommandFile::Find(directory, name).has_value() ? "found" : "missing";
    } catch (const Exception& error) {
        return error.what();
    }
}

void Chmod(const std::string& path, mode_t mode) {
    ASSERT_EQ(0, ::chmod(path.c_str(), mode));
}

/// A script that says on standard error which one it is.
std::string Script(const std::string& text) {
    return "#!/bin/sh\necho " + text + " >&2\n";
}

std::string OutputOf(const CommandFile& file) {
    SpawnOptions options;
    options.path = file.exec_path();
    options.argv = {file.path()};
    return RunCapturingErrors(std::move(options), kBound).error_output;
}

TEST(CommandFileTest, ATrustedFileIsRunByItsPath) {
    const TempDir dir;
    dir.WriteProgram("a.b", Script("good"));
    const auto file = CommandFile::Find(dir.path(), "a.b");
    ASSERT_TRUE(file.has_value());
    EXPECT_EQ(dir.File("a.b"), file->path());
    EXPECT_EQ(dir.File("a.b"), file->exec_path());
    EXPECT_EQ("good\n", OutputOf(*file));
}

TEST(CommandFileTest, LinksAreFollowed) {
    const TempDir dir;
    std::filesystem::create_directory(dir.File("real"));
    dir.WriteProgram("real/program", Script("good"));
    std::filesystem::create_symlink("real/../real/./program", dir.File("relative"));
    std::filesystem::create_symlink(dir.File("relative"), dir.File("absolute"));
    std::filesystem::create_symlink("real", dir.File("commands"));
    for (const auto& [directory, name] :
         {std::pair(dir.path(), "absolute"), std::pair(dir.File("commands"), "program")}) {
        const auto file = CommandFile::Find(directory, name);
        ASSERT_TRUE(file.has_value());
        EXPECT_EQ(directory + "/" + name, file->exec_path());
        EXPECT_EQ("good\n", OutputOf(*file));
    }
}

TEST(CommandFileTest, ANameThatIsNotThereIsMissing) {
    const TempDir dir;
    dir.WriteFile("file", "");
    EXPECT_EQ("missing", RefusalOf(dir.path(), "a"));
    EXPECT_EQ("missing", RefusalOf(dir.File("nowhere"), "a"));
    EXPECT_EQ("missing", RefusalOf(dir.File("file"), "a"));
    EXPECT_EQ("missing", RefusalOf(dir.path(), std::string(300, 'a')));
}

TEST(CommandFileTest, OnlyARegularExecutableFileThatOthersCannotWriteIsTrusted) {
    const TempDir dir;
    for (const mode_t mode : {0644U, 0775U, 0757U, 0722U}) {
        dir.WriteProgram("a", Script("bad"));
        Chmod(dir.File("a"), mode);
        EXPECT_EQ("not a trusted executable", RefusalOf(dir.path(), "a")) << std::oct << mode;
    }
    for (const mode_t mode : {0700U, 0555U, 0711U, 04755U}) {
        Chmod(dir.File("a"), mode);
        EXPECT_EQ("found", RefusalOf(dir.path(), "a")) << std::oct << mode;
    }
}

TEST(CommandFileTest, WhatIsNoRegularFileIsNotTrustedAndNotWaitedFor) {
    const TempDir dir;
    ASSERT_EQ(0, ::mkfifo(dir.File("fifo").c_str(), 0700));
    std::filesystem::create_directory(dir.File("directory"));
    std::filesystem::create_symlink("nowhere", dir.File("dangling"));
    std::filesystem::create_symlink("loop", dir.File("loop"));
    std::filesystem::create_symlink("fifo/file", dir.File("through"));
    std::filesystem::create_symlink("/dev/zero", dir.File("device"));
    for (const char* name : {"fifo", "directory", "dangling", "loop", "through", "device"}) {
        EXPECT_EQ("not a trusted executable", RefusalOf(dir.path(), name)) << name;
    }
}

TEST(CommandFileTest, AFileOfAnotherUserIsNotTrusted) {
    if (::geteuid() != 0) {
        GTEST_SKIP() << "only root can give files away";
    }
    const TempDir dir;
    ASSERT_EQ(0, ::chown(dir.WriteProgram("a", Script("bad")).c_str(), 1, 0));
    EXPECT_EQ("not a trusted executable", RefusalOf(dir.path(), "a"));
    ASSERT_EQ(0, ::chown(dir.File("a").c_str(), 0, 1));
    EXPECT_EQ("found", RefusalOf(dir.path(), "a"));
}

/// What becomes of looking for `directory`/a while no descriptor can be opened.
std::string FoundWithoutDescriptors(const std::string& directory) {
    rlimit limit{};
    EXPECT_EQ(0, ::getrlimit(RLIMIT_NOFILE, &limit));
    try {
        // Put back before the error is looked at: the sanitizers need descriptors for that.
        const ScopeGuard restore([&limit] { ::setrlimit(RLIMIT_NOFILE, &limit); });
        const rlimit none{0, limit.rlim_max};
        EXPECT_EQ(0, ::setrlimit(RLIMIT_NOFILE, &none));
        return CommandFile::Find(directory, "a").has_value() ? "found" : "missing";
    } catch (const Exception& error) {
        return error.what();
    }
}

TEST(CommandFileTest, AFileThatCannotBeJudgedIsNeitherMissingNorTrusted) {
    const TempDir dir;
    std::filesystem::create_directory(dir.File("real"));
    dir.WriteProgram("real/a", Script("good"));
    std::filesystem::create_symlink("real", dir.File("link"));
    EXPECT_EQ("Too many open files", FoundWithoutDescriptors(dir.File("link")));
}

TEST(CommandFileTest, APathWithoutLinksIsJudgedWithoutDescriptors) {
    const TempDir dir;
    dir.WriteProgram("a", Script("good"));
    EXPECT_EQ("found", FoundWithoutDescriptors(dir.path()));
}

/// Where others may change what a path names, what was judged runs, whatever the name stands for by then.
class CommandFileRaceTest : public testing::Test {
  protected:
    /// Finds `directory`/a, lets somebody else change things, and runs what was found.
    std::string RunAfter(const std::string& directory, const std::function<void()>& change) {
        const auto file = CommandFile::Find(directory, "a");
        if (!file.has_value()) {
            return "missing";
        }
        exec_path_ = file->exec_path();
        change();
        return OutputOf(*file);
    }

    TempDir dir_;
    std::string exec_path_;
};

TEST_F(CommandFileRaceTest, AScriptReplacedInAnOpenDirectoryStillRunsAsItWasFound) {
    for (const mode_t mode : {0770U, 0707U}) {
        dir_.WriteProgram("a", Script("judged"));
        Chmod(dir_.path(), mode);
        EXPECT_EQ("judged\n", RunAfter(dir_.path(), [this] {
                      dir_.WriteProgram("b", Script("replaced"));
                      std::filesystem::rename(dir_.File("b"), dir_.File("a"));
                  }));
        EXPECT_THAT(exec_path_, StartsWith("/proc/" + std::to_string(::getpid()) + "/fd/"));
    }
}

TEST_F(CommandFileRaceTest, ALinkReplacedInAnOpenDirectoryIsNotFollowedAgain) {
    for (const char* name : {"safe", "open", "other"}) {
        std::filesystem::create_directory(dir_.File(name));
    }
    dir_.WriteProgram("safe/a", Script("judged"));
    dir_.WriteProgram("other/a", Script("replaced"));
    Chmod(dir_.File("open"), 0777);
    std::filesystem::create_symlink("../safe", dir_.File("open/commands"));
    EXPECT_EQ("judged\n", RunAfter(dir_.File("open/commands"), [this] {
                  std::filesystem::remove(dir_.File("open/commands"));
                  std::filesystem::create_symlink("../other", dir_.File("open/commands"));
              }));
    EXPECT_THAT(exec_path_, StartsWith("/proc/"));
}

TEST_F(CommandFileRaceTest, AStickyDirectoryProtectsWhatRootOrThisUserOwns) {
    dir_.WriteProgram("a", Script("judged"));
    Chmod(dir_.path(), 01777);
    EXPECT_EQ("judged\n", RunAfter(dir_.path(), [] {}));
    EXPECT_EQ(dir_.File("a"), exec_path_);
}

TEST_F(CommandFileRaceTest, ADirectoryOfAnotherUserIsOpen) {
    if (::geteuid() != 0) {
        GTEST_SKIP() << "only root can give directories away";
    }
    std::filesystem::create_directory(dir_.File("theirs"));
    dir_.WriteProgram("theirs/a", Script("judged"));
    Chmod(dir_.File("theirs"), 0755);
    ASSERT_EQ(0, ::chown(dir_.File("theirs").c_str(), 1, 1));
    EXPECT_EQ("judged\n",
              RunAfter(dir_.File("theirs"), [this] { std::filesystem::remove(dir_.File("theirs/a")); }));
    EXPECT_THAT(exec_path_, StartsWith("/proc/"));
}

}  // namespace
}  // namespace bootweave
