// SPDX-License-Identifier: Apache-2.0
#include "platform/spawn.h"

#include <cerrno>
#include <csignal>
#include <filesystem>
#include <string>
#include <utility>
#include <vector>

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include "gmock/gmock.h"

#include "tests/support/child_report.h"
#include "tests/support/temp_dir.h"
#include "util/retry.h"
#include "util/signals.h"
#include "util/unique_fd.h"

namespace {

using bootweave::ChangeSignal;
using bootweave::ChildReport;
using bootweave::TempDir;
using bootweave::UniqueFd;
using testing::ElementsAre;

constexpr int kCapacity = 3;

class SpawnTest : public testing::Test {
  protected:
    SpawnTest() { EXPECT_EQ(0, MantleuserCompat_SpawnFileActionsInit(&actions_, kCapacity)); }
    ~SpawnTest() override { MantleuserCompat_SpawnFileActionsDestroy(&actions_); }

    void Dup2(int from, int to) {
        EXPECT_EQ(0, MantleuserCompat_SpawnFileActionsAddDup2(&actions_, from, to));
    }

    int Spawn(const std::string& path, std::vector<std::string> words) {
        std::vector<char*> argv;
        for (std::string& word : words) {
            argv.push_back(word.data());
        }
        argv.push_back(nullptr);
        std::string variable = "ONLY=this";
        char* envp[] = {variable.data(), nullptr};
        return MantleuserCompat_Spawn(&pid_, path.c_str(), &actions_, nullptr, argv.data(), envp);
    }

    [[nodiscard]] int Wait() const {
        int raw = -1;
        EXPECT_EQ(pid_, bootweave::RetryOnEintr([&] { return ::waitpid(pid_, &raw, 0); }));
        return raw;
    }

    /// Starts a program that reports how it was started.
    ChildReport Report() {
        const std::string out = dir_.File("out");
        EXPECT_EQ(0, Spawn("/proc/self/exe", {"name", "--role=report", "--out=" + out, "more words", ""}));
        EXPECT_EQ(0, Wait());
        return bootweave::ReadChildReport(out);
    }

    [[nodiscard]] UniqueFd Open(const std::string& name) const {
        return UniqueFd(::open(dir_.WriteFile(name, "").c_str(), O_RDONLY | O_CLOEXEC));
    }

    [[nodiscard]] std::string At(int number, const std::string& name) const {
        return std::to_string(number) + " " + dir_.File(name);
    }

