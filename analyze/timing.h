// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

#include "analyze/boot_profile.h"

/// \file
/// What the stamps of a run add up to.

namespace bootweave {

/// A run in a few numbers; those that its block cannot tell are empty.
struct TimeSummary {
    std::optional<Duration> total{};    ///< from its start to its end; empty when the clock was set back
    Duration plugins{0};                ///< of all that ran, added up
    std::size_t ran = 0;                ///< how many did
    std::vector<std::string> idle;      ///< the names of those that did not, in the order of the log
    std::optional<double> at_a_time{};  ///< how many plugins ran at a time, on average over the total
};

/// Whether the stamps of a run go backwards: it, or one of its plugins, ends before it starts, or a plugin
/// ran before or after the run. No difference of two stamps is then to be trusted.
[[nodiscard]] bool WasClockSetBack(const ProfileBlock& block);

/// Adds up one run.
[[nodiscard]] TimeSummary Summarize(const ProfileBlock& block);

/// One plugin's part of a run.
struct PluginShare {
    PluginTimes plugin;
    double share;  ///< of the sum of all plugins, 0 to 1
};

/// The plugins that ran, longest first; of those that took the same time the first in the log.
[[nodiscard]] std::vector<PluginShare> Blame(const ProfileBlock& block);

}  // namespace bootweave
