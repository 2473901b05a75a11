// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>

namespace bootweave {

/// What the programs of a test's own process get when they run a shell command. For tests that wrap
/// execve.
///
/// Threads: one, and no shell commands of others meanwhile.
class ShellStub {
  public:
    /// Shell commands run again.
    static void Reset();
    /// No child can be made for them.
    static void Exhaust();
    /// Another command is run in their place.
    static void Substitute(const std::string& command);
    /// The last command that was to be run, since Reset().
    static std::string asked();
};

}  // namespace bootweave
