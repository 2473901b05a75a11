// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

#include "analyze/boot_profile.h"
#include "analyze/run_graph.h"

namespace bootweave {

/// One plugin of a chain.
struct ChainLink {
    std::size_t plugin;          ///< its index in the block
    std::optional<Duration> at;  ///< when it began, from the run's start; empty when that is not known
    /// From the end of what it waited for, or else from the run's start, to its own start: it was ready, and
    /// no worker took it. Empty when the run's start is not known, or when it had begun before that end: it
    /// did not wait for that then, or the clock was set back.
    std::optional<Duration> idle;
    /// The index of the barrier at which it waited for the next one of the chain; the last one has none.
    std::optional<std::size_t> barrier;
};

/// What held up a plugin, the plugin itself first: from each the way goes to that provider which ended last,
/// until one waited for none.
///
/// \param graph  of the block
/// \param name   the plugin; nothing is the one that ended last. Of several runs of it, the last counts.
/// \throws Exception  when there is no such plugin, or it did not run
[[nodiscard]] std::vector<ChainLink> CriticalChain(const ProfileBlock& block, const RunGraph& graph,
                                                   const std::optional<std::string>& name);

/// Those of a chain that wait for each other, "a -> b -> a", when it ends in a circle; empty for any other.
/// No run has had one: files were changed since.
[[nodiscard]] std::string CircleOf(const ProfileBlock& block, const RunGraph& graph,
                                   const std::vector<ChainLink>& chain);

/// A line for each of a chain that had begun before what it should have waited for ended. No run has had one:
/// files were changed since, or the clock was set back.
[[nodiscard]] std::vector<std::string> EarlyStarts(const ProfileBlock& block,
                                                   const std::vector<ChainLink>& chain);

}  // namespace bootweave
