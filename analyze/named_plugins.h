// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "analyze/boot_profile.h"

namespace bootweave {

/// The indices of the plugins of that name, which somebody has typed. There is one at least.
///
/// \throws Exception  "the profile has no plugin <name>", with the name that may have been meant
[[nodiscard]] std::vector<std::size_t> PluginsNamed(const ProfileBlock& block, const std::string& name);

}  // namespace bootweave
