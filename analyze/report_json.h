// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <ostream>
#include <string>
#include <vector>

#include "analyze/neighbourhood.h"
#include "analyze/report_text.h"
#include "analyze/simulation.h"
#include "analyze/verify.h"

/// \file
/// The reports as JSON, one object in one line.
///
/// Names never change their meaning; new ones may come. Times are whole microseconds (`..._us`), instants the
/// log's own stamps (UTC). What the log cannot tell is null.
///
/// time:   profile, block, blocks, kind, start, end, kernel_us, total_us, plugins_us, plugins_ran,
///         plugins_idle (names), plugins_at_a_time, settings (verbose, parallel, randomize, interactive,
///         seed)
/// blame:  profile, block, blocks, kind, plugins_us,
///         plugins (name, start, end, taken_us, share of plugins_us from 0 to 1), longest first
///
/// critical-chain:  profile, block, blocks, kind,
///         plugins (name, start, end, taken_us, at_us, idle_us, barrier: where it waited for the next one),
///         what was waited for last
/// list:   profile, blocks, runs (block, kind, line, start, end, total_us, plugins_ran, plugins: how many)
/// dot:    profile, block, blocks, kind, plugins (name, kind, ran, taken_us, critical, requires, provides:
/// names
///         of barriers) in the order of the log, barriers (name, critical, providers, requirers: names of
///         plugins)
/// simulate: profile, block, blocks, kind, threads, recorded_us, simulated_us, change_us, bound_us (for these
/// threads),
///         bound_any_us (for any number), longest_chain_us, commands_us and work_us (of plugins alone),
///         outside_us (the part of the other times that is no plugin's), plugins (name, at_us from the first
///         one's start, taken_us) in the order of their start
/// diff:   old, new (each with profile, block, blocks, kind, total_us, plugins_us), total_change_us,
///         plugins_change_us, plugins (name, old_us, new_us, change_us), greatest change first
/// verify: plugins, errors, warnings,
///         findings (file, severity, kind, plugin, text), by file

namespace bootweave {

/// Writes the runs of a log, first to last.
void WriteListJson(std::ostream& out, const std::string& path, const BootProfile& profile);

/// Writes what the run took as a whole.
void WriteTimeJson(std::ostream& out, const ChosenRun& run);

/// Writes the plugins that ran, longest first.
void WriteBlameJson(std::ostream& out, const ChosenRun& run);

/// Writes a chain.
void WriteChainJson(std::ostream& out, const ChosenRun& run, const RunGraph& graph,
                    const std::vector<ChainLink>& chain);

/// Writes the graph of a run, or a part of it. `chain` is empty when no plugin ran.
void WriteGraphJson(std::ostream& out, const ChosenRun& run, const RunGraph& graph,
                    const std::vector<ChainLink>& chain, const GraphPart& part);

/// Writes what an imagined run takes.
void WriteSimulationJson(std::ostream& out, const ChosenRun& run, const Simulation& simulation);

/// Writes what changed from one run to another.
void WriteDiffJson(std::ostream& out, const ChosenRun& before, const ChosenRun& after);

/// Writes what is wrong with the plugins.
void WriteVerifyJson(std::ostream& out, const VerifyReport& report);

}  // namespace bootweave
