// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <ostream>
#include <vector>

#include "graph/barrier_registry.h"
#include "graph/node.h"

namespace bootweave {

/// Writes the graph in the DOT language: the plugins in the order given, then all barriers by name, each with
/// an edge to every node that waits for it. Arrows follow the order of execution.
///
/// Identifiers are addresses: unique in one dump, different from run to run. Every line is flushed at once;
/// whoever writes to a file looks at the stream's state afterwards.
void WriteDot(std::ostream& out, const std::vector<const Node*>& plugins, const BarrierRegistry& registry);

}  // namespace bootweave
