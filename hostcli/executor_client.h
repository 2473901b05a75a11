// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <memory>
#include <string>

#include "util/unique_fd.h"

namespace bootweave {

/// The command executor, as the driver sees it: a daemonised process of its own that runs host management
/// commands one at a time, so that nothing a command does can harm the boot.
///
/// Life:    none running -> Reset() -> listening -> Stop() -> none running. RunCommand resets on demand.
/// Threads: RunCommand from any thread; each call uses a connection of its own. Reset is called under the
///          graph lock, so that threads that all fail to connect start one executor, not several.
class HostcliExecutor {
  public:
    /// Makes the process ignore SIGPIPE: writing to an executor that has gone away is an error, not the end.
    HostcliExecutor();

    /// The process's executor, made on first use and alive until exit. Any thread.
    [[nodiscard]] static std::shared_ptr<HostcliExecutor> Instance();

    /// Makes sure that an executor answers; starts one when none does, and waits until it listens.
    ///
    /// A socket file that an earlier executor left behind makes the start fail: whoever starts this program
    /// removes it.
    /// \throws Exception  saying what failed; the reasons inside the new process are in its own log
    void Reset();

    /// Has the executor run one command, and waits for its end.
    ///
    /// Without an executor that answers it is reset, up to 10 times. Once connected nothing is repeated: the
    /// command may have run.
    /// \throws Exception  when the command failed or its outcome could not be learned
    void RunCommand(const std::string& command);

    /// Asks the executor to stop and waits until it does. An executor that is gone is fine. For want of
    /// descriptors or memory it tries again, for about a second.
    /// \throws Exception  "Failed sending STOP to executor" and the system's error text
    void Stop();

    /// Opens a connection to the executor.
    ///
    /// \param log_errors  whether a failed connect is a level 2 line; a failed socket call always is
    /// \return the connection, or an invalid descriptor with errno set
    [[nodiscard]] UniqueFd Connect(bool log_errors);

  private:
    [[nodiscard]] UniqueFd ConnectOrReset();
    [[nodiscard]] UniqueFd ConnectToStop();
};

}  // namespace bootweave
