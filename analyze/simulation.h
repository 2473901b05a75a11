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
    Duration taken;      ///< by the plugin itself
    Duration waited{0};  ///< for the turn of its host commands, besides
};

/// What came of it. Totals hold the time in front of the first plugin and behind the last one, as recorded;
/// they are empty when the profile does not tell it: when it is cut, or the clock was set back.
struct Simulation {
    std::size_t threads = 0;
    bool parallel = false;               ///< what the run was, or was taken for
    std::optional<Duration> recorded{};  ///< what the run took
    std::optional<Duration> outside{};   ///< the part of all totals that is no plugin's
    Duration makespan{0};                ///< from the first plugin's imagined start to the last end
    Duration work{0};                    ///< of all plugins that run, added up
    Duration longest_chain{0};           ///< of plugins that wait for each other
    Duration commands{0};  ///< of plugins whose host commands wait for their turn; zero for a parallel run
    std::vector<SimulatedPlugin> plugins{};  ///< in the order in which workers take them
    std::vector<std::string> warnings{};     ///< settings that are not told, barriers without a provider

    /// What the imagined run takes.
    [[nodiscard]] std::optional<Duration> simulated() const { return WithOutside(makespan); }
    [[nodiscard]] std::optional<Duration> change() const;
    /// What no order of the plugins on these threads can beat, and on any number of threads.
    [[nodiscard]] std::optional<Duration> bound() const;
    [[nodiscard]] std::optional<Duration> bound_of_any() const {
        return WithOutside(std::max(longest_chain, commands));
    }

  private:
    [[nodiscard]] std::optional<Duration> WithOutside(Duration time) const {
        return outside.has_value() ? std::optional(*outside + time) : std::nullopt;
    }
};

/// Whether the run was parallel; where the profile does not tell, whether plugins ran at the same time.
[[nodiscard]] bool WasParallel(const ProfileBlock& block);

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
