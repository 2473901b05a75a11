// SPDX-License-Identifier: Apache-2.0
#include "analyze/report_text.h"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdint>
#include <string_view>
#include <utility>
#include <vector>

#include <sys/time.h>

#include "analyze/timing.h"
#include "driver/profiling_log.h"

namespace bootweave {
namespace {

constexpr std::string_view kBold = "\033[1m";
constexpr std::string_view kRed = "\033[31m";
constexpr std::string_view kPlain = "\033[0m";
constexpr const char* kUnknown = "unknown";
constexpr double kMuch = 0.1;  // of the whole: worth a look

/// A number of thousandths, as "12.345".
std::string Thousandths(std::int64_t number) {
    const std::string rest = std::to_string(number % 1000);
    return std::to_string(number / 1000) + "." + std::string(3 - rest.size(), '0') + rest;
}

/// `value` with `digits` behind the point, rounded; the point is one in every locale.
std::string Fixed(double value, int digits) {
    std::int64_t unit = 1;
    for (int digit = 0; digit < digits; ++digit) {
        unit *= 10;
    }
    const std::int64_t number = std::llround(value * static_cast<double>(unit));
    const std::string rest = std::to_string(number % unit);
    return std::to_string(number / unit) + "." +
           std::string(static_cast<std::size_t>(digits) - rest.size(), '0') + rest;
}

std::string Coloured(std::string_view text, std::string_view colour, const TextStyle& style) {
    std::string result(text);
    return style.coloured ? std::string(colour) + result + std::string(kPlain) : result;
}

std::string Padding(std::size_t width, std::string_view text) {
    std::string padding(width > text.size() ? width - text.size() : 0, ' ');
    return padding;
}

std::string FormatInstant(const std::optional<Instant>& instant) {
    if (!instant.has_value()) {
        return kUnknown;
    }
    const auto whole = std::chrono::floor<std::chrono::seconds>(*instant);
    return FormatTimeStamp(
        {.tv_sec = whole.time_since_epoch().count(), .tv_usec = (*instant - whole).count()});
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
    Rows rows{{"Started", FormatInstant(run.block.start)}};
    if (run.block.kind == RunKind::kBoot) {
        rows.emplace_back("Kernel handed over after",
                          run.block.kernel.has_value() ? FormatDuration(*run.block.kernel) : kUnknown);
    }
    rows.emplace_back("Total", summary.total.has_value() ? FormatDuration(*summary.total) : kUnknown);
    rows.emplace_back("Sum of plugins",
                      FormatDuration(summary.plugins) + " in " + FormatPlugins(summary.ran));
    rows.emplace_back("Parallel efficiency", summary.at_a_time.has_value()
                                                 ? Fixed(*summary.at_a_time, 2) + " plugins at a time"
                                                 : kUnknown);
    if (!summary.idle.empty()) {
        rows.emplace_back("Did not run", FormatPlugins(summary.idle.size()));
    }
    return rows;
}

void WriteTitle(std::ostream& out, const ChosenRun& run, const TextStyle& style) {
    const std::string title = "Block " + std::to_string(run.number) + " of " + std::to_string(run.count) +
                              " in " + run.path + ": " + RunKindText(run.block.kind);
    out << Coloured(title, kBold, style) << "\n\n";
}

}  // namespace

std::string FormatDuration(Duration duration) {
    constexpr std::int64_t kMillisecond = 1000;
    constexpr std::int64_t kSecond = 1000 * kMillisecond;
    constexpr std::int64_t kMinute = 60 * kSecond;
    const std::int64_t count = duration.count();
    if (count < kMillisecond) {
        return std::to_string(count) + "us";
    }
    if (count < kSecond) {
        return Thousandths(count) + "ms";
    }
    std::string text = count >= kMinute ? std::to_string(count / kMinute) + "min " : "";
    return text + Thousandths(count % kMinute / kMillisecond) + "s";
}

void WriteTimeText(std::ostream& out, const ChosenRun& run, const TextStyle& style) {
    const Rows rows = RowsOf(run);
    if (!style.aligned) {
        for (const auto& [label, value] : rows) {
            out << label << "\t" << value << "\n";
        }
        return;
    }
    std::size_t width = 0;
    for (const auto& [label, value] : rows) {
        width = std::max(width, label.size());
    }
    WriteTitle(out, run, style);
    for (const auto& [label, value] : rows) {
        out << label << Padding(width + 2, label) << Coloured(value, kBold, style) << "\n";
    }
}

void WriteBlameText(std::ostream& out, const ChosenRun& run, const TextStyle& style) {
    constexpr std::size_t kTimeWidth = 14;
    constexpr std::size_t kShareWidth = 7;
    constexpr std::string_view kTime = "TIME";
    constexpr std::string_view kShare = "SHARE";
    if (style.aligned) {
        WriteTitle(out, run, style);
        out << Padding(kTimeWidth, kTime) << kTime << Padding(kShareWidth, kShare) << kShare << "  PLUGIN\n";
    }
    for (const auto& [plugin, share] : Blame(run.block)) {
        const std::string time = FormatDuration(plugin.taken());
        const std::string percent = Fixed(share * 100, 1) + "%";
        if (style.aligned) {
            out << Padding(kTimeWidth, time) << (share >= kMuch ? Coloured(time, kRed, style) : time)
                << Padding(kShareWidth, percent) << percent << "  " << plugin.name << "\n";
        } else {
            out << time << "\t" << percent << "\t" << plugin.name << "\n";
        }
    }
}

void WriteChainText(std::ostream& out, const ChosenRun& run, const RunGraph& graph,
                    const std::vector<ChainLink>& chain, const TextStyle& style) {
    constexpr std::size_t kWidth = 14;
    constexpr std::string_view kAt = "AT";
    constexpr std::string_view kTime = "TIME";
    constexpr std::string_view kIdle = "IDLE";
    constexpr std::string_view kPlugin = "PLUGIN";
    std::size_t name_width = kPlugin.size();
    for (const ChainLink& link : chain) {
        name_width = std::max(name_width, run.block.plugins[link.plugin].name.size());
    }
    if (style.aligned) {
        WriteTitle(out, run, style);
        out << Padding(kWidth, kAt) << kAt << Padding(kWidth, kTime) << kTime << Padding(kWidth, kIdle)
            << kIdle << "  " << kPlugin << Padding(name_width, kPlugin) << "  WAITED AT\n";
    }
    for (const ChainLink& link : chain) {
        const PluginTimes& plugin = run.block.plugins[link.plugin];
        const std::string at = FormatKnown(link.at);
        const std::string time = FormatDuration(plugin.taken());
        const std::string idle = FormatKnown(link.idle);
        const std::string barrier = link.barrier.has_value() ? graph.barriers[*link.barrier].name : "-";
        if (style.aligned) {
            out << Padding(kWidth, at) << at << Padding(kWidth, time) << Coloured(time, kBold, style)
                << Padding(kWidth, idle) << idle << "  " << plugin.name << Padding(name_width, plugin.name)
                << "  " << barrier << "\n";
        } else {
            out << at << "\t" << time << "\t" << idle << "\t" << plugin.name << "\t" << barrier << "\n";
        }
    }
}

}  // namespace bootweave
