// SPDX-License-Identifier: Apache-2.0
#include "tests/support/executor_sandbox.h"

#include <algorithm>
#include <cctype>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <thread>

#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include "tests/support/fake_platform.h"
#include "tests/support/system_calls.h"
#include "util/read_file.h"

namespace bootweave {
namespace {

/// Asks again and again, for far longer than anything here takes.
bool Eventually(const std::function<bool()>& condition) {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(30);
    while (!condition()) {
        if (std::chrono::steady_clock::now() > deadline) {
            return false;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return true;
}

/// The parent of a process, from the field behind the state; the name before it may hold anything. None for a
/// process that ends meanwhile.
pid_t ParentOf(const std::filesystem::path& process) {
    const std::string stat = ReadRegularFile(process / "stat").value_or("");
    const std::size_t name_end = stat.rfind(')');
    return name_end == std::string::npos ? -1 : std::atoi(stat.c_str() + name_end + 4);
}

}  // namespace

ExecutorSandbox::ExecutorSandbox() {
    ::prctl(PR_SET_CHILD_SUBREAPER, 1);
    FakePlatform::Reset();
    SystemCalls::Reset();
    SystemCalls::Redirect(dir_.path().c_str());
    SystemCalls::AdoptExecutors(::getpid());
    std::filesystem::create_directories(dir_.File("hostcli/int/ext"));
    std::filesystem::create_directory(dir_.File("hostcli/ext"));
}

ExecutorSandbox::~ExecutorSandbox() {
    KillExecutors();
    SystemCalls::Reset();
    ::prctl(PR_SET_CHILD_SUBREAPER, 0);
}

void ExecutorSandbox::AddCommand(const std::string& name, const std::string& script) const {
    dir_.WriteProgram("hostcli/" + name, "#!/bin/sh\n" + script + "\n");
}

std::string ExecutorSandbox::Log() const {
    const std::string path = dir_.File("executor.log");
    return std::filesystem::exists(path) ? ReadFile(path) : "";
}

bool ExecutorSandbox::WaitForLog(const std::string& text) const {
    return Eventually([&] { return Log().find(text) != std::string::npos; });
}

std::vector<pid_t> ExecutorSandbox::Executors() {
    std::vector<pid_t> children;
    for (const auto& entry : std::filesystem::directory_iterator("/proc")) {
        const std::string name = entry.path().filename().string();
        if (std::isdigit(static_cast<unsigned char>(name[0])) != 0 && ParentOf(entry.path()) == ::getpid()) {
            children.push_back(std::atoi(name.c_str()));
        }
    }
    return children;
}

std::string ExecutorSandbox::WaitForEnd() {
    const std::vector<pid_t> executors = Executors();
    if (executors.size() != 1) {
        return std::to_string(executors.size()) + " executors";
    }
    siginfo_t end{};
    const bool ended = Eventually([&] {
        return ::waitid(P_PID, static_cast<id_t>(executors[0]), &end, WEXITED | WNOHANG) == 0 &&
               end.si_pid != 0;
    });
    if (!ended) {
        return "still running";
    }
    return (end.si_code == CLD_EXITED ? "exited with status " : "killed by signal ") +
           std::to_string(end.si_status);
}

void ExecutorSandbox::KillExecutors() {
    // A command of an executor that was killed becomes a child in its turn.
    for (std::vector<pid_t> left = Executors(); !left.empty(); left = Executors()) {
        for (const pid_t pid : left) {
            ::kill(pid, SIGKILL);
            siginfo_t ignored{};
            ::waitid(P_PID, static_cast<id_t>(pid), &ignored, WEXITED);
        }
    }
}

}  // namespace bootweave
