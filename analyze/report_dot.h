// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <ostream>
#include <vector>

#include "analyze/chosen_run.h"
#include "analyze/critical_chain.h"
#include "analyze/neighbourhood.h"
#include "analyze/run_graph.h"

namespace bootweave {

/// Writes the graph of a run, or a part of it, in the DOT language: plugins with their kinds and times,
/// barriers, the critical chain marked. Arrows follow the order of execution.
///
/// Identifiers are "plugin:NAME", "plugin/2:NAME" for the second one of a name and so on, and "barrier:NAME":
/// the same from boot to boot.
/// \param chain  empty when no plugin ran
void WriteGraphDot(std::ostream& out, const ChosenRun& run, const RunGraph& graph,
                   const std::vector<ChainLink>& chain, const GraphPart& part);

}  // namespace bootweave
