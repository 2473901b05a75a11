// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <cstdint>

#include <sys/types.h>

/// \file
/// Calls of the system as the command executor and its client make them, bent for a test: the fixed paths
/// lead into a temporary directory, and a call can be made to fail. For programs that are linked with
/// bootweave_executor_sandbox, which puts these in the place of the real calls.
///
/// Threads: settings belong to the test's own thread, while no other one makes a call; faults are counted
///          from any thread.
/// Fork:    a child of ChildProcess::Fork, and the daemon that it becomes, has the settings of its fork.

namespace bootweave {

/// The calls that can fail.
enum class SystemCall {
    kAccept,
    kBind,
    kConnect,
    kDaemon,
    kEventFd,
    kFork,
    kGetSockOpt,
    kListen,
    kOpen,  ///< of a path that is redirected
    kPthreadCreate,
    kRecv,
    kSend,
    kSigaction,
    kSocket,
    kWaitPid,
};
inline constexpr int kSystemCalls = static_cast<int>(SystemCall::kWaitPid) + 1;

/// How a call fails.
struct SystemFault {
    int error;              ///< the errno; kRaise raises something that is no standard exception instead
    int skip = 0;           ///< so many calls succeed first
    int times = 1;          ///< so many calls fail then; kAlways is all of them
    bool in_child = false;  ///< only calls of forked children count, not those of the test itself

    static constexpr int kRaise = -1;
    static constexpr int kAlways = -1;
};

/// What the calls were made with, over all processes of the test.
struct SeenCalls {
    std::int64_t address_length;    ///< of the last bind or connect
    std::int64_t socket_type;       ///< of the last socket
    std::int64_t listen_backlog;    ///< of the last listen
    std::int64_t receive_timeout;   ///< the last one that was set, in microseconds
    std::int64_t daemon_arguments;  ///< of the last daemon: 10 times the first one plus the second one
    std::int64_t forks;             ///< how many there were
    std::int64_t forks_under_lock;  ///< how many of them in a thread that held the graph lock
    std::int64_t wait_status;       ///< the last one of a child
};

class SystemCalls {
  public:
    /// Forgets all settings and what was seen.
    static void Reset();
    /// Redirects the paths of the control socket, the output log, the console and the command directories to
    /// "executor.sock", "executor.log", "console" and "hostcli" in `directory`.
    static void Redirect(const char* directory);
    static void Fail(SystemCall call, const SystemFault& fault);
    /// The peer of a connection seems to be another user.
    static void PretendForeignPeer();
    /// An executor that has served its last request never comes to its end.
    static void HoldDyingExecutor();
    /// No send takes more than so many bytes; 0 is no limit.
    static void LimitSend(std::size_t bytes);
    /// A forked child takes so long to shut a socket down.
    static void DelayShutdown(std::int64_t microseconds);
    /// The process that executors become children of, and die with; 0 is none.
    static void AdoptExecutors(pid_t by);
    [[nodiscard]] static SeenCalls Seen();
};

}  // namespace bootweave
