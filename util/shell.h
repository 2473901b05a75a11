// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <optional>
#include <string>

namespace bootweave {

/// Runs a command line through "/bin/sh -c" and waits for its end, with the contract of `system`: meanwhile
/// this process ignores the interrupt and quit signals and blocks child signals. The child has this process's
/// standard streams and environment and no other descriptor. Any thread.
///
/// \return the raw wait status; that of an exit with 127 when there is no shell; -1 only when no child could
/// be made
[[nodiscard]] int RunShellCommand(const std::string& command);

/// Runs a command line as above and reads what it writes to standard output, to its end; then waits for it.
/// How it ends does not matter.
///
/// \return nothing when the command cannot be started
/// \throws Exception  when reading fails
[[nodiscard]] std::optional<std::string> ReadShellCommand(const std::string& command);

}  // namespace bootweave
