// SPDX-License-Identifier: Apache-2.0
#include "analyze/timing.h"

#include <algorithm>

namespace bootweave {
namespace {

double Ratio(Duration part, Duration whole) {
    return static_cast<double>(part.count()) / static_cast<double>(whole.count());
}

}  // namespace

bool WasClockSetBack(const ProfileBlock& block) {
    const bool whole = block.start.has_value() && block.end.has_value();
    return (whole && *block.end < *block.start) ||
           std::any_of(block.plugins.begin(), block.plugins.end(), [&](const PluginTimes& plugin) {
               return plugin.ran() && (plugin.end < plugin.start ||
                                       (block.start.has_value() && plugin.start < *block.start) ||
                                       (block.end.has_value() && plugin.end > *block.end));
           });
}

TimeSummary Summarize(const ProfileBlock& block) {
    TimeSummary summary;
    for (const PluginTimes& plugin : block.plugins) {
        if (plugin.ran()) {
            ++summary.ran;
            summary.plugins += plugin.taken();
        } else {
            summary.idle.push_back(plugin.name);
        }
    }
    if (block.start.has_value() && block.end.has_value() && !WasClockSetBack(block)) {
        summary.total = *block.end - *block.start;
    }
    if (summary.total.has_value() && *summary.total > Duration(0)) {
        summary.at_a_time = Ratio(summary.plugins, *summary.total);
    }
    return summary;
}

std::vector<PluginShare> Blame(const ProfileBlock& block) {
    const Duration whole = Summarize(block).plugins;
    std::vector<PluginShare> shares;
    for (const PluginTimes& plugin : block.plugins) {
        if (plugin.ran()) {
            shares.push_back({plugin, whole > Duration(0) ? Ratio(plugin.taken(), whole) : 0.0});
        }
    }
    std::stable_sort(shares.begin(), shares.end(), [](const PluginShare& one, const PluginShare& other) {
        return one.plugin.taken() > other.plugin.taken();
    });
    return shares;
}

}  // namespace bootweave
