// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <csignal>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "util/child_process.h"
#include "util/unique_fd.h"

/// \file
/// Children for the tests of child processes: one that reports what it was given, one that waits to be ended.

namespace bootweave {

/// A SigBlk or SigIgn line of /proc/self/status without any signal.
inline constexpr char kNoSignals[] = "0000000000000000";

/// The value of one line of /proc/self/status.
std::string StatusLine(const std::string& name);

/// Which descriptors this process has, but the one that looks.
std::set<int> OpenDescriptors();

/// Writes a text with one write; fails the test when it is not taken whole.
void WriteAll(int fd, const std::string& text);

/// Everything up to the end of a pipe.
std::string ReadToEnd(const UniqueFd& end);

/// Options that name a program and its words and nothing else.
SpawnOptions Program(const std::string& path, std::vector<std::string> argv = {"x"});

/// This test program in one of the roles:
/// "report" says on standard output what it was given: signals, descriptors, arguments, environment,
/// directory; "read-descriptors" reads a line from each descriptor named and says them on standard output;
/// "wait-for-end" waits until its standard input ends, then exits with the status given.
SpawnOptions Role(const std::string& role, std::vector<std::string> arguments = {});

/// Runs a child with a pipe for standard output beside the descriptors it has; returns what it wrote.
std::string OutputOf(SpawnOptions options);

/// The lines of a report that begin with `name`, without it.
std::vector<std::string> Lines(const std::string& report, const std::string& name);

/// What starting fails with; 0 when it does not.
int SpawnError(const SpawnOptions& options);

/// Whether this process has no child, neither one that runs nor one that is still to be reaped.
bool HasNoChild();

/// A child that runs until its standard input ends.
struct Waiter {
    UniqueFd input;
    std::optional<ChildProcess> child;

    /// Starts it; it will exit with `status`.
    explicit Waiter(int status);
};

/// Ignores and blocks signals for as long as it lives.
class DisturbedSignals {
  public:
    DisturbedSignals();
    ~DisturbedSignals();
    DisturbedSignals(const DisturbedSignals&) = delete;
    DisturbedSignals& operator=(const DisturbedSignals&) = delete;

  private:
    struct sigaction old_usr1_ {};
    struct sigaction old_pipe_ {};
    struct sigaction old_rtmax_ {};
    sigset_t old_mask_{};
};

}  // namespace bootweave