    TempDir dir_;
    MantleuserCompat_SpawnFileActions actions_{};
    pid_t pid_ = -1;
};

std::string OwnStream(int number) {
    const std::string text = std::to_string(number);
    return text + " " + std::filesystem::read_symlink("/proc/self/fd/" + text).string();
}

TEST_F(SpawnTest, AChildGetsItsWordsItsEnvironmentAndACleanSignalState) {
    sigset_t old_mask;
    sigset_t mask;
    ::sigfillset(&mask);
    ::pthread_sigmask(SIG_BLOCK, &mask, &old_mask);
    struct sigaction ignore {};
    ignore.sa_handler = SIG_IGN;
    struct sigaction old_pipe {};
    ChangeSignal(SIGPIPE, ignore, &old_pipe);
    const ChildReport report = Report();
    ChangeSignal(SIGPIPE, old_pipe);
    ::pthread_sigmask(SIG_SETMASK, &old_mask, nullptr);
    EXPECT_THAT(report.arguments, ElementsAre("more words", ""));
    EXPECT_THAT(report.environment, ElementsAre("ONLY=this"));
    EXPECT_EQ(std::filesystem::current_path(), report.directory);
    EXPECT_EQ("0000000000000000", report.blocked_signals);
    EXPECT_EQ("0000000000000000", report.ignored_signals);
}

TEST_F(SpawnTest, DescriptorsDuplicatedOntoThemselvesArePassedOnAndAllOthersClosed) {
    const UniqueFd inheritable(::open("/dev/null", O_RDONLY));
    Dup2(0, 0);
    Dup2(1, 1);
    Dup2(2, 2);
    EXPECT_THAT(Report().descriptors, ElementsAre(OwnStream(0), OwnStream(1), OwnStream(2)));
}

TEST_F(SpawnTest, WithoutActionsAChildHasNoDescriptor) {
    EXPECT_THAT(Report().descriptors, ElementsAre());
}

TEST_F(SpawnTest, ActionsAreMadeInOrder) {
    const UniqueFd a = Open("a");
    const UniqueFd b = Open("b");
    const auto& [from_a, from_b] = std::pair(a.get(), b.get());
    Dup2(from_a, 50);
    Dup2(50, 0);       // what the first one made
    Dup2(from_b, 50);  // replaces it, but not its copy
    EXPECT_THAT(Report().descriptors, ElementsAre(At(0, "a"), At(50, "b")));
}

TEST_F(SpawnTest, AnActionDoesNotOverwriteWhatALaterOneStillNames) {
    const UniqueFd a = Open("a");
    const UniqueFd b = Open("b");
    Dup2(a.get(), b.get() + 10);
    Dup2(b.get(), a.get());
    Dup2(b.get() + 10, b.get());
    EXPECT_THAT(Report().descriptors, ElementsAre(At(a.get(), "b"), At(b.get(), "a"), At(b.get() + 10, "a")));
}

TEST_F(SpawnTest, ThereIsRoomForAsManyActionsAsAskedForAndNoMore) {
    for (int i = 0; i < kCapacity; ++i) {
        Dup2(i, i);
    }
    EXPECT_EQ(ENOMEM, MantleuserCompat_SpawnFileActionsAddDup2(&actions_, 0, 0));
    MantleuserCompat_SpawnFileActions none;
    EXPECT_EQ(0, MantleuserCompat_SpawnFileActionsInit(&none, 0));
    EXPECT_EQ(ENOMEM, MantleuserCompat_SpawnFileActionsAddDup2(&none, 0, 0));
    MantleuserCompat_SpawnFileActionsDestroy(&none);
    MantleuserCompat_SpawnFileActionsDestroy(&none);
    EXPECT_EQ(EINVAL, MantleuserCompat_SpawnFileActionsInit(&none, -1));
}

TEST_F(SpawnTest, NumbersThatNoDescriptorCanHaveAreRefused) {
    EXPECT_EQ(EBADF, MantleuserCompat_SpawnFileActionsAddDup2(&actions_, -1, 0));
    EXPECT_EQ(EBADF, MantleuserCompat_SpawnFileActionsAddDup2(&actions_, 0, -1));
    EXPECT_EQ(EBADF, MantleuserCompat_SpawnFileActionsAddDup2(&actions_, 0, 2147483647));
}

TEST_F(SpawnTest, ADescriptorThatIsNotOpenFailsTheSpawn) {
    UniqueFd closed = Open("a");
    const int number = closed.get();
    closed.Reset();
    Dup2(number, 0);
    EXPECT_EQ(EBADF, Spawn("/bin/true", {"true"}));
}

TEST_F(SpawnTest, AProgramThatCannotBeExecutedIsAFailureHere) {
    dir_.WriteProgram("format", "no shell stands in\n");
    EXPECT_EQ(ENOENT, Spawn(dir_.File("missing"), {"missing"}));
    EXPECT_EQ(EACCES, Spawn(dir_.WriteFile("plain", ""), {"plain"}));
    EXPECT_EQ(ENOEXEC, Spawn(dir_.File("format"), {"format"}));
    EXPECT_EQ(-1, pid_);
    EXPECT_EQ(-1, ::waitpid(-1, nullptr, WNOHANG));  // and leaves no zombie
}

TEST_F(SpawnTest, AttributesAndAnEmptyArgumentVectorAreRefused) {
    char* none[] = {nullptr};
    std::string word = "true";
    char* argv[] = {word.data(), nullptr};
    EXPECT_EQ(EINVAL, MantleuserCompat_Spawn(&pid_, "/bin/true", &actions_, nullptr, none, none));
    EXPECT_EQ(EINVAL, MantleuserCompat_Spawn(&pid_, "/bin/true", &actions_, &word, argv, none));
}

TEST_F(SpawnTest, TheCallerWaitsForTheChildAndSeesHowItEnded) {
    EXPECT_EQ(0, Spawn("/bin/sh", {"sh", "-c", "exit 7"}));
    EXPECT_EQ(7, WEXITSTATUS(Wait()));
    EXPECT_EQ(0, Spawn("/bin/sh", {"sh", "-c", "kill -9 $$"}));
    EXPECT_EQ(9, WTERMSIG(Wait()));
}

TEST(SpawnStatusTest, CodesAreErrorNumbersWithTextsThatStay) {
    const char* missing = MantleuserStatus_CodeToString(ENOENT);
    const char* denied = MantleuserStatus_CodeToString(EACCES);
    EXPECT_STREQ("No such file or directory", missing);
    EXPECT_STREQ("Permission denied", denied);
    EXPECT_STREQ("Success", MantleuserStatus_CodeToString(0));
    EXPECT_STREQ("Unknown error", MantleuserStatus_CodeToString(-1));
    EXPECT_STREQ("Unknown error", MantleuserStatus_CodeToString(100000));
}

}  // namespace
