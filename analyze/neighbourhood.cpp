// SPDX-License-Identifier: Apache-2.0
#include "analyze/neighbourhood.h"

#include <cstddef>

#include "util/exception.h"

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
    bool found = false;
    for (std::size_t index = 0; index < graph.plugins.size(); ++index) {
        if (block.plugins[index].name != *name) {
            continue;
        }
        found = true;
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
    if (!found) {
        throw Exception("the profile has no plugin " + *name);
    }
    return part;
}

}  // namespace bootweave
