// SPDX-License-Identifier: Apache-2.0
#include "analyze/report_json.h"

#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include <boost/json.hpp>

#include "analyze/table.h"
#include "analyze/timing.h"
#include "analyze/utf8_text.h"

namespace bootweave {
namespace {

namespace json = boost::json;

json::string Utf8(std::string_view text) {
    return {Utf8Text(text)};
}

json::value Stamp(const std::optional<Instant>& instant) {
    return instant.has_value() ? json::value(json::string(FormatInstant(*instant))) : json::value();
}

json::value Count(const std::optional<Duration>& duration) {
    return duration.has_value() ? json::value(duration->count()) : json::value();
}

template <typename Value>
json::value Known(const std::optional<Value>& value) {
    return value.has_value() ? json::value(*value) : json::value();
}

json::object ReportOn(const ChosenRun& run) {
    return {{"profile", Utf8(run.path)},
            {"block", run.number},
            {"blocks", run.count},
            {"kind", RunKindText(run.block.kind)}};
}

/// One side of a comparison.
json::object SideOf(const ChosenRun& run, const TimeSummary& summary) {
    json::object side = ReportOn(run);
    side["total_us"] = Count(summary.total);
    side["plugins_us"] = summary.plugins.count();
    return side;
}

json::object SettingsOf(const RunSettings& settings) {
    return {{"verbose", Known(settings.verbose)},
            {"parallel", Known(settings.parallel)},
            {"randomize", Known(settings.randomize)},
            {"interactive", Known(settings.interactive)},
            {"seed", Known(settings.seed)}};
}

/// The names of those neighbours that are part of what is shown.
template <typename NameOf>
json::array Names(const std::vector<std::size_t>& indices, const std::vector<bool>& part, NameOf name_of) {
    json::array names;
    for (const std::size_t index : indices) {
        if (part[index]) {
            names.push_back(Utf8(name_of(index)));
        }
    }
    return names;
}

}  // namespace

void WriteListJson(std::ostream& out, const std::string& path, const BootProfile& profile) {
    json::array runs;
    for (const ProfileBlock& block : profile.blocks) {
        const TimeSummary summary = Summarize(block);
        runs.push_back(json::object{{"block", runs.size() + 1},
                                    {"kind", RunKindText(block.kind)},
                                    {"line", block.line},
                                    {"start", Stamp(block.start)},
                                    {"end", Stamp(block.end)},
                                    {"total_us", Count(summary.total)},
                                    {"plugins_ran", summary.ran},
                                    {"plugins", block.plugins.size()}});
    }
    const json::object report{
        {"profile", Utf8(path)}, {"blocks", profile.blocks.size()}, {"runs", std::move(runs)}};
    out << json::serialize(report) << "\n";
}

void WriteTimeJson(std::ostream& out, const ChosenRun& run) {
    const TimeSummary summary = Summarize(run.block);
    json::array idle;
    for (const std::string& name : summary.idle) {
        idle.push_back(Utf8(name));
    }
    json::object report = ReportOn(run);
    report["start"] = Stamp(run.block.start);
    report["end"] = Stamp(run.block.end);
    report["kernel_us"] = Count(run.block.kernel);
    report["total_us"] = Count(summary.total);
    report["plugins_us"] = summary.plugins.count();
    report["plugins_ran"] = summary.ran;
    report["plugins_idle"] = std::move(idle);
    report["plugins_at_a_time"] = Known(summary.at_a_time);
    report["settings"] = SettingsOf(run.block.settings);
    out << json::serialize(report) << "\n";
}

void WriteBlameJson(std::ostream& out, const ChosenRun& run) {
    json::array plugins;
    for (const auto& [plugin, share] : Blame(run.block)) {
        plugins.push_back(json::object{{"name", Utf8(plugin.name)},
                                       {"start", Stamp(plugin.start)},
                                       {"end", Stamp(plugin.end)},
                                       {"taken_us", plugin.taken().count()},
                                       {"share", share}});
    }
    json::object report = ReportOn(run);
    report["plugins_us"] = Summarize(run.block).plugins.count();
    report["plugins"] = std::move(plugins);
    out << json::serialize(report) << "\n";
}

void WriteChainJson(std::ostream& out, const ChosenRun& run, const RunGraph& graph,
                    const std::vector<ChainLink>& chain) {
    json::array plugins;
    for (const ChainLink& link : chain) {
        const PluginTimes& plugin = run.block.plugins[link.plugin];
        json::value barrier;
        if (link.barrier.has_value()) {
            barrier = Utf8(graph.barriers[*link.barrier].name);
        }
        plugins.push_back(json::object{{"name", Utf8(plugin.name)},
                                       {"start", Stamp(plugin.start)},
                                       {"end", Stamp(plugin.end)},
                                       {"taken_us", plugin.taken().count()},
                                       {"at_us", Count(link.at)},
                                       {"idle_us", Count(link.idle)},
                                       {"barrier", std::move(barrier)}});
    }
    json::object report = ReportOn(run);
    report["plugins"] = std::move(plugins);
    out << json::serialize(report) << "\n";
}

void WriteGraphJson(std::ostream& out, const ChosenRun& run, const RunGraph& graph,
                    const std::vector<ChainLink>& chain, const GraphPart& part) {
    std::vector<bool> critical_plugins(graph.plugins.size());
    std::vector<bool> critical_barriers(graph.barriers.size());
    for (const ChainLink& link : chain) {
        critical_plugins[link.plugin] = true;
        if (link.barrier.has_value()) {
            critical_barriers[*link.barrier] = true;
        }
    }
    const auto plugin_name = [&](std::size_t index) { return run.block.plugins[index].name; };
    const auto barrier_name = [&](std::size_t index) { return graph.barriers[index].name; };
    json::array plugins;
    for (std::size_t index = 0; index < graph.plugins.size(); ++index) {
        if (part.plugins[index]) {
            const PluginTimes& times = run.block.plugins[index];
            const RunPlugin& plugin = graph.plugins[index];
            plugins.push_back(
                json::object{{"name", Utf8(times.name)},
                             {"kind", PluginKindText(plugin.kind)},
                             {"ran", times.ran()},
                             {"taken_us", times.taken().count()},
                             {"critical", bool(critical_plugins[index])},
                             {"requires", Names(plugin.required, part.barriers, barrier_name)},
                             {"provides", Names(plugin.provided, part.barriers, barrier_name)}});
        }
    }
    json::array barriers;
    for (std::size_t index = 0; index < graph.barriers.size(); ++index) {
        if (part.barriers[index]) {
            const RunBarrier& barrier = graph.barriers[index];
            barriers.push_back(
                json::object{{"name", Utf8(barrier.name)},
                             {"critical", bool(critical_barriers[index])},
                             {"providers", Names(barrier.providers, part.plugins, plugin_name)},
                             {"requirers", Names(barrier.requirers, part.plugins, plugin_name)}});
        }
    }
    json::object report = ReportOn(run);
    report["plugins"] = std::move(plugins);
    report["barriers"] = std::move(barriers);
    out << json::serialize(report) << "\n";
}

void WriteSimulationJson(std::ostream& out, const ChosenRun& run, const Simulation& simulation) {
    json::array plugins;
    for (const SimulatedPlugin& plugin : simulation.plugins) {
        plugins.push_back(json::object{{"name", Utf8(run.block.plugins[plugin.plugin].name)},
                                       {"at_us", plugin.at.count()},
                                       {"taken_us", plugin.taken.count()},
                                       {"waited_us", plugin.waited.count()}});
    }
    json::object report = ReportOn(run);
    report["threads"] = simulation.threads;
    report["parallel"] = simulation.parallel;
    report["recorded_us"] = Count(simulation.recorded);
    report["simulated_us"] = Count(simulation.simulated());
    report["change_us"] = Count(simulation.change());
    report["bound_us"] = Count(simulation.bound());
    report["bound_any_us"] = Count(simulation.bound_of_any());
    report["longest_chain_us"] = simulation.longest_chain.count();
    report["commands_us"] = simulation.commands.count();
    report["work_us"] = simulation.work.count();
    report["outside_us"] = Count(simulation.outside);
    report["plugins"] = std::move(plugins);
    out << json::serialize(report) << "\n";
}

void WriteDiffJson(std::ostream& out, const ChosenRun& before, const ChosenRun& after) {
    const TimeSummary old_summary = Summarize(before.block);
    const TimeSummary new_summary = Summarize(after.block);
    json::array plugins;
    for (const PluginChange& plugin : ComparePlugins(before.block, after.block)) {
        plugins.push_back(json::object{{"name", Utf8(plugin.name)},
                                       {"old_us", Count(plugin.before)},
                                       {"new_us", Count(plugin.after)},
                                       {"change_us", plugin.change().count()}});
    }
    json::value change;
    if (old_summary.total.has_value() && new_summary.total.has_value()) {
        change = (*new_summary.total - *old_summary.total).count();
    }
    const json::object report{{"old", SideOf(before, old_summary)},
                              {"new", SideOf(after, new_summary)},
                              {"total_change_us", change},
                              {"plugins_change_us", (new_summary.plugins - old_summary.plugins).count()},
                              {"plugins", std::move(plugins)}};
    out << json::serialize(report) << "\n";
}

void WriteVerifyJson(std::ostream& out, const VerifyReport& report) {
    json::array findings;
    for (const Finding& finding : report.findings) {
        findings.push_back(json::object{
            {"file", Utf8Text(finding.file)},
            {"severity", SeverityText(finding.severity)},
            {"kind", FindingKindText(finding.kind)},
            {"plugin", finding.plugin.empty() ? json::value() : json::value(Utf8Text(finding.plugin))},
            {"text", Utf8Text(finding.text)}});
    }
    out << json::serialize(json::object{{"plugins", report.plugins},
                                        {"errors", report.Count(Severity::kError)},
                                        {"warnings", report.Count(Severity::kWarning)},
                                        {"findings", std::move(findings)}})
        << "\n";
}

}  // namespace bootweave
