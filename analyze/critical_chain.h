// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

#include "analyze/boot_profile.h"

namespace bootweave {

/// One plugin of a chain.
struct ChainLink {
    PluginTimes plugin;
    std::optional<Duration> at;  ///< when it began, from the run's start; empty when that is not known
    /// From the end of what it waited for, or else from the run's start, to its own start: it was ready, and
    /// no worker took it. Empty when the run's start is not known.
    std::optional<Duration> idle;
};

/// What held up a plugin, the plugin itself first: from each the way goes to that provider which ended last,
/// until one waited for none.
///
/// \param providers  as PluginNeeds has them
/// \param name       the plugin; nothing is the one that ended last. Of several runs of it, the last counts.
/// \throws Exception  when there is no such plugin, or it did not run
[[nodiscard]] std::vector<ChainLink> CriticalChain(const ProfileBlock& block,
                                                   const std::vector<std::vector<std::size_t>>& providers,
                                                   const std::optional<std::string>& name);

}  // namespace bootweave
