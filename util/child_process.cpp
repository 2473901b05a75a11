// SPDX-License-Identifier: Apache-2.0
#include "util/child_process.h"

#include <algorithm>
#include <array>
#include <csignal>
#include <cstring>

#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>
extern "C" {
#include <sys/pidfd.h>  // does not say itself, up to glibc 2.36, that its functions are C's
}

#include "util/retry.h"

namespace bootweave {
namespace {

/// Ends the process at once: what the parent still has to flush or destroy is not the child's business.
constexpr int kFailedBody = 255;

class SpawnAttributes {
  public:
    SpawnAttributes() {
        posix_spawnattr_init(&attributes_);
        sigset_t signals;
        // Not sigfillset: it leaves out the C library's own signals, which the child would then ignore.
        std::memset(&signals, 0xFF, sizeof signals);
        posix_spawnattr_setsigdefault(&attributes_, &signals);
        sigemptyset(&signals);
        posix_spawnattr_setsigmask(&attributes_, &signals);
        posix_spawnattr_setflags(&attributes_, POSIX_SPAWN_SETSIGDEF | POSIX_SPAWN_SETSIGMASK);
    }
    ~SpawnAttributes() { posix_spawnattr_destroy(&attributes_); }
    SpawnAttributes(const SpawnAttributes&) = delete;
    SpawnAttributes& operator=(const SpawnAttributes&) = delete;
    [[nodiscard]] const posix_spawnattr_t* get() const { return &attributes_; }

  private:
    posix_spawnattr_t attributes_;
};

class SpawnFileActions {
  public:
    SpawnFileActions() { posix_spawn_file_actions_init(&actions_); }
    ~SpawnFileActions() { posix_spawn_file_actions_destroy(&actions_); }
    SpawnFileActions(const SpawnFileActions&) = delete;
    SpawnFileActions& operator=(const SpawnFileActions&) = delete;

    /// \return 0 or an error number
    int Fill(const SpawnOptions& options) {
        auto wanted = options.descriptors;
        std::sort(wanted.begin(), wanted.end(), [](auto& a, auto& b) { return a.second < b.second; });
        const int above = wanted.empty() ? 0 : wanted.back().second + 1;
        int next = 0;
        for (const auto& [from, to] : wanted) {
            // A copy above all the numbers to be filled is overwritten neither by one of them nor by the
            // closing.
            copies_.emplace_back(::fcntl(from, F_DUPFD_CLOEXEC, above));
            if (!copies_.back().valid()) {
                return errno;
            }
            CloseUpTo(next, to);
            Note(posix_spawn_file_actions_adddup2(&actions_, copies_.back().get(), to));
            next = to + 1;
        }
        Note(posix_spawn_file_actions_addclosefrom_np(&actions_, next));
        if (options.directory != nullptr) {
            Note(posix_spawn_file_actions_addchdir_np(&actions_, options.directory));
        }
        return error_;
    }
    [[nodiscard]] const posix_spawn_file_actions_t* get() const { return &actions_; }

  private:
    void CloseUpTo(int first, int end) {
        for (int fd = first; fd < end; ++fd) {
            Note(posix_spawn_file_actions_addclose(&actions_, fd));
        }
    }
    void Note(int error) {
        if (error_ == 0) {
            error_ = error;
        }
    }

    posix_spawn_file_actions_t actions_;
    std::vector<UniqueFd> copies_;
    int error_ = 0;
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
    const SpawnAttributes attributes;
    SpawnFileActions actions;
    int error = actions.Fill(options);
    pid_t pid = -1;
    if (error == 0) {
        const std::vector<char*> argv = Pointers(options.argv);
        const std::vector<char*> environment = Pointers(options.environment);
        error = ::posix_spawn(&pid, options.path.c_str(), actions.get(), attributes.get(), argv.data(),
                              options.inherit_environment ? environ : environment.data());
    }
    if (error != 0) {
        errno = error;
        return std::nullopt;
    }
    return ChildProcess(pid);
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
    // A handler of this program that ran in the child would run in this program's memory.
    sigset_t all;
    sigset_t before;
    sigfillset(&all);
    ::pthread_sigmask(SIG_BLOCK, &all, &before);
    const pid_t pid = ::vfork();  // NOLINT(clang-analyzer-security.insecureAPI.vfork)
    if (pid == 0) {
        ::_exit(body());
    }
    const int error = errno;
    ::pthread_sigmask(SIG_SETMASK, &before, nullptr);
    if (pid < 0) {
        errno = error;
        return std::nullopt;
    }
    return ChildProcess(pid);
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

void ResetSignals() {
    // Not sigaction, which refuses the C library's own signals: one that was inherited as ignored would stay
    // so. All bits zero are the default, no flag and an empty mask in the kernel's structure, whatever its
    // order.
    static_assert(SIG_DFL == nullptr);
    const std::array<unsigned char, 64> default_action{};
    constexpr std::size_t kKernelSetSize = 8;
    for (int number = 1; number < NSIG; ++number) {
        // Fails for the two that cannot be changed.
        ::syscall(SYS_rt_sigaction, number, default_action.data(), nullptr, kKernelSetSize);
    }
    sigset_t none;
    sigemptyset(&none);
    ::pthread_sigmask(SIG_SETMASK, &none, nullptr);
}

}  // namespace bootweave
