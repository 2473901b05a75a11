// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <ostream>
#include <string>
#include <vector>

#include "analyze/chosen_run.h"
#include "analyze/comparison.h"
#include "analyze/critical_chain.h"
#include "analyze/run_graph.h"
#include "analyze/simulation.h"
#include "analyze/table.h"

/// \file
/// The reports for people, and for programs that read lines.

namespace bootweave {

/// Writes the runs of a log, first to last: number, kind, start, total, plugins that ran, plugins.
void WriteListText(std::ostream& out, const std::string& path, const BootProfile& profile,
                   const TextStyle& style);

/// Writes what the run took as a whole.
void WriteTimeText(std::ostream& out, const ChosenRun& run, const TextStyle& style);

/// Writes the plugins that ran, longest first: time taken, share of the sum in percent, name.
void WriteBlameText(std::ostream& out, const ChosenRun& run, const TextStyle& style);

/// Writes a chain: when each plugin began, from the run's start; time taken; idle time before it; name; the
/// barrier at which it waited for the next one, or "-".
void WriteChainText(std::ostream& out, const ChosenRun& run, const RunGraph& graph,
                    const std::vector<ChainLink>& chain, const TextStyle& style);

/// Writes what an imagined run takes, and what bounds it.
void WriteSimulationText(std::ostream& out, const ChosenRun& run, const Simulation& simulation,
                         const TextStyle& style);

/// Writes what changed from one run to another: time taken in the old one, in the new one, the difference,
/// name;
/// "-" for a run without the plugin. The first two lines are for the totals and the sums of all plugins.
void WriteDiffText(std::ostream& out, const ChosenRun& before, const ChosenRun& after,
                   const TextStyle& style);

}  // namespace bootweave
