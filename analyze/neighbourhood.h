// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "analyze/boot_profile.h"
#include "analyze/run_graph.h"

namespace bootweave {

/// Which part of a graph is shown, by index.
struct GraphPart {
    std::vector<bool> plugins;
    std::vector<bool> barriers;
};

/// The plugins of that name, the barriers that they require and provide, those that provide what they require
/// and those that require what they provide; without a name all.
///
/// \throws Exception  when there is no such plugin
[[nodiscard]] GraphPart PartAround(const ProfileBlock& block, const RunGraph& graph,
                                   const std::optional<std::string>& name);

}  // namespace bootweave
