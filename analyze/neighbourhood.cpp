// SPDX-License-Identifier: Apache-2.0
#include "analyze/neighbourhood.h"

#include <cstddef>

#include "analyze/named_plugins.h"

namespace bootweave {
namespace {

void Add(const std::vector<std::size_t>& indices, std::vector<bool>& part) {
    for (const std::size_t index : indices) {
        part[index] = true;
    }
}

}  // namespace

GraphPart PartAround(const ProfileBlock& block, const RunGraph& graph,
                     const std::optional<std::string>& name) {
    const bool all = !name.has_value();
    GraphPart part{std::vector<bool>(graph.plugins.size(), all),
                   std::vector<bool>(graph.barriers.size(), all)};
    if (all) {
        return part;
    }
    for (const std::size_t index : PluginsNamed(block, *name)) {
        const RunPlugin& plugin = graph.plugins[index];
        part.plugins[index] = true;
        Add(plugin.required, part.barriers);
        Add(plugin.provided, part.barriers);
        for (const std::size_t barrier : plugin.required) {
            Add(graph.barriers[barrier].providers, part.plugins);
        }
        for (const std::size_t barrier : plugin.provided) {
            Add(graph.barriers[barrier].requirers, part.plugins);
        }
    }
    return part;
}

}  // namespace bootweave
