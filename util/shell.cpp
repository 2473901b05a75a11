// SPDX-License-Identifier: Apache-2.0
#include "util/shell.h"

#include <cerrno>
#include <csignal>
#include <mutex>
#include <utility>

#include <unistd.h>

#include "util/child_process.h"
#include "util/program_output.h"
#include "util/signals.h"

namespace bootweave {
namespace {

constexpr const char* kShell = "/bin/sh";
constexpr int kNoShell = 127 << 8;  // as a raw wait status

/// Ignores the keyboard's signals for as long as any shell command runs: dispositions belong to the whole
/// process, so the first command sets them and the last one puts them back.
class KeyboardSignalsIgnored {
  public:
    KeyboardSignalsIgnored() {
        const std::lock_guard lock(g_mutex);
        if (g_users++ == 0) {
            struct sigaction ignore {};
            ignore.sa_handler = SIG_IGN;
            ChangeSignal(SIGINT, ignore, &g_interrupt_before);
            ChangeSignal(SIGQUIT, ignore, &g_quit_before);
        }
    }
    ~KeyboardSignalsIgnored() {
        const std::lock_guard lock(g_mutex);
        if (--g_users == 0) {
            ChangeSignal(SIGINT, g_interrupt_before);
            ChangeSignal(SIGQUIT, g_quit_before);
        }
    }
    KeyboardSignalsIgnored(const KeyboardSignalsIgnored&) = delete;
    KeyboardSignalsIgnored& operator=(const KeyboardSignalsIgnored&) = delete;

  private:
    static inline std::mutex g_mutex;
    static inline int g_users = 0;
    static inline struct sigaction g_interrupt_before {};
    static inline struct sigaction g_quit_before {};
};

/// Keeps child signals from the calling thread.
class ChildSignalsBlocked {
  public:
    ChildSignalsBlocked() {
        sigset_t child;
        sigemptyset(&child);
        sigaddset(&child, SIGCHLD);
        ::pthread_sigmask(SIG_BLOCK, &child, &before_);
    }
    ~ChildSignalsBlocked() { ::pthread_sigmask(SIG_SETMASK, &before_, nullptr); }
    ChildSignalsBlocked(const ChildSignalsBlocked&) = delete;
    ChildSignalsBlocked& operator=(const ChildSignalsBlocked&) = delete;

  private:
    sigset_t before_{};
};

SpawnOptions ShellOptions(const std::string& command) {
    SpawnOptions options;
    options.path = kShell;
    options.argv = {"sh", "-c", command};
    options.inherit_environment = true;
    options.descriptors = {{STDIN_FILENO, STDIN_FILENO}, {STDERR_FILENO, STDERR_FILENO}};
    return options;
}

/// Whether a start failed for want of anything that a child needs, and not for want of the shell.
bool IsExhausted(int error) {
    return error == EAGAIN || error == ENOMEM || error == EMFILE || error == ENFILE;
}

}  // namespace

int RunShellCommand(const std::string& command) {
    const KeyboardSignalsIgnored keyboard;
    const ChildSignalsBlocked children;
    SpawnOptions options = ShellOptions(command);
    options.descriptors.emplace_back(STDOUT_FILENO, STDOUT_FILENO);
    std::optional<ChildProcess> child = ChildProcess::Spawn(options);
    if (!child.has_value()) {
        return IsExhausted(errno) ? -1 : kNoShell;
    }
    return child->Wait().value_or(-1);
}

std::optional<std::string> ReadShellCommand(const std::string& command) {
    std::optional<ProgramOutput> output = ReadProgram(ShellOptions(command));
    return output.has_value() ? std::optional(std::move(output->text)) : std::nullopt;
}

}  // namespace bootweave
