// SPDX-License-Identifier: Apache-2.0
#include "util/afstream.h"

#include <cerrno>
#include <csignal>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <stdexcept>

#include <sys/resource.h>
#include <sys/stat.h>

#include "gmock/gmock.h"
#include "tests/support/temp_dir.h"

extern "C" {
static bool g_fail_calloc = false;
static int g_chmod_error = 0;

void* __real_calloc(std::size_t count, std::size_t size);
void* __wrap_calloc(std::size_t count, std::size_t size) {
    return g_fail_calloc ? nullptr : __real_calloc(count, size);
}
/// Whichever of these the compiler makes of std::snprintf.
static bool g_fail_snprintf = false;
int __wrap_snprintf(char* text, std::size_t size, const char* format, ...);
int __wrap_snprintf(char* text, std::size_t size, const char* format, ...) {
    std::va_list arguments;
    va_start(arguments, format);
    const int length = g_fail_snprintf ? -1 : std::vsnprintf(text, size, format, arguments);
    va_end(arguments);
    return length;
}
int __wrap___snprintf_chk(char* text, std::size_t size, int flag, std::size_t room, const char* format, ...);
int __wrap___snprintf_chk(char* text, std::size_t size, int /*flag*/, std::size_t /*room*/,
                          const char* format, ...) {
    std::va_list arguments;
    va_start(arguments, format);
    const int length = g_fail_snprintf ? -1 : std::vsnprintf(text, size, format, arguments);
    va_end(arguments);
    return length;
}
int __real_chmod(const char* path, mode_t mode);
int __wrap_chmod(const char* path, mode_t mode) {
    if (g_chmod_error != 0) {
        errno = g_chmod_error;
        return -1;
    }
    return __real_chmod(path, mode);
}
}

namespace bootweave {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::MatchesRegex;

class AfstreamTest : public testing::Test {
  protected:
    void TearDown() override {
        g_fail_calloc = false;
        g_fail_snprintf = false;
        g_chmod_error = 0;
    }

    static std::string MessageOf(const std::function<void()>& action) {
        try {
            action();
        } catch (const std::runtime_error& error) {
            return error.what();
        }
        return "nothing was thrown";
    }

    static unsigned ModeOf(const std::string& path) {
        return static_cast<unsigned>(std::filesystem::status(path).permissions());
    }

