// SPDX-License-Identifier: Apache-2.0
#include "analyze/report_text.h"

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <optional>
#include <utility>
#include <vector>

#include "analyze/field_text.h"
#include "analyze/timing.h"

namespace bootweave {
namespace {

constexpr const char* kUnknown = "unknown";
constexpr double kMuch = 0.1;  // of the whole: worth a look

std::string FormatStart(const ProfileBlock& block) {
    return block.start.has_value() ? FormatInstant(*block.start) : kUnknown;
}

std::string FormatKnown(const std::optional<Duration>& duration) {
    return duration.has_value() ? FormatDuration(*duration) : kUnknown;
}

std::string FormatPlugins(std::size_t count) {
    return std::to_string(count) + (count == 1 ? " plugin" : " plugins");
}

using Rows = std::vector<std::pair<std::string, std::string>>;

Rows RowsOf(const ChosenRun& run) {
    const TimeSummary summary = Summarize(run.block);
    Rows rows{{"Started", FormatStart(run.block)}};
    if (run.block.kind == RunKind::kBoot) {
        rows.emplace_back("Kernel handed over after",
                          run.block.kernel.has_value() ? FormatDuration(*run.block.kernel) : kUnknown);
    }
    rows.emplace_back("Total", summary.total.has_value() ? FormatDuration(*summary.total) : kUnknown);
    rows.emplace_back("Sum of plugins",
                      FormatDuration(summary.plugins) + " in " + FormatPlugins(summary.ran));
    rows.emplace_back("Parallel efficiency", summary.at_a_time.has_value()
                                                 ? FormatFixed(*summary.at_a_time, 2) + " plugins at a time"
                                                 : kUnknown);
    if (!summary.idle.empty()) {
        rows.emplace_back("Did not run", FormatPlugins(summary.idle.size()));
    }
    return rows;
}

void WriteRows(std::ostream& out, const Rows& rows, const TextStyle& style) {
    std::size_t width = 0;
    for (const auto& [label, value] : rows) {
        width = std::max(width, label.size());
    }
    for (const auto& [label, value] : rows) {
        if (style.aligned) {
            const std::string padding(width + 2 - label.size(), ' ');
            out << label << padding << Emphasized(value, Emphasis::kBold, style) << "\n";
        } else {
            out << label << "\t" << value << "\n";
        }
    }
}

std::string Title(const ChosenRun& run) {
    return "Block " + std::to_string(run.number) + " of " + std::to_string(run.count) + " in " +
           FieldText(run.path) + ": " + RunKindText(run.block.kind);
}

void WriteTitle(std::ostream& out, const ChosenRun& run, const TextStyle& style) {
    if (style.aligned) {
        out << Emphasized(Title(run), Emphasis::kBold, style) << "\n\n";
    }
}

/// "-" for a plugin that did not run.
std::string FormatTaken(const std::optional<Duration>& taken) {
    return taken.has_value() ? FormatDuration(*taken) : "-";
}

}  // namespace

void WriteListText(std::ostream& out, const std::string& path, const BootProfile& profile,
                   const TextStyle& style) {
    if (style.aligned) {
        out << Emphasized("Runs in " + FieldText(path), Emphasis::kBold, style) << "\n\n";
    }
    Table table({{"BLOCK", true, 5},
                 {"KIND", false, 0},
                 {"STARTED", false, 0},
                 {"TOTAL"},
                 {"RAN", true, 7},
                 {"PLUGINS", true, 9}});
    std::size_t number = 0;
    for (const ProfileBlock& block : profile.blocks) {
        const TimeSummary summary = Summarize(block);
        table.Add({{std::to_string(++number)},
                   {RunKindText(block.kind)},
                   {FormatStart(block)},
                   {FormatKnown(summary.total), Emphasis::kBold},
                   {std::to_string(summary.ran)},
                   {std::to_string(block.plugins.size())}});
    }
    table.Write(out, style);
}

void WriteTimeText(std::ostream& out, const ChosenRun& run, const TextStyle& style) {
    WriteTitle(out, run, style);
    WriteRows(out, RowsOf(run), style);
}

void WriteBlameText(std::ostream& out, const ChosenRun& run, const TextStyle& style) {
    WriteTitle(out, run, style);
    Table table({{"TIME"}, {"SHARE", true, 7}, {"PLUGIN", false}});
    for (const auto& [plugin, share] : Blame(run.block)) {
        table.Add({{FormatDuration(plugin.taken()), share >= kMuch ? Emphasis::kRed : Emphasis::kNone},
                   {FormatFixed(share * 100, 1) + "%"},
                   {plugin.name}});
    }
    table.Write(out, style);
}

void WriteChainText(std::ostream& out, const ChosenRun& run, const RunGraph& graph,
                    const std::vector<ChainLink>& chain, const TextStyle& style) {
    WriteTitle(out, run, style);
    Table table({{"AT"}, {"TIME"}, {"IDLE"}, {"PLUGIN", false, 0}, {"WAITED AT", false}});
    for (const ChainLink& link : chain) {
        const PluginTimes& plugin = run.block.plugins[link.plugin];
        table.Add({{FormatKnown(link.at)},
                   {FormatDuration(plugin.taken()), Emphasis::kBold},
                   {FormatKnown(link.idle)},
                   {plugin.name},
                   {link.barrier.has_value() ? graph.barriers[*link.barrier].name : "-"}});
    }
    table.Write(out, style);
}

void WriteSimulationText(std::ostream& out, const ChosenRun& run, const Simulation& simulation,
                         const TextStyle& style) {
    const std::string threads =
        std::to_string(simulation.threads) + (simulation.threads == 1 ? " thread" : " threads");
    const std::optional<Duration> change = simulation.change();
    WriteTitle(out, run, style);
    WriteRows(out,
              {{"Recorded", FormatKnown(simulation.recorded)},
               {"Simulated", FormatKnown(simulation.simulated()) + " with " + threads},
               {"Change", change.has_value() ? FormatChange(*change) : kUnknown},
               {"Bound for " + threads, FormatKnown(simulation.bound())},
               {"Bound for any number", FormatKnown(simulation.bound_of_any())}},
              style);
}

void WriteDiffText(std::ostream& out, const ChosenRun& before, const ChosenRun& after,
                   const TextStyle& style) {
    if (style.aligned) {
        out << Emphasized("Old: " + Title(before), Emphasis::kBold, style) << "\n"
            << Emphasized("New: " + Title(after), Emphasis::kBold, style) << "\n\n";
    }
    const TimeSummary old_summary = Summarize(before.block);
    const TimeSummary new_summary = Summarize(after.block);
    Table table({{"OLD"}, {"NEW"}, {"CHANGE"}, {"PLUGIN", false}});
    const bool known = old_summary.total.has_value() && new_summary.total.has_value();
    table.Add({{FormatKnown(old_summary.total)},
               {FormatKnown(new_summary.total)},
               {known ? FormatChange(*new_summary.total - *old_summary.total) : kUnknown, Emphasis::kBold},
               {"total"}});
    table.Add({{FormatDuration(old_summary.plugins)},
               {FormatDuration(new_summary.plugins)},
               {FormatChange(new_summary.plugins - old_summary.plugins), Emphasis::kBold},
               {"sum of plugins"}});
    table.AddGap();
    for (const PluginChange& plugin : ComparePlugins(before.block, after.block)) {
        // Rounded up, and divided instead of multiplied: the times of a strange log may be tremendous.
        const bool much = std::chrono::abs(plugin.change()) >= (old_summary.plugins + Duration(99)) / 100;
        const Emphasis emphasis = plugin.change() > Duration(0) ? Emphasis::kRed : Emphasis::kGreen;
        table.Add({{FormatTaken(plugin.before)},
                   {FormatTaken(plugin.after)},
                   {FormatChange(plugin.change()), much ? emphasis : Emphasis::kNone},
                   {plugin.name}});
    }
    table.Write(out, style);
}

}  // namespace bootweave
