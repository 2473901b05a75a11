// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>
#include <vector>

namespace bootweave {

/// Runs a service program, away from this process's streams and descriptors but with its environment, and
/// waits for its end.
///
/// A program that cannot be executed is logged: "execve(<path>) failure: <system's error text>". So is one
/// that there is no process for; but for that, the child says it. Called while the process has one thread.
/// \param arguments  behind the program's path, which is also its own first argument
/// \return whether it exited with status 0
bool RunService(const std::string& path, const std::vector<std::string>& arguments);

}  // namespace bootweave
