// SPDX-License-Identifier: Apache-2.0
#include "analyze/critical_chain.h"

#include <algorithm>
#include <numeric>

#include "analyze/named_plugins.h"
#include "util/exception.h"

namespace bootweave {
namespace {

/// Of these plugins that ran the one that ended last; of several the first.
std::optional<std::size_t> LastToEnd(const ProfileBlock& block, const std::vector<std::size_t>& indices) {
    std::optional<std::size_t> last;
    for (const std::size_t index : indices) {
        if (block.plugins[index].ran() &&
            (!last.has_value() || block.plugins[index].end > block.plugins[*last].end)) {
            last = index;
        }
    }
    return last;
}

std::size_t Target(const ProfileBlock& block, const std::optional<std::string>& name) {
    std::vector<std::size_t> all(block.plugins.size());
    std::iota(all.begin(), all.end(), std::size_t{0});
    const std::optional<std::size_t> target =
        LastToEnd(block, name.has_value() ? PluginsNamed(block, *name) : all);
    if (!target.has_value()) {
        throw Exception(name.has_value() ? *name + " did not run" : "no plugin ran");
    }
    return *target;
}

/// Nothing when the start is not known, or the clock was set back since.
std::optional<Duration> SinceStart(const ProfileBlock& block, Instant instant) {
    const bool known = block.start.has_value() && *block.start <= instant;
    return known ? std::optional(instant - *block.start) : std::nullopt;
}

/// From the end of the one to the start of the other; nothing when that was earlier.
std::optional<Duration> Between(const PluginTimes& provider, const PluginTimes& plugin) {
    return provider.end <= plugin.start ? std::optional(plugin.start - provider.end) : std::nullopt;
}

/// The barrier that held a plugin up longest, and the plugin that did.
struct Wait {
    std::size_t barrier;
    std::size_t provider;
};

std::optional<Wait> LongestWait(const ProfileBlock& block, const RunGraph& graph, std::size_t plugin) {
    std::optional<Wait> longest;
    for (const std::size_t barrier : graph.plugins[plugin].required) {
        const std::optional<std::size_t> last = LastToEnd(block, graph.barriers[barrier].providers);
        if (last.has_value() &&
            (!longest.has_value() || block.plugins[*last].end > block.plugins[longest->provider].end)) {
            longest = {barrier, *last};
        }
    }
    return longest;
}

}  // namespace

std::vector<ChainLink> CriticalChain(const ProfileBlock& block, const RunGraph& graph,
                                     const std::optional<std::string>& name) {
    std::vector<ChainLink> chain;
    std::vector<bool> met(block.plugins.size());
    std::size_t next = Target(block, name);
    // Files that were edited since may require each other in a circle.
    while (!met[next]) {
        met[next] = true;
        const PluginTimes& plugin = block.plugins[next];
        const std::optional<Wait> wait = LongestWait(block, graph, next);
        const std::optional<Duration> at = SinceStart(block, plugin.start);
        chain.push_back(
            {next, at, wait.has_value() ? Between(block.plugins[wait->provider], plugin) : at, {}});
        if (!wait.has_value()) {
            break;
        }
        next = wait->provider;
        if (!met[next]) {
            chain.back().barrier = wait->barrier;
        }
    }
    return chain;
}

std::string CircleOf(const ProfileBlock& block, const RunGraph& graph, const std::vector<ChainLink>& chain) {
    const std::optional<Wait> wait =
        chain.empty() ? std::nullopt : LongestWait(block, graph, chain.back().plugin);
    if (!wait.has_value()) {
        return {};
    }
    std::string circle;
    for (const ChainLink& link : chain) {
        if (!circle.empty() || link.plugin == wait->provider) {
            circle += block.plugins[link.plugin].name + " -> ";
        }
    }
    return circle + block.plugins[wait->provider].name;
}

std::vector<std::string> EarlyStarts(const ProfileBlock& block, const std::vector<ChainLink>& chain) {
    std::vector<std::string> lines;
    for (std::size_t link = 0; link + 1 < chain.size(); ++link) {
        const PluginTimes& plugin = block.plugins[chain[link].plugin];
        const PluginTimes& provider = block.plugins[chain[link + 1].plugin];
        if (!Between(provider, plugin).has_value()) {
            lines.push_back(plugin.name + " began before " + provider.name +
                            " had ended: what it waited for is unknown");
        }
    }
    return lines;
}

}  // namespace bootweave
