// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "analyze/boot_profile.h"

namespace bootweave {

/// What one plugin took in two runs.
struct PluginChange {
    std::string name;
    std::optional<Duration> before;  ///< empty when it did not run in the old one
    std::optional<Duration> after;   ///< empty when it did not run in the new one

    /// Above zero when the new run took more; a run without the plugin took none for it.
    [[nodiscard]] Duration change() const {
        return after.value_or(Duration(0)) - before.value_or(Duration(0));
    }
};

/// The plugins that ran in either run, greatest change first, equal ones in the order of the new log and then
/// of the old one. Of those that share a name the first is compared with the first, and so on.
[[nodiscard]] std::vector<PluginChange> ComparePlugins(const ProfileBlock& before, const ProfileBlock& after);

}  // namespace bootweave
