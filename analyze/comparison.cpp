// SPDX-License-Identifier: Apache-2.0
#include "analyze/comparison.h"

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <map>
#include <utility>

namespace bootweave {

std::vector<PluginChange> ComparePlugins(const ProfileBlock& before, const ProfileBlock& after) {
    std::vector<PluginChange> changes;
    std::map<std::string, std::vector<std::size_t>> by_name;  // indices of changes
    for (const PluginTimes& plugin : after.plugins) {
        if (plugin.ran()) {
            by_name[plugin.name].push_back(changes.size());
            changes.push_back({plugin.name, std::nullopt, plugin.taken()});
        }
    }
    std::map<std::string, std::size_t> met;
    for (const PluginTimes& plugin : before.plugins) {
        if (!plugin.ran()) {
            continue;
        }
        const std::vector<std::size_t>& same = by_name[plugin.name];
        const std::size_t place = met[plugin.name]++;
        if (place < same.size()) {
            changes[same[place]].before = plugin.taken();
        } else {
            changes.push_back({plugin.name, plugin.taken(), std::nullopt});
        }
    }
    std::stable_sort(changes.begin(), changes.end(), [](const PluginChange& one, const PluginChange& other) {
        return std::chrono::abs(one.change()) > std::chrono::abs(other.change());
    });
    return changes;
}

}  // namespace bootweave
