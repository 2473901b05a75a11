// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>

#include "util/unique_fd.h"

namespace bootweave {

inline constexpr const char* kControlGroupRoot = "/sys/fs/cgroup";

/// Makes the control group `group` below `root`, with all above it, and opens the file through which a
/// process enters it.
///
/// \param group  relative; empty names, "." and ".." in it are refused
/// \return invalid, with errno set, where there is no second-generation hierarchy at `root`, or the group
/// cannot be made
///         or entered
[[nodiscard]] UniqueFd OpenControlGroup(const std::string& root, const std::string& group);

}  // namespace bootweave
