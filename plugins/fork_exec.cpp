// SPDX-License-Identifier: Apache-2.0
#include "plugins/fork_exec.h"

#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <optional>
#include <vector>

#include <boost/tokenizer.hpp>

#include <fcntl.h>
#include <sys/wait.h>

#include "platform/fork_exec.h"
#include "platform/log.h"
#include "util/child_process.h"
#include "util/error_text.h"
#include "util/exception.h"
#include "util/retry.h"
#include "util/run_config.h"
#include "util/unique_fd.h"

namespace bootweave {
namespace {

UniqueFd Open(const char* path, int flags) {
    return UniqueFd(RetryOnEintr([&] { return ::open(path, flags | O_CLOEXEC | O_NOCTTY); }));
}

/// A FIFO that nobody reads fails: waiting for its reader would hold up the boot.
UniqueFd OpenSystemLog() {
    UniqueFd log = Open("/dev/log", O_WRONLY | O_NONBLOCK);
    if (log.valid()) {
        ::fcntl(log.get(), F_SETFL, 0);  // it is for programs that expect to write as usual
    }
    return log;
}

/// A process that cannot even open its root has nothing left to stand on.
[[noreturn]] void Panic(const char* file, int line) {
    Log_Level(2, "VERIFY %s:%d\n", file, line);
    std::abort();
}

/// What the program gets for its standard streams. Each falls back on the one before it.
struct Streams {
    UniqueFd root;
    UniqueFd null_device;
    UniqueFd system_log;

    static Streams OpenAll() {
        Streams streams{Open("/", O_RDONLY), Open("/dev/null", O_RDWR), {}};
        if (streams.root.get() < 1) {
            Panic(__FILE__, __LINE__);
        }
        if (!streams.null_device.valid()) {
            Log_Level(3, "opening /dev/null failed\n");
        }
        streams.system_log = OpenSystemLog();
        return streams;
    }

    [[nodiscard]] ForkExecDescriptors descriptors() const {
        const int null_or_root = null_device.valid() ? null_device.get() : root.get();
        const int error = system_log.valid() ? system_log.get() : null_or_root;
        return {.root = root.get(), .input = null_or_root, .output = null_or_root, .error = error};
    }
};

ChildProcess StartProgram(const std::string& command_line) {
    using Blanks = boost::char_separator<char>;
    const boost::tokenizer<Blanks> tokens(command_line, Blanks(" "));
    std::vector<std::string> words(tokens.begin(), tokens.end());
    std::vector<char*> argv;
    argv.reserve(words.size() + 1);
    for (std::string& word : words) {
        argv.push_back(word.data());
    }
    argv.push_back(nullptr);
    const Streams streams = Streams::OpenAll();
    errno = ENOENT;  // for a line without a word
    const pid_t pid = words.empty() ? -1 : Host_ForkExec(argv[0], argv.data(), 0, streams.descriptors());
    if (pid < 0) {
        throw Exception("failed to ForkExec '" + command_line + "' : " + LastErrorText());
    }
    return ChildProcess::Adopt(pid);
}

/// How long to wait, in ticks of 10 milliseconds, rounded up.
std::chrono::milliseconds Budget(const RunConfig& config) {
    constexpr std::uint64_t kTick = 10;  // milliseconds
    constexpr std::uint64_t kTicksUnlessWaiting = 1000;
    const std::uint64_t ticks = config.daemon_wait
                                    ? (std::uint64_t{config.daemon_wait_timeout} * 1000 + kTick - 1) / kTick
                                    : kTicksUnlessWaiting;
    return std::chrono::milliseconds(ticks * kTick);
}

[[noreturn]] void Fail(const std::string& command_line, const std::string& how) {
    throw Exception("Execution of command: " + command_line + " failed" + how);
}

void CheckStatus(const std::string& command_line, int raw) {
    if (WIFEXITED(raw) && WEXITSTATUS(raw) == 0) {
        return;
    }
    if (WIFEXITED(raw)) {
        Fail(command_line, " with status: " + std::to_string(WEXITSTATUS(raw)));
    }
    if (WIFSIGNALED(raw)) {
        Fail(command_line, " with signal: " + std::to_string(WTERMSIG(raw)));
    }
    Fail(command_line, " <unknown_error>");
}

}  // namespace

void ForkExec(const std::string& /*name*/, const std::string& command_line) {
    const auto config = RunConfig::Instance();
    ChildProcess child = StartProgram(command_line);
    const std::chrono::milliseconds budget = Budget(*config);
    const ChildProcess::WaitResult result =
        budget.count() > 0 ? child.WaitFor(budget) : ChildProcess::WaitResult{.timed_out = true, .raw = {}};
    if (!result.timed_out) {
        if (!result.raw.has_value()) {
            Fail(command_line, " <unknown_error>");
        }
        CheckStatus(command_line, *result.raw);
        return;
    }
    static_cast<void>(child.Release());  // left running, in both modes
    if (config->daemon_wait) {
        // With quotes, unlike the messages above; log scanners match both forms.
        throw Exception("Execution of command: '" + command_line + "' timed out.");
    }
}

}  // namespace bootweave
