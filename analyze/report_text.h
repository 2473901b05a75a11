// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <ostream>
#include <string>
#include <vector>

#include "analyze/chosen_run.h"
#include "analyze/critical_chain.h"
#include "analyze/run_graph.h"

/// \file
/// The reports for people, and for programs that read lines.

namespace bootweave {

/// How a text is laid out. Programs get fields separated by one tab, and no header.
struct TextStyle {
    bool aligned = false;   ///< columns, and a header above them
    bool coloured = false;  ///< what matters stands out; only with `aligned`
};

/// "850us", "12.345ms", "1.234s" or "2min 3.456s"; what is left over is cut off.
[[nodiscard]] std::string FormatDuration(Duration duration);

/// Writes what the run took as a whole.
void WriteTimeText(std::ostream& out, const ChosenRun& run, const TextStyle& style);

/// Writes the plugins that ran, longest first: time taken, share of the sum in percent, name.
void WriteBlameText(std::ostream& out, const ChosenRun& run, const TextStyle& style);

/// Writes a chain: when each plugin began, from the run's start; time taken; idle time before it; name; the
/// barrier at which it waited for the next one, or "-".
void WriteChainText(std::ostream& out, const ChosenRun& run, const RunGraph& graph,
                    const std::vector<ChainLink>& chain, const TextStyle& style);

}  // namespace bootweave
