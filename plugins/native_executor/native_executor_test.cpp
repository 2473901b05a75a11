// SPDX-License-Identifier: Apache-2.0
#include "plugins/native_executor/native_executor.h"

#include <string>
#include <vector>

#include <sys/stat.h>
#include <sys/wait.h>

#include "gmock/gmock.h"

#include "plugins/native_test_support.h"
#include "tests/support/temp_dir.h"
#include "util/child_process.h"

namespace bootweave {
namespace {

/// What a run of the program came to.
struct Outcome {
    int status;
    std::string said;  ///< on standard error
    bool operator==(const Outcome&) const = default;
};

void PrintTo(const Outcome& outcome, std::ostream* stream) {
    *stream << outcome.status << " \"" << outcome.said << "\"";
}

/// In this process, so that a sanitizer sees it.
Outcome RunHere(const std::vector<std::string>& words) {
    std::vector<const char*> argv{"nativeExecutor"};
    for (const std::string& word : words) {
        argv.push_back(word.c_str());
    }
    testing::internal::CaptureStderr();
    const int status = RunNativeExecutor(static_cast<int>(argv.size()), argv.data());
    return {status, testing::internal::GetCapturedStderr()};
}

/// The program itself. Returns its raw wait status.
int RunProgram(const std::string& object, const std::string& method) {
    SpawnOptions options;
    options.path = BOOTWEAVE_NATIVE_EXECUTOR;
    options.argv = {"nativeExecutor", NativeObject(object), "plugin", method};
    return ChildProcess::Spawn(options)->Wait().value();
}

TEST(NativeExecutorTest, AnOperationGetsThePluginsNameAndItsZeroIsSuccess) {
    EXPECT_EQ((Outcome{0, ""}), RunHere({NativeObject("version2"), "plugin", "start"}));
    EXPECT_EQ((Outcome{0, ""}), RunHere({NativeObject("version2"), "other", "apply_host_profile"}));
    EXPECT_EQ((Outcome{0, ""}), RunHere({NativeObject("modern"), "plugin", "start"}));
}

TEST(NativeExecutorTest, AnyOtherResultIsStatusOne) {
    EXPECT_EQ((Outcome{1, ""}), RunHere({NativeObject("version2"), "other", "start"}));                // 5
    EXPECT_EQ((Outcome{1, ""}), RunHere({NativeObject("version2"), "plugin", "apply_host_profile"}));  // -1
}

TEST(NativeExecutorTest, WrongUsageIsStatusTwo) {
    const Outcome wrong{2, "nativeExecutor: usage: nativeExecutor PATH NAME METHOD\n"};
    EXPECT_EQ(wrong, RunHere({}));
    EXPECT_EQ(wrong, RunHere({NativeObject("version2"), "plugin"}));
    EXPECT_EQ(wrong, RunHere({NativeObject("version2"), "plugin", "start", "now"}));
}

TEST(NativeExecutorTest, AnObjectThatCannotBeLoadedIsStatusThree) {
    const TempDir dir;
    const std::string text = dir.WriteFile("text.so", std::string(100, 'x'));
    ASSERT_EQ(0, ::mkfifo(dir.File("fifo.so").c_str(), 0600));
    const auto missing = [](const std::string& path) {
        return Outcome{
            3, "nativeExecutor: " + path + ": cannot open shared object file: No such file or directory\n"};
    };
    EXPECT_EQ((Outcome{3, "nativeExecutor: " + text + ": invalid ELF header\n"}),
              RunHere({text, "p", "start"}));
    EXPECT_EQ(missing(dir.File("no.so")), RunHere({dir.File("no.so"), "p", "start"}));
    EXPECT_EQ(missing(dir.File("fifo.so")), RunHere({dir.File("fifo.so"), "p", "start"}));
    EXPECT_EQ(missing(dir.path()), RunHere({dir.path(), "p", "start"}));
    EXPECT_EQ(missing("/dev/null"), RunHere({"/dev/null", "p", "start"}));
}

TEST(NativeExecutorTest, AnObjectThatLacksASymbolIsStatusThree) {
    for (const auto& [object, symbol] :
         {std::pair("only_metadata", "operations"), std::pair("only_operations", "metadata")}) {
        const std::string path = NativeObject(object);
        EXPECT_EQ((Outcome{3, "nativeExecutor: " + path + ": undefined symbol: " + symbol + "\n"}),
                  RunHere({path, "plugin", "start"}));
    }
}

TEST(NativeExecutorTest, AMethodThatDoesNotExistIsStatusFour) {
    const std::string path = NativeObject("version2");
    for (const std::string method : {"stop", "Start", "apply-host-profile", ""}) {
        EXPECT_EQ((Outcome{4, "nativeExecutor: " + path + ": unknown method " + method + "\n"}),
                  RunHere({path, "plugin", method}));
    }
}

TEST(NativeExecutorTest, AnEntryThatIsNullIsStatusFour) {
    const std::string path = NativeObject("empty2");
    EXPECT_EQ((Outcome{4, "nativeExecutor: " + path + ": has no operation for apply_host_profile\n"}),
              RunHere({path, "plugin", "apply_host_profile"}));
}

TEST(NativeExecutorTest, TheProgramEndsAsTheOperationDoes) {
    EXPECT_EQ(0, WEXITSTATUS(RunProgram("version2", "start")));
    EXPECT_EQ(1, WEXITSTATUS(RunProgram("version2", "apply_host_profile")));
    EXPECT_EQ(4, WEXITSTATUS(RunProgram("version2", "stop")));
    EXPECT_EQ(3, WEXITSTATUS(RunProgram("leaves_at_start", "start")));
    EXPECT_EQ(3, WEXITSTATUS(RunProgram("leaves_at_close", "start")));  // its destructors run at the end
}

TEST(NativeExecutorTest, AnOperationThatThrowsEndsTheProgramBySignal) {
    const int raw = RunProgram("modern", "apply_host_profile");
    EXPECT_TRUE(WIFSIGNALED(raw));
    EXPECT_EQ(6, WTERMSIG(raw));
}

}  // namespace
}  // namespace bootweave
