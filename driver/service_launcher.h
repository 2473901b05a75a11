// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>
#include <vector>

namespace bootweave {

/// Runs a service program, away from this process's streams and descriptors but with its environment, and
/// waits for its end.
///
/// A program that cannot be executed is logged in the child: "execve(<path>) failure: <system's error text>".
/// Called while the process has one thread.
/// \param arguments  behind the program's path, which is also its own first argument
/// \return whether it exited with status 0
bool RunService(const std::string& path, const std::vector<std::string>& arguments);

}  // namespace bootweave
