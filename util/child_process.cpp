// SPDX-License-Identifier: Apache-2.0
#include "util/child_process.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstddef>

#include <fcntl.h>
#include <poll.h>
#include <sched.h>
#include <sys/wait.h>
#include <unistd.h>
extern "C" {
#include <sys/pidfd.h>  // does not say itself, up to glibc 2.36, that its functions are C's
}

#include "util/retry.h"
#include "util/signals.h"
#include "util/standard_streams.h"

namespace bootweave {
namespace {

/// Ends the process at once: what the parent still has to flush or destroy is not the child's business.
constexpr int kFailedBody = 255;

/// What becomes of the descriptors of a program to be started.
class DescriptorPlan {
  public:
    /// Before the fork. \return false, with errno set, when there is no descriptor left for a copy
    bool Make(const SpawnOptions& options) {
        moves_ = options.descriptors;
        std::sort(moves_.begin(), moves_.end(), [](auto& a, auto& b) { return a.second < b.second; });
        const int above = moves_.empty() ? 0 : moves_.back().second + 1;
        for (auto& [from, to] : moves_) {
            if (from >= above) {
                continue;
            }
            // A copy above all the numbers to be filled is overwritten neither by one of them nor by the
            // closing.
            copies_.emplace_back(::fcntl(from, F_DUPFD_CLOEXEC, above));
            if (!copies_.back().valid()) {
                return false;
            }
            from = copies_.back().get();
        }
        return true;
    }

    /// In the child. \return false with errno set
    [[nodiscard]] bool Apply() const {
        int next = 0;
        for (const auto& [from, to] : moves_) {
            for (; next < to; ++next) {
                ::close(next);
            }
            if (RetryOnEintr([&, from = from, to = to] { return ::dup2(from, to); }) < 0) {
                return false;
            }
            ++next;
        }
        CloseDescriptorsFrom(next);
        return true;
    }

