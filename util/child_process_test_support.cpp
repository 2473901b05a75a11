// SPDX-License-Identifier: Apache-2.0
#include "util/child_process_test_support.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <sstream>
#include <utility>

#include <dirent.h>
#include <sys/wait.h>
#include <unistd.h>

#include "gtest/gtest.h"
#include "tests/support/test_main.h"
#include "util/retry.h"
#include "util/signals.h"

namespace bootweave {
namespace {

constexpr char kThisProgram[] = "/proc/self/exe";

int Report(int argc, char** argv) {
    std::ostringstream out;
    out << "blocked " << StatusLine("SigBlk") << "\nignored " << StatusLine("SigIgn") << "\ndescriptors";
    for (const int number : OpenDescriptors()) {
        out << " " << number;
    }
    out << "\n";
    for (int index = 0; index < argc; ++index) {
        out << "argument " << argv[index] << "\n";
    }
    for (char** variable = environ; *variable != nullptr; ++variable) {
        out << "environment " << *variable << "\n";
    }
    char directory[4096];
    out << "directory " << ::getcwd(directory, sizeof directory) << "\n";
    WriteAll(STDOUT_FILENO, out.str());
    return 0;
}

int ReadDescriptors(int argc, char** argv) {
    std::string out;
    for (int index = 0; index < argc; ++index) {
        char text[64];
        const ssize_t size = ::read(std::atoi(argv[index]), text, sizeof text);
        out += size > 0 ? std::string(text, static_cast<std::size_t>(size)) : "nothing\n";
    }
    WriteAll(STDOUT_FILENO, out);
    return 0;
}

int WaitForEnd(int /*argc*/, char** argv) {
    char byte = 0;
    while (::read(STDIN_FILENO, &byte, 1) > 0) {
    }
    return std::atoi(argv[0]);
}

const bool kRegistered = RegisterChildRole("report", Report) &&
                         RegisterChildRole("read-descriptors", ReadDescriptors) &&
                         RegisterChildRole("wait-for-end", WaitForEnd);

}  // namespace

void WriteAll(int fd, const std::string& text) {
    EXPECT_EQ(static_cast<ssize_t>(text.size()), ::write(fd, text.data(), text.size()));
}

std::string StatusLine(const std::string& name) {
    std::ifstream file("/proc/self/status");
    for (std::string line; std::getline(file, line);) {
        if (line.rfind(name + ":\t", 0) == 0) {
            return line.substr(name.size() + 2);
        }
    }
    return "none";
}

std::set<int> OpenDescriptors() {
    std::set<int> numbers;
    DIR* const directory = ::opendir("/proc/self/fd");
    while (const dirent* const entry = ::readdir(directory)) {
        const int number = std::atoi(entry->d_name);
        if (entry->d_name[0] != '.' && number != ::dirfd(directory)) {
            numbers.insert(number);
        }
    }
    ::closedir(directory);
    return numbers;
}

std::string ReadToEnd(const UniqueFd& end) {
    std::string all;
    char part[4096];
    ssize_t size = 0;
    while ((size = RetryOnEintr([&] { return ::read(end.get(), part, sizeof part); })) > 0) {
        all.append(part, static_cast<std::size_t>(size));
    }
    return all;
}

std::vector<std::string> Lines(const std::string& report, const std::string& name) {
    std::vector<std::string> lines;
    std::istringstream input(report);
    for (std::string line; std::getline(input, line);) {
        if (line.rfind(name + " ", 0) == 0) {
            lines.push_back(line.substr(name.size() + 1));
        }
    }
    return lines;
}

SpawnOptions Program(const std::string& path, std::vector<std::string> argv) {
    SpawnOptions options;
    options.path = path;
    options.argv = std::move(argv);
    return options;
}

SpawnOptions Role(const std::string& role, std::vector<std::string> arguments) {
    SpawnOptions options = Program(kThisProgram, {"test", "--role=" + role});
    for (std::string& argument : arguments) {
        options.argv.push_back(std::move(argument));
    }
    return options;
}

std::string OutputOf(SpawnOptions options) {
    Pipe pipe = Pipe::Create();
    options.descriptors.emplace_back(pipe.write_end.get(), STDOUT_FILENO);
    auto child = ChildProcess::Spawn(options);
    if (!child.has_value()) {
        return "not started: " + std::string(std::strerror(errno));
    }
    pipe.write_end.Reset();
    const std::string output = ReadToEnd(pipe.read_end);
    EXPECT_EQ(0, child->Wait());
    return output;
}

int SpawnError(const SpawnOptions& options) {
    errno = 0;
    const auto child = ChildProcess::Spawn(options);
    const int error = errno;
    return child.has_value() ? 0 : error;
}

bool HasNoChild() {
    return ::waitpid(-1, nullptr, WNOHANG) == -1 && errno == ECHILD;
}

Waiter::Waiter(int status) {
    Pipe pipe = Pipe::Create();
    SpawnOptions options = Role("wait-for-end", {std::to_string(status)});
    options.descriptors = {{pipe.read_end.get(), STDIN_FILENO}, {STDERR_FILENO, STDERR_FILENO}};
    auto spawned = ChildProcess::Spawn(options);
    EXPECT_TRUE(spawned.has_value());
    child.emplace(std::move(*spawned));
    input = std::move(pipe.write_end);
}

DisturbedSignals::DisturbedSignals() {
    struct sigaction ignore {};
    ignore.sa_handler = SIG_IGN;
    ChangeSignal(SIGUSR1, ignore, &old_usr1_);
    ChangeSignal(SIGPIPE, ignore, &old_pipe_);
    ChangeSignal(SIGRTMAX, ignore, &old_rtmax_);
    sigset_t blocked;
    ::sigemptyset(&blocked);
    ::sigaddset(&blocked, SIGTERM);
    ::sigaddset(&blocked, SIGCHLD);
    ::pthread_sigmask(SIG_BLOCK, &blocked, &old_mask_);
}

DisturbedSignals::~DisturbedSignals() {
    ::pthread_sigmask(SIG_SETMASK, &old_mask_, nullptr);
    ChangeSignal(SIGRTMAX, old_rtmax_);
    ChangeSignal(SIGPIPE, old_pipe_);
    ChangeSignal(SIGUSR1, old_usr1_);
}

}  // namespace bootweave
