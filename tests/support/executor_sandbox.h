// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>
#include <vector>

#include <sys/types.h>

#include "tests/support/temp_dir.h"

namespace bootweave {

/// A place of its own for real command executors: their socket, log and commands are in a temporary
/// directory, and none of them outlives the test, however it ends.
///
/// Executors are daemons; here this process adopts them, so that it can wait for them and kill them. One
/// sandbox at a time, and no other children of the test's own meanwhile.
class ExecutorSandbox {
  public:
    ExecutorSandbox();
    /// Kills and reaps what is left.
    ~ExecutorSandbox();
    ExecutorSandbox(const ExecutorSandbox&) = delete;
    ExecutorSandbox& operator=(const ExecutorSandbox&) = delete;

    [[nodiscard]] const TempDir& dir() const { return dir_; }
    [[nodiscard]] std::string socket_path() const { return dir_.File("executor.sock"); }

    /// Puts a shell script into the first command directory.
    void AddCommand(const std::string& name, const std::string& script) const;

    /// What executors logged and their commands printed: log lines are "LEVEL text".
    [[nodiscard]] std::string Log() const;
    /// Waits, within a bound, until the log holds `text`. \return false when it never did
    [[nodiscard]] bool WaitForLog(const std::string& text) const;

    /// The executors that are there, ended or not.
    [[nodiscard]] static std::vector<pid_t> Executors();
    /// Waits, within a bound, for the end of the one executor. \return how it ended, or that it did not
    [[nodiscard]] static std::string WaitForEnd();
    /// Kills and reaps every executor. The socket file stays.
    static void KillExecutors();

  private:
    TempDir dir_;
};

}  // namespace bootweave
