// SPDX-License-Identifier: Apache-2.0
#include "analyze/analyze.h"

#include <algorithm>
#include <exception>
#include <optional>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include <sys/stat.h>
#include <unistd.h>

#include "analyze/boot_picture.h"
#include "analyze/boot_profile.h"
#include "analyze/chosen_run.h"
#include "analyze/critical_chain.h"
#include "analyze/diagnostics.h"
#include "analyze/help_text.h"
#include "analyze/neighbourhood.h"
#include "analyze/options.h"
#include "analyze/report_dot.h"
#include "analyze/report_json.h"
#include "analyze/report_svg.h"
#include "analyze/run_graph.h"
#include "analyze/simulation.h"
#include "analyze/verify.h"
#include "analyze/verify_text.h"
#include "util/error_text.h"
#include "util/exception.h"
#include "util/replace_file.h"

namespace bootweave {
namespace {

constexpr int kFailed = 1;
constexpr int kWrongUsage = 2;
/// What native plugins print when they are loaded must not stand in a report.
constexpr int kOutputOfObjects = STDERR_FILENO;

/// Everything that one report needs.
struct Request {
    const AnalyzeOptions& options;
    std::ostream& out;
    Diagnostics& diagnostics;
    const TextStyle& style;
};

BootProfile ReadProfile(const Request& request, const std::string& path) {
    BootProfile profile = ReadBootProfile(path);
    request.diagnostics.WarnOfLog(path, profile);
    return profile;
}

ChosenRun ReadRun(const Request& request, const std::string& path) {
    return ChooseRun(ReadProfile(request, path), path, request.options.block);
}

RunGraph ReadGraph(const Request& request, const ProfileBlock& block) {
    RunGraph graph = ReadRunGraph(
        block, {.directory = request.options.plugin_directory, .native = {.output = kOutputOfObjects}});
    request.diagnostics.Warn(graph.warnings);
    return graph;
}

/// A chain that ends in a circle looks as if its last plugin had waited for none; others may not have waited.
void WarnOfChain(const Request& request, const ProfileBlock& block, const RunGraph& graph,
                 const std::vector<ChainLink>& chain) {
    const std::string circle = CircleOf(block, graph, chain);
    if (!circle.empty()) {
        request.diagnostics.Say("the chain ends in a circle: plugins wait for each other: " + circle);
    }
    request.diagnostics.Warn(EarlyStarts(block, chain));
}

void WriteTime(const Request& request) {
    const ChosenRun run = ReadRun(request, request.options.profile);
    request.options.json ? WriteTimeJson(request.out, run) : WriteTimeText(request.out, run, request.style);
}

void WriteBlame(const Request& request) {
    const ChosenRun run = ReadRun(request, request.options.profile);
    request.options.json ? WriteBlameJson(request.out, run) : WriteBlameText(request.out, run, request.style);
}

void WriteChain(const Request& request) {
    const ChosenRun run = ReadRun(request, request.options.profile);
    const RunGraph graph = ReadGraph(request, run.block);
    const std::vector<ChainLink> chain = CriticalChain(run.block, graph, request.options.plugin);
    WarnOfChain(request, run.block, graph, chain);
    request.options.json ? WriteChainJson(request.out, run, graph, chain)
                         : WriteChainText(request.out, run, graph, chain, request.style);
}

void WriteList(const Request& request) {
    const std::string& path = request.options.profile;
    const BootProfile profile = ReadProfile(request, path);
    if (profile.blocks.empty()) {
        throw Exception(path + " holds no boot profile");
    }
    request.options.json ? WriteListJson(request.out, path, profile)
                         : WriteListText(request.out, path, profile, request.style);
}

void WriteDiff(const Request& request) {
    const ChosenRun before = ReadRun(request, request.options.profile);
    const ChosenRun after = ReadRun(request, request.options.newer_profile);
    if (before.block.kind != after.block.kind) {
        request.diagnostics.Say("a boot is compared with a run of daemons");
    }
    request.options.json ? WriteDiffJson(request.out, before, after)
                         : WriteDiffText(request.out, before, after, request.style);
}

/// \return the exit status
int WriteVerification(const Request& request) {
    const VerifyReport report = Verify({.paths = request.options.files,
                                        .directory = request.options.plugin_directory,
                                        .native = {.output = kOutputOfObjects}});
    request.options.json ? WriteVerifyJson(request.out, report)
                         : WriteVerifyText(request.out, report, request.style);
    const bool has_errors = report.Count(Severity::kError) > 0;
    return has_errors || (request.options.strict && !report.findings.empty()) ? kFailed : 0;
}

/// A file is replaced in one step, or stays as it is. Devices are not files: the step would put one in their
/// place.
void ReplaceOutput(const std::string& path, const std::string& content) {
    struct stat status {};
    if (::stat(path.c_str(), &status) == 0 && !S_ISREG(status.st_mode)) {
        throw Exception("cannot write " + path + ": not a regular file");
    }
    if (!ReplaceFile(path, content)) {
        throw Exception("cannot write " + path + ": " + LastErrorText());
    }
}

/// Names may differ: of two links, of a link and what it leads to, of ways through other directories.
bool IsSameFile(const std::string& one, const std::string& other) {
    struct stat first {};
    struct stat second {};
    return ::stat(one.c_str(), &first) == 0 && ::stat(other.c_str(), &second) == 0 &&
           first.st_dev == second.st_dev && first.st_ino == second.st_ino;
}

void WritePlot(const Request& request) {
    const std::optional<std::string>& output = request.options.output;
    if (output.has_value() && IsSameFile(*output, request.options.profile)) {
        throw Exception("cannot write " + *output + ": it is the profile that is read");
    }
    const ChosenRun run = ReadRun(request, request.options.profile);
    const RunGraph graph = ReadGraph(request, run.block);
    const BootPicture picture = LayOut(run.block, graph);
    WarnOfChain(request, run.block, graph, {picture.chain.rbegin(), picture.chain.rend()});
    if (!output.has_value()) {
        WritePlotSvg(request.out, run, graph, picture);
        return;
    }
    std::ostringstream content;
    WritePlotSvg(content, run, graph, picture);
    ReplaceOutput(*output, content.str());
}

/// Without a plugin that ran there is a graph all the same.
std::vector<ChainLink> ChainIfAny(const ProfileBlock& block, const RunGraph& graph) {
    const bool any = std::any_of(block.plugins.begin(), block.plugins.end(),
                                 [](const PluginTimes& plugin) { return plugin.ran(); });
    return any ? CriticalChain(block, graph, std::nullopt) : std::vector<ChainLink>();
}

void WriteDependencies(const Request& request) {
    const ChosenRun run = ReadRun(request, request.options.profile);
    const RunGraph graph = ReadGraph(request, run.block);
    const GraphPart part = PartAround(run.block, graph, request.options.around);
    const std::vector<ChainLink> chain = ChainIfAny(run.block, graph);
    WarnOfChain(request, run.block, graph, chain);
    request.options.json ? WriteGraphJson(request.out, run, graph, chain, part)
                         : WriteGraphDot(request.out, run, graph, chain, part);
}

void WriteSimulation(const Request& request) {
    const ChosenRun run = ReadRun(request, request.options.profile);
    const RunGraph graph = ReadGraph(request, run.block);
    const Simulation simulation = Simulate(run.block, graph, request.options.what_if);
    request.diagnostics.Warn(simulation.warnings);
    request.options.json ? WriteSimulationJson(request.out, run, simulation)
                         : WriteSimulationText(request.out, run, simulation, request.style);
}

void WriteHelp(const Request& request) {
    request.out << kAnalyzeHelpText;
}

using Report = void (*)(const Request&);

Report ReportOf(AnalyzeCommand command) {
    switch (command) {
        case AnalyzeCommand::kTime:
            return WriteTime;
        case AnalyzeCommand::kBlame:
            return WriteBlame;
        case AnalyzeCommand::kCriticalChain:
            return WriteChain;
        case AnalyzeCommand::kList:
            return WriteList;
        case AnalyzeCommand::kDiff:
            return WriteDiff;
        case AnalyzeCommand::kPlot:
            return WritePlot;
        case AnalyzeCommand::kDot:
            return WriteDependencies;
        case AnalyzeCommand::kSimulate:
            return WriteSimulation;
        default:
            return WriteHelp;
    }
}

/// \return the exit status
int RunCommand(const Request& request) {
    int status = 0;
    if (request.options.command == AnalyzeCommand::kVerify) {
        status = WriteVerification(request);
    } else {
        ReportOf(request.options.command)(request);
    }
    if (!request.out.flush().good()) {
        throw Exception("cannot write the report");
    }
    return status;
}

}  // namespace

int RunAnalyze(int argc, char** argv, std::ostream& out, std::ostream& err, const TextStyle& style) {
    Diagnostics diagnostics(err);
    try {
        return RunCommand({ParseAnalyzeOptions(argc, argv), out, diagnostics, style});
    } catch (const UsageException& exception) {
        diagnostics.Say(exception.what());
        return kWrongUsage;
    } catch (const std::exception& exception) {
        diagnostics.Say(exception.what());
        return kFailed;
    }
}

}  // namespace bootweave
