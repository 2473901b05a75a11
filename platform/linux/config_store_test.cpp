// SPDX-License-Identifier: Apache-2.0
#include "platform/linux/config_store_program.h"

#include <csignal>
#include <filesystem>
#include <functional>
#include <string>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "gmock/gmock.h"

#include "platform/log.h"
#include "tests/support/temp_dir.h"
#include "util/child_process.h"
#include "util/unique_fd.h"

namespace bootweave {
namespace {

class ConfigStoreTest : public testing::Test {
  protected:
    void Script(const std::string& body) const { dir_.WriteProgram("program", "#!/bin/sh\n" + body + "\n"); }

    /// What is logged, each line without the program's own name and id in front of it, and printed. Runs in a
    /// child, because a log can be set up once.
    /// \param prepare  runs in the child before the program does
    [[nodiscard]] std::string OutputOfRunning(
        const std::string& path, const std::function<void()>& prepare = [] {}) const {
        const std::string out = dir_.File("out");
        auto child = ChildProcess::Fork([&] {
            const UniqueFd file(::open(out.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600));
            ::dup2(file.get(), STDOUT_FILENO);
            Dictionary* dictionary = Dictionary_Create();
            Dict_SetString(dictionary, "log.stdoutLevel", "info");
            Dict_SetBool(dictionary, "log.useTimeStamps.stdio", false);
            Log_AddOutput(Log_NewStdioOutput("test", dictionary, 0));
            Dictionary_Free(dictionary);
            prepare();
            RunConfigStoreProgram(path);
            return 0;
        });
        EXPECT_TRUE(child.has_value());
        const pid_t pid = child->pid();
        EXPECT_EQ(0, child->Wait());
        std::string output = ReadFile(out);
        const std::string origin = "test[" + std::to_string(pid) + "]: ";
        return output.substr(0, origin.size()) == origin ? "logged: " + output.substr(origin.size()) : output;
    }

    [[nodiscard]] std::string OutputOfRunningProgram() const { return OutputOfRunning(program_); }

    TempDir dir_;
    std::string program_ = dir_.File("program");
};

TEST_F(ConfigStoreTest, AProgramRunsToItsEndWithoutArgumentsAndWithAnEmptyInput) {
    Script("cat; echo \"$# arguments, input $(readlink /proc/self/fd/0)\"; echo end > " + dir_.File("end"));
    EXPECT_EQ("0 arguments, input /dev/null\n", OutputOfRunningProgram());
    EXPECT_EQ("end\n", ReadFile(dir_.File("end")));
}

TEST_F(ConfigStoreTest, AStoreThatIsNotInstalledIsPassedOverInSilence) {
    dir_.WriteFile("file", "");
    std::filesystem::create_symlink("nowhere", dir_.File("dangling"));
    EXPECT_EQ("", OutputOfRunning(dir_.File("missing")));
    EXPECT_EQ("", OutputOfRunning(dir_.File("missing/program")));
    EXPECT_EQ("", OutputOfRunning(dir_.File("file/program")));
    EXPECT_EQ("", OutputOfRunning(dir_.File("dangling")));
}

TEST_F(ConfigStoreTest, AProgramThatFailsIsALineThatSaysHowItEnded) {
    Script("exit 3");
    EXPECT_EQ("logged: " + program_ + " exited with status 3\n", OutputOfRunningProgram());
    Script("kill -9 $$");
    EXPECT_EQ("logged: " + program_ + " killed by signal 9\n", OutputOfRunningProgram());
}

TEST_F(ConfigStoreTest, AProgramThatIsThereButCannotBeStartedIsALine) {
    Script("exit 0");
    ASSERT_EQ(0, ::chmod(program_.c_str(), 0644));
    EXPECT_EQ("logged: " + program_ + " could not be started: Permission denied\n", OutputOfRunningProgram());
    dir_.WriteProgram("program", "#!/no/such/interpreter\n");
    EXPECT_EQ("logged: " + program_ + " could not be started: No such file or directory\n",
              OutputOfRunningProgram());
}

TEST_F(ConfigStoreTest, AProgramWhoseEndCannotBeLearnedIsALine) {
    Script("exit 0");
    EXPECT_EQ("logged: " + program_ + " could not be waited for: No child processes\n",
              OutputOfRunning(program_, [] { ::signal(SIGCHLD, SIG_IGN); }));
}

}  // namespace
}  // namespace bootweave
