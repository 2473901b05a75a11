// SPDX-License-Identifier: Apache-2.0
// A boot profile, and what is made of it: numbers, a comparison with itself, a picture.

#include <algorithm>
#include <sstream>

#include "analyze/boot_picture.h"
#include "analyze/boot_profile.h"
#include "analyze/comparison.h"
#include "analyze/report_svg.h"
#include "analyze/table.h"
#include "analyze/timing.h"
#include "tests/fuzz/fuzzing.h"

namespace bootweave {
namespace {

bool IsShowable(std::string_view name) {
    return std::none_of(name.begin(), name.end(), [](char byte) {
        const auto value = static_cast<unsigned char>(byte);
        return (value < 0x20 && byte != '\t') || value == 0x7F;
    });
}

/// The plugins of a block as a log has them.
std::string Written(const ProfileBlock& block) {
    std::string text;
    for (const PluginTimes& plugin : block.plugins) {
        text += "[" + FormatInstant(plugin.start) + " - " + FormatInstant(plugin.end) + "] " +
                (block.kind == RunKind::kBoot ? "sysboot" : "daemon") + ": " + plugin.name + "\n";
    }
    return text;
}

/// The log begins with 1970; earlier stamps are written as that.
bool HasEarlyStamps(const ProfileBlock& block) {
    return std::any_of(block.plugins.begin(), block.plugins.end(), [](const PluginTimes& plugin) {
        return plugin.start < Instant() || plugin.end < Instant();
    });
}

void CheckReadsAgain(const ProfileBlock& block) {
    if (block.plugins.empty() || HasEarlyStamps(block)) {
        return;
    }
    const BootProfile again = ParseBootProfile(Written(block));
    Check(again.blocks.size() == 1, "the plugins of a block are one block again");
    const std::vector<PluginTimes>& plugins = again.blocks.front().plugins;
    Check(std::equal(plugins.begin(), plugins.end(), block.plugins.begin(), block.plugins.end(),
                     [](const PluginTimes& one, const PluginTimes& other) {
                         return one.name == other.name && one.start == other.start && one.end == other.end;
                     }),
          "plugins read as what they were written of");
}

void CheckPicture(const ProfileBlock& block, std::size_t ran) {
    constexpr std::size_t kMuch = 2000;  // pictures of more take long
    if (ran == 0 || ran > kMuch) {
        return;
    }
    RunGraph graph;
    graph.plugins.resize(block.plugins.size());
    const BootPicture picture = LayOut(block, graph);
    Check(picture.bars.size() == ran, "each plugin that ran has a bar");
    for (const PictureBar& bar : picture.bars) {
        Check(bar.lane < picture.lanes && bar.at >= Duration(0) && bar.at + bar.taken <= picture.span,
              "a bar lies in the picture");
    }
    std::ostringstream out;
    WritePlotSvg(out, {"log", 1, 1, block}, graph, picture);
    Check(out.str().ends_with("</g>\n</svg>\n"), "a picture has an end");
}

void CheckBlock(const ProfileBlock& block) {
    for (const PluginTimes& plugin : block.plugins) {
        Check(IsShowable(plugin.name), "a name can be shown");
        Check(plugin.taken() >= Duration(0), "no time is negative");
    }
    const TimeSummary summary = Summarize(block);
    Check(summary.ran + summary.idle.size() == block.plugins.size(), "a plugin has run, or has not");
    for (const PluginChange& change : ComparePlugins(block, block)) {
        Check(change.change() == Duration(0), "nothing changes from a run to itself");
    }
    CheckReadsAgain(block);
    CheckPicture(block, summary.ran);
}

}  // namespace
}  // namespace bootweave

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using namespace bootweave;
    const std::string_view text = Text(data, size);
    const BootProfile profile = ParseBootProfile(text);
    const auto lines = static_cast<std::size_t>(std::count(text.begin(), text.end(), '\n')) + 1;
    std::size_t last = 1;
    for (const ProfileWarning& warning : profile.warnings) {
        Check(warning.line >= last && warning.line <= lines, "warnings come in the order of their lines");
        last = warning.line;
    }
    for (const ProfileBlock& block : profile.blocks) {
        CheckBlock(block);
    }
    return 0;
}
