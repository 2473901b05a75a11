// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <chrono>
#include <functional>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include <sys/types.h>

#include "util/unique_fd.h"

/// \file
/// Child processes, each with exactly one owner. The one door through which the program starts another one.
///
/// Life:    Spawn(), Fork() or ForkToExec() -> running -> Wait() -> ended.
/// Threads: one thread at a time per object; different objects are independent.
/// Fork:    Spawn() neither takes a lock nor allocates between fork and exec. What a body of the others may
///          do is said there.

namespace bootweave {

/// How a child ended. Exactly one field is set.
struct ExitStatus {
    std::optional<int> code;    ///< exit status, 0 to 255
    std::optional<int> signal;  ///< number of the signal that ended it

    [[nodiscard]] bool success() const { return code == 0; }
    /// From a raw wait status of a child that ended.
    [[nodiscard]] static ExitStatus FromRaw(int raw);
    /// "exited with status N" or "killed by signal N".
    [[nodiscard]] std::string Describe() const;
};

/// What to run and what it inherits. Everything that is not named here is closed or reset: the child has
/// default signal dispositions, an empty signal mask and no other descriptor.
struct SpawnOptions {
    std::string path;                              ///< the program, absolute; no search
    std::vector<std::string> argv;                 ///< one word or more
    std::vector<std::string> environment;          ///< "NAME=value" each, unless inherited
    bool inherit_environment = false;              ///< the child gets this process's own environment
    std::vector<std::pair<int, int>> descriptors;  ///< from here, to there, as if all at once
    const char* directory = nullptr;               ///< working directory; null keeps this process's
};

/// Owns a running child. Destroying one that nobody waited for kills and reaps it, so that an exception
/// leaves neither a zombie nor a stray process; Release() leaves one running on purpose.
class ChildProcess {
  public:
    ChildProcess(ChildProcess&& other) noexcept;
    ChildProcess& operator=(ChildProcess&&) = delete;
    ChildProcess(const ChildProcess&) = delete;
    ChildProcess& operator=(const ChildProcess&) = delete;
    ~ChildProcess();

    /// Starts a program; returns once its exec has succeeded.
    ///
    /// \return nothing, with errno set, when it cannot be started
    [[nodiscard]] static std::optional<ChildProcess> Spawn(const SpawnOptions& options);

    /// Starts a program that nobody here waits for and that never becomes a zombie of this process; returns
    /// once its exec has succeeded. Costs a fork more than Spawn().
    ///
    /// \return false, with errno set, when it cannot be started
    [[nodiscard]] static bool SpawnDetached(const SpawnOptions& options);

    /// Starts a child that goes on in this program: it runs `body` and ends with the status that it returns,
    /// or 255 when it throws, without returning to the caller and without running destructors or exit
    /// handlers. Other threads may hold any lock at that moment; the body must not take one they may hold.
    ///
    /// \return nothing, with errno set, when there is no process to be had
    [[nodiscard]] static std::optional<ChildProcess> Fork(const std::function<int()>& body);

    /// Starts a child that is to become another program, without the cost of copying this one: it borrows
    /// this process's memory while the calling thread sleeps, until it has called exec or ended. `body` makes
    /// calls of the system only: no allocation, no lock, no exception. It begins with all signals blocked,
    /// ends that by ResetChangedSignals(), and returns only when there is no exec: the error number, not 0.
    ///
    /// \return nothing, with errno set, when there is no process to be had, or to what `body` returned
    [[nodiscard]] static std::optional<ChildProcess> ForkToExec(const std::function<int()>& body);

    [[nodiscard]] pid_t pid() const { return pid_; }

    /// A descriptor, close-on-exec, that polls readable from the child's end on; the child is still to be
    /// waited for. Invalid, with errno set, where the kernel has none (before 5.3) or has no more.
    [[nodiscard]] UniqueFd OpenEndFd() const;

    /// Waits for the end, in the kernel.
    ///
    /// \return the raw wait status, or nothing, with errno set, when waiting fails (ECHILD for a child that
    ///         is no longer owned). Either way the child is no longer owned.
    [[nodiscard]] std::optional<int> Wait();

    /// What WaitFor saw.
    struct WaitResult {
        bool timed_out;          ///< the child still runs, and is still owned
        std::optional<int> raw;  ///< the raw wait status; nothing, with errno set, when waiting failed
    };

    /// Waits for the end by the steady clock, in the kernel; it wakes when the child ends.
    [[nodiscard]] WaitResult WaitFor(std::chrono::milliseconds timeout);

    /// Takes ownership of a child that this process started some other way.
    [[nodiscard]] static ChildProcess Adopt(pid_t pid) { return ChildProcess(pid); }

    /// Gives up ownership: the child runs on and the caller sees to reaping it.
    [[nodiscard]] pid_t Release() { return std::exchange(pid_, -1); }

  private:
    explicit ChildProcess(pid_t pid) : pid_(pid) {}

    pid_t pid_;
};

}  // namespace bootweave