    TempDir dir_;
};

TEST_F(AfstreamTest, CommitReplacesTheOldFileAndKeepsItsMode) {
    const std::string log = dir_.WriteFile("log", "old\n");
    std::filesystem::permissions(log, std::filesystem::perms(0640));
    afstream out;
    out.open(log.c_str(), std::ios::out);
    out << "new\n";
    EXPECT_EQ("old\n", ReadFile(log));
    out.commit();
    EXPECT_EQ("new\n", ReadFile(log));
    EXPECT_EQ(0640U, ModeOf(log));
    EXPECT_THAT(dir_.Names(), ElementsAre("log"));
}

TEST_F(AfstreamTest, CommitWithoutAnOldFileMakesOneOfMode0600) {
    const std::string log = dir_.File("log");
    afstream out;
    out.open(log.c_str(), std::ios::out);
    out << "new\n";
    out.commit();
    EXPECT_EQ("new\n", ReadFile(log));
    EXPECT_EQ(0600U, ModeOf(log));
}

TEST_F(AfstreamTest, DestructionWithoutCommitLeavesTheOldFile) {
    const std::string log = dir_.WriteFile("log", "old\n");
    {
        afstream out;
        out.open(log.c_str(), std::ios::out);
        out << "new\n";
        EXPECT_THAT(dir_.Names(), ElementsAre("log", MatchesRegex("log\\.[A-Za-z0-9]{6}")));
    }
    EXPECT_EQ("old\n", ReadFile(log));
    EXPECT_THAT(dir_.Names(), ElementsAre("log"));
}

TEST_F(AfstreamTest, IsOpenedForOutputWhateverTheModeSays) {
    const std::string log = dir_.File("log");
    afstream out;
    out.open(log.c_str(), std::ios::binary);
    out << "new\n";
    out.commit();
    EXPECT_EQ("new\n", ReadFile(log));
}

TEST_F(AfstreamTest, ADirectoryThatIsMissingFailsWithErrnoSet) {
    const std::string log = dir_.File("missing/log");
    afstream out;
    int error = 0;
    const std::string message = MessageOf([&] {
        try {
            out.open(log.c_str(), std::ios::out);
        } catch (const std::runtime_error&) {
            error = errno;
            throw;
        }
    });
    EXPECT_EQ("unable to create temporary file to write '" + log + "': No such file or directory", message);
    EXPECT_EQ(ENOENT, error);
}

TEST_F(AfstreamTest, AModeThatCannotBeOpenedFailsAndTheTemporaryFileGoesAtTheEnd) {
    const std::string log = dir_.File("log");
    {
        afstream out;
        EXPECT_THAT(MessageOf([&] { out.open(log.c_str(), std::ios::trunc | std::ios::app | std::ios::in); }),
                    MatchesRegex("failed to create temp file: .*"));
        EXPECT_THAT(dir_.Names(), ElementsAre(MatchesRegex("log\\.[A-Za-z0-9]{6}")));
    }
    EXPECT_THAT(dir_.Names(), IsEmpty());
}

TEST_F(AfstreamTest, WithoutMemoryForTheNameNothingIsCreated) {
    afstream out;
    const std::string log = dir_.File("log");
    g_fail_calloc = true;
    const std::string message = MessageOf([&] { out.open(log.c_str(), std::ios::out); });
    g_fail_calloc = false;
    EXPECT_EQ("insufficient memory to allocate buffer", message);
    EXPECT_THAT(dir_.Names(), IsEmpty());
}

TEST_F(AfstreamTest, WithoutANameForTheTemporaryFileNothingIsCreated) {
    afstream out;
    const std::string log = dir_.File("log");
    g_fail_snprintf = true;
    const std::string message = MessageOf([&] { out.open(log.c_str(), std::ios::out); });
    g_fail_snprintf = false;
    EXPECT_EQ("unable to allocate mkstemp pattern", message);
    EXPECT_THAT(dir_.Names(), IsEmpty());
}

TEST_F(AfstreamTest, ReopenPutsTheOldContentInFront) {
    const std::string log = dir_.WriteFile("log", "old\n");
    afstream out;
    out.reopen(log.c_str(), std::ios::out);
    out << "new\n";
    out.commit();
    EXPECT_EQ("old\nnew\n", ReadFile(log));
}

TEST_F(AfstreamTest, ReopeningAMissingOrEmptyFileFails) {
    for (const std::string& log : {dir_.File("missing"), dir_.WriteFile("empty", "")}) {
        afstream out;
        EXPECT_THAT(MessageOf([&] { out.reopen(log.c_str(), std::ios::out); }),
                    MatchesRegex("failed to write to temp file: .*"));
    }
    EXPECT_THAT(dir_.Names(), ElementsAre("empty"));
}

TEST_F(AfstreamTest, ReopeningWithoutRoomForTheOldContentFails) {
    const std::string log = dir_.WriteFile("log", std::string(200'000, 'x'));
    rlimit before{};
    ASSERT_EQ(0, ::getrlimit(RLIMIT_FSIZE, &before));
    const rlimit small{.rlim_cur = 65'536, .rlim_max = before.rlim_max};
    const auto signal_before = std::signal(SIGXFSZ, SIG_IGN);
    ASSERT_EQ(0, ::setrlimit(RLIMIT_FSIZE, &small));
    afstream out;
    const std::string message = MessageOf([&] { out.reopen(log.c_str(), std::ios::out); });
    ASSERT_EQ(0, ::setrlimit(RLIMIT_FSIZE, &before));
    std::signal(SIGXFSZ, signal_before);
    EXPECT_EQ("failed to write to temp file: File too large", message);
}

TEST_F(AfstreamTest, CommitOfAStreamThatWasNeverOpenedFails) {
    afstream out;
    EXPECT_EQ("commit invoked on an unknown destination", MessageOf([&] { out.commit(); }));
}

TEST_F(AfstreamTest, ARenameThatFailsNamesBothFilesAndLeavesTheTemporaryOne) {
    const std::string log = dir_.File("log");
    {
        afstream out;
        out.open(log.c_str(), std::ios::out);
        std::filesystem::create_directories(log + "/in the way");
        const std::string temporary = dir_.File(dir_.Names().back());
        EXPECT_EQ("unable to rename '" + temporary + "' to '" + log + "': Is a directory",
                  MessageOf([&] { out.commit(); }));
        EXPECT_EQ(2U, dir_.Names().size());
    }
    EXPECT_THAT(dir_.Names(), ElementsAre("log"));
}

TEST_F(AfstreamTest, AModeThatCannotBeRestoredIsSaidWhenTheContentIsInPlace) {
    const std::string log = dir_.WriteFile("log", "old\n");
    afstream out;
    out.open(log.c_str(), std::ios::out);
    out << "new\n";
    g_chmod_error = EPERM;
    EXPECT_EQ(
        "failed to restore file permissions, file permissions may be incorrect: Operation not permitted",
        MessageOf([&] { out.commit(); }));
    EXPECT_EQ("new\n", ReadFile(log));
}

TEST_F(AfstreamTest, AnOldFileThatCannotBeLookedAtIsReplacedAllTheSame) {
    const std::string log = dir_.File("log");
    std::filesystem::create_symlink("log", log);  // a link to itself
    afstream out;
    out.open(log.c_str(), std::ios::out);
    out << "new\n";
    EXPECT_EQ(
        "failed to restore file permissions, file permissions may be incorrect: Too many levels of symbolic "
        "links",
        MessageOf([&] { out.commit(); }));
    EXPECT_EQ("new\n", ReadFile(log));
}

}  // namespace
}  // namespace bootweave
