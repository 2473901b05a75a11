// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <algorithm>
#include <cstddef>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "analyze/boot_profile.h"
#include "analyze/run_graph.h"

/// \file
/// What a run would take with other settings: its plugins with the times that they took, scheduled by the
/// code that schedules a boot.
///
/// Host commands run one at a time on a host, however many threads there are. The times of a serial run hold
/// no waiting for the commands of others, so that it is imagined; those of a parallel run hold what there
/// was, and stay as they are.

namespace bootweave {

/// What is to be different. Names stand for all plugins that have them.
struct WhatIf {
    std::optional<std::size_t> threads{};                   ///< workers; nothing is as the run had
    std::vector<std::string> without{};                     ///< plugins that are left out
    std::vector<std::pair<std::string, Duration>> times{};  ///< what plugins take; they run then, too
};

/// A plugin of an imagined run.
struct SimulatedPlugin {
    std::size_t plugin;  ///< index in the block
    Duration at;         ///< from the first plugin's start
    Duration taken;
};

/// What came of it. Totals hold the time in front of the first plugin and behind the last one, as recorded.
struct Simulation {
    std::size_t threads = 0;
    Duration recorded{0};   ///< what the run took, in front of the first plugin and behind the last included
    Duration simulated{0};  ///< the same of the imagined run
    Duration outside{0};    ///< the part of both that is no plugin's
    Duration work{0};       ///< of all plugins that run, added up
    Duration longest_chain{0};  ///< of plugins that wait for each other
    Duration commands{0};  ///< of plugins whose host commands wait for their turn; zero for a parallel run
    std::vector<SimulatedPlugin> plugins{};  ///< in the order in which workers take them
    std::vector<std::string> warnings{};     ///< barriers that lose their last provider

    /// What no order of the plugins on these threads can beat, and on any number of threads.
    [[nodiscard]] Duration bound() const;
    [[nodiscard]] Duration bound_of_any() const { return outside + std::max(longest_chain, commands); }
};

/// The workers that the run had, as far as can be told: one for a serial run; for a parallel one as many as
/// this host would have, or as plugins ran at a time if that is more.
[[nodiscard]] std::size_t RecordedThreads(const ProfileBlock& block);

/// Imagines a run.
///
/// \throws Exception  when a name is no plugin's, when one is left out and has a time, when nothing would
/// run, or
///                    "plugins wait for each other: a -> b -> a"
[[nodiscard]] Simulation Simulate(const ProfileBlock& block, const RunGraph& graph, const WhatIf& what_if);

}  // namespace bootweave
