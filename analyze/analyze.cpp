// SPDX-License-Identifier: Apache-2.0
#include "analyze/analyze.h"

#include <cstddef>
#include <exception>
#include <string>
#include <string_view>
#include <vector>

#include "analyze/boot_profile.h"
#include "analyze/critical_chain.h"
#include "analyze/help_text.h"
#include "analyze/options.h"
#include "analyze/plugin_needs.h"
#include "analyze/report_json.h"
#include "util/exception.h"
#include "util/harmless_text.h"
#include "util/line_buffer.h"

namespace bootweave {
namespace {

constexpr int kFailed = 1;
constexpr int kWrongUsage = 2;
constexpr std::size_t kMostWarnings = 10;  // a file that is no profile at all has one for each line

/// One line of standard error, whatever names the text holds.
void Say(std::ostream& err, std::string_view text) {
    LineBuffer line;
    AppendHarmless(line, text);
    err << "bootweave-analyze: " << line.view() << "\n";
}

void SayWarnings(std::ostream& err, const BootProfile& profile, const std::string& path) {
    std::size_t said = 0;
    for (const ProfileWarning& warning : profile.warnings) {
        if (said == kMostWarnings) {
            Say(err, path + ": warnings left out: " + std::to_string(profile.warnings.size() - said));
            return;
        }
        Say(err, path + ":" + std::to_string(warning.line) + ": " + warning.text);
        ++said;
    }
}

/// The index of the last block of a boot.
std::size_t LastBoot(const BootProfile& profile, const std::string& path) {
    for (std::size_t index = profile.blocks.size(); index > 0; --index) {
        if (profile.blocks[index - 1].kind == RunKind::kBoot) {
            return index - 1;
        }
    }
    throw Exception(path + " tells of no boot, only of daemons; try --boot last");
}

/// The index of the block that was asked for.
std::size_t Choose(const BootProfile& profile, const AnalyzeOptions& options) {
    const std::size_t count = profile.blocks.size();
    if (count == 0) {
        throw Exception(options.profile + " holds no boot profile");
    }
    switch (options.block.which) {
        case BlockChoice::Which::kLast:
            return count - 1;
        case BlockChoice::Which::kNumber:
            if (options.block.number > count) {
                throw Exception("there is no block " + std::to_string(options.block.number) + " in " +
                                options.profile + ", the last one is " + std::to_string(count));
            }
            return options.block.number - 1;
        default:
            return LastBoot(profile, options.profile);
    }
}

void WriteChain(const AnalyzeOptions& options, const ChosenRun& run, std::ostream& out, std::ostream& err,
                const TextStyle& style) {
    if (run.block.kind == RunKind::kDaemon) {
        throw Exception("block " + std::to_string(run.number) + " is a run of daemons, which have no chain");
    }
    const PluginNeeds needs = ReadPluginNeeds(run.block, {.directory = options.plugin_directory});
    for (const std::string& warning : needs.warnings) {
        Say(err, warning);
    }
    const std::vector<ChainLink> chain = CriticalChain(run.block, needs.providers, options.plugin);
    options.json ? WriteChainJson(out, run, chain) : WriteChainText(out, run, chain, style);
}

void WriteReport(const AnalyzeOptions& options, std::ostream& out, std::ostream& err,
                 const TextStyle& style) {
    BootProfile profile = ReadBootProfile(options.profile);
    SayWarnings(err, profile, options.profile);
    const std::size_t index = Choose(profile, options);
    const ChosenRun run{options.profile, index + 1, profile.blocks.size(), profile.blocks[index]};
    if (options.command == AnalyzeCommand::kCriticalChain) {
        WriteChain(options, run, out, err, style);
    } else if (options.command == AnalyzeCommand::kBlame) {
        options.json ? WriteBlameJson(out, run) : WriteBlameText(out, run, style);
    } else {
        options.json ? WriteTimeJson(out, run) : WriteTimeText(out, run, style);
    }
}

void RunCommand(const AnalyzeOptions& options, std::ostream& out, std::ostream& err, const TextStyle& style) {
    if (options.command == AnalyzeCommand::kHelp) {
        out << kAnalyzeHelpText;
    } else {
        WriteReport(options, out, err, style);
    }
    if (!out.flush().good()) {
        throw Exception("cannot write the report");
    }
}

}  // namespace

int RunAnalyze(int argc, char** argv, std::ostream& out, std::ostream& err, const TextStyle& style) {
    try {
        RunCommand(ParseAnalyzeOptions(argc, argv), out, err, style);
        return 0;
    } catch (const UsageException& exception) {
        Say(err, exception.what());
        return kWrongUsage;
    } catch (const std::exception& exception) {
        Say(err, exception.what());
        return kFailed;
    }
}

}  // namespace bootweave