  private:
    std::vector<std::pair<int, int>> moves_;  ///< from a number above all others, to; the lowest first
    std::vector<UniqueFd> copies_;
};

/// Sleeps until `fd` is readable (an invalid one never is), the time is up, or a signal comes.
void SleepUntilReadable(const UniqueFd& fd, std::chrono::nanoseconds time) {
    constexpr std::int64_t kNanosecondsPerSecond = 1'000'000'000;
    const timespec limit{.tv_sec = time.count() / kNanosecondsPerSecond,
                         .tv_nsec = time.count() % kNanosecondsPerSecond};
    pollfd wanted{.fd = fd.get(), .events = POLLIN, .revents = 0};
    ::ppoll(&wanted, 1, &limit, nullptr);
}

std::vector<char*> Pointers(const std::vector<std::string>& words) {
    std::vector<char*> pointers;
    pointers.reserve(words.size() + 1);
    for (const std::string& word : words) {
        pointers.push_back(const_cast<char*>(word.c_str()));
    }
    pointers.push_back(nullptr);
    return pointers;
}

}  // namespace

ExitStatus ExitStatus::FromRaw(int raw) {
    if (WIFSIGNALED(raw)) {
        return {.code = {}, .signal = WTERMSIG(raw)};
    }
    return {.code = WEXITSTATUS(raw), .signal = {}};
}

std::string ExitStatus::Describe() const {
    if (signal.has_value()) {
        return "killed by signal " + std::to_string(*signal);
    }
    return "exited with status " + std::to_string(code.value_or(0));
}

ChildProcess::ChildProcess(ChildProcess&& other) noexcept : pid_(std::exchange(other.pid_, -1)) {}

ChildProcess::~ChildProcess() {
    if (pid_ > 0) {
        ::kill(pid_, SIGKILL);
        static_cast<void>(Wait());
    }
}

std::optional<ChildProcess> ChildProcess::Spawn(const SpawnOptions& options) {
    DescriptorPlan descriptors;
    if (!descriptors.Make(options)) {
        return std::nullopt;
    }
    const std::vector<char*> argv = Pointers(options.argv);
    const std::vector<char*> own_environment = Pointers(options.environment);
    char* const* const environment = options.inherit_environment ? environ : own_environment.data();
    return ForkToExec([&] {
        if (descriptors.Apply() && (options.directory == nullptr || ::chdir(options.directory) == 0)) {
            ResetChangedSignals();
            ::execve(options.path.c_str(), argv.data(), environment);
        }
        return errno;
    });
}

bool ChildProcess::SpawnDetached(const SpawnOptions& options) {
    // The child between ends at once, so that whoever reaps orphans reaps the program. Its status is the
    // errno.
    auto between = Fork([&options] {
        auto program = Spawn(options);
        if (!program.has_value()) {
            return errno;
        }
        static_cast<void>(program->Release());
        return 0;
    });
    const std::optional<int> raw = between.has_value() ? between->Wait() : std::nullopt;
    if (!raw.has_value()) {
        return false;
    }
    const ExitStatus status = ExitStatus::FromRaw(*raw);
    if (!status.success()) {
        errno = status.code.value_or(ECHILD);
    }
    return status.success();
}

std::optional<ChildProcess> ChildProcess::Fork(const std::function<int()>& body) {
    const pid_t pid = ::fork();
    if (pid < 0) {
        return std::nullopt;
    }
    if (pid == 0) {
        int status = kFailedBody;
        try {
            status = body();
        } catch (...) {
            status = kFailedBody;
        }
        ::_exit(status);
    }
    return ChildProcess(pid);
}

std::optional<ChildProcess> ChildProcess::ForkToExec(const std::function<int()>& body) {
    // For calls of the system, and what the sanitizers add to each function.
    constexpr std::size_t kStackSize = 32'768;
    alignas(16) std::array<std::byte, kStackSize> stack;
    struct Start {
        const std::function<int()>& body;
        int error;
    } start{.body = body, .error = 0};
    const auto run = [](void* data) {
        auto& started = *static_cast<Start*>(data);
        started.error = started.body();
        return kFailedBody;
    };
    NoteChangedSignals();
    // A handler of this program that ran in the child would run in this program's memory.
    sigset_t all;
    sigset_t before;
    sigfillset(&all);
    ::pthread_sigmask(SIG_BLOCK, &all, &before);
    const pid_t pid = ::clone(run, stack.data() + stack.size(), CLONE_VM | CLONE_VFORK | SIGCHLD, &start);
    const int error = pid < 0 ? errno : start.error;
    ::pthread_sigmask(SIG_SETMASK, &before, nullptr);
    if (error == 0) {
        return ChildProcess(pid);
    }
    static_cast<void>(ChildProcess(pid).Wait());
    errno = error;
    return std::nullopt;
}

UniqueFd ChildProcess::OpenEndFd() const {
    return UniqueFd(::pidfd_open(pid_, 0));
}

std::optional<int> ChildProcess::Wait() {
    const pid_t pid = Release();
    if (pid <= 0) {
        errno = ECHILD;  // the kernel would take it for any child and reap somebody else's
        return std::nullopt;
    }
    int raw = 0;
    if (RetryOnEintr([&] { return ::waitpid(pid, &raw, 0); }) != pid) {
        return std::nullopt;
    }
    return raw;
}

ChildProcess::WaitResult ChildProcess::WaitFor(std::chrono::milliseconds timeout) {
    using Clock = std::chrono::steady_clock;
    constexpr std::chrono::milliseconds kTick(10);
    if (pid_ <= 0) {
        errno = ECHILD;  // as for Wait()
        return {.timed_out = false, .raw = {}};
    }
    // Enough for any caller, and no overflow when it is added to the clock.
    const Clock::time_point deadline =
        Clock::now() + std::min<std::chrono::milliseconds>(timeout, std::chrono::years(100));
    const UniqueFd end = OpenEndFd();
    for (;;) {
        int raw = 0;
        const pid_t waited = RetryOnEintr([&] { return ::waitpid(pid_, &raw, WNOHANG); });
        if (waited != 0) {
            const bool ended = waited == pid_;
            static_cast<void>(Release());
            return {.timed_out = false, .raw = ended ? std::optional(raw) : std::nullopt};
        }
        const auto left = deadline - Clock::now();
        if (left <= Clock::duration::zero()) {
            return {.timed_out = true, .raw = {}};
        }
        // A kernel without descriptors for processes is asked again every tick.
        SleepUntilReadable(end, end.valid() ? left : std::min<Clock::duration>(left, kTick));
    }
}

}  // namespace bootweave
