// SPDX-License-Identifier: Apache-2.0
#include "analyze/report_svg.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "analyze/svg_canvas.h"
#include "analyze/table.h"
#include "analyze/text_columns.h"
#include "analyze/timing.h"

namespace bootweave {
namespace {

// Without variables: programs that draw files know classes and media queries, but not all know those.
constexpr std::string_view kStyleSheet = R"(text{font-family:sans-serif;font-size:11px;fill:#1f2430}
.paper{fill:#ffffff}
.heading{font-size:16px;font-weight:bold}
.section{font-size:13px;font-weight:bold}
.quiet{fill:#5b6472}
.grid{stroke:#dfe3e8}
.bar{fill:#8fb8e3;stroke:#5d8fc4;stroke-width:.5}
.critical{fill:#ef8f4c;stroke:#a6480a;stroke-width:1.2}
.inside{fill:#10233b}
.before{text-anchor:end}
.tick{stroke:#5b6472;stroke-width:1.2}
.thread{stroke:#a6480a;stroke-dasharray:2 2}
.catch{fill:none;pointer-events:all}
g:hover rect.bar,g:hover rect.critical{stroke:#000000;stroke-width:2}
@media (prefers-color-scheme:dark){
text{fill:#e6e8eb}
.paper{fill:#16181d}
.quiet{fill:#a3acb8}
.grid{stroke:#30353e}
.bar{fill:#2f5f96;stroke:#6c9fd8}
.critical{fill:#a9500f;stroke:#f2a266}
.inside{fill:#f4f7fb}
.tick{stroke:#a3acb8}
.thread{stroke:#f2a266}
g:hover rect.bar,g:hover rect.critical{stroke:#ffffff}
}
)";

constexpr double kMargin = 24;
constexpr double kColumn = 6.4;  // a column of text, on average
constexpr double kInset = 4;     // between a bar's edge and its name
constexpr double kThinnest = 1.2;
constexpr double kTop = 96;  // of the lanes
constexpr double kTickHeight = 10;
constexpr std::size_t kNameRows = 3;  // for the names of barriers
constexpr double kNameRow = 14;
constexpr double kChainRow = 20;
constexpr std::size_t kMostLinks = 40;

/// "1.5 s", "250 ms" or "20 us".
std::string AxisText(Duration at) {
    constexpr std::int64_t kThousand = 1000;
    const std::int64_t count = at.count();
    if (count == 0) {
        return "0";
    }
    const bool seconds = count >= kThousand * kThousand;
    const bool milliseconds = count >= kThousand;
    const std::int64_t unit = seconds ? kThousand * kThousand : milliseconds ? kThousand : 1;
    std::string text = FormatFixed(static_cast<double>(count) / static_cast<double>(unit), 6);
    text.erase(text.find_last_not_of('0') + 1);
    if (text.ends_with('.')) {
        text.pop_back();
    }
    return text + (seconds ? " s" : milliseconds ? " ms" : " us");
}

/// The least of 1, 2, 5, 10, 20... microseconds that divides the span into at most so many parts.
Duration AxisStep(Duration span, std::int64_t parts) {
    constexpr std::array<std::int64_t, 3> kSteps{1, 2, 5};
    constexpr std::int64_t kTen = 10;
    for (std::int64_t power = 1;; power *= kTen) {
        for (const std::int64_t step : kSteps) {
            if (step * power * parts >= span.count()) {
                return Duration(step * power);
            }
        }
    }
}

/// "a, b and 3 more"; "-" for nothing.
std::string NameSome(const std::vector<std::string>& names) {
    constexpr std::size_t kMost = 8;
    std::string text;
    for (std::size_t index = 0; index < std::min(names.size(), kMost); ++index) {
        text += (index > 0 ? ", " : "") + names[index];
    }
    if (names.size() > kMost) {
        text += " and " + std::to_string(names.size() - kMost) + " more";
    }
    return names.empty() ? "-" : text;
}

/// Where things lie; heights depend on how many lanes and links there are.
struct Frame {
    explicit Frame(const BootPicture& picture) {
        constexpr double kLeastWidth = 1120;
        constexpr double kMostWidth = 6000;
        constexpr double kRoomOfBar = 12;
        constexpr double kLaneHeight = 22;
        constexpr double kLeastLaneHeight = 6;
        constexpr double kRoomOfLanes = 1100;
        std::vector<std::size_t> in_lane(picture.lanes);
        for (const PictureBar& bar : picture.bars) {
            ++in_lane[bar.lane];
        }
        const auto most = static_cast<double>(*std::max_element(in_lane.begin(), in_lane.end()));
        plot_width = std::clamp(most * kRoomOfBar, kLeastWidth, kMostWidth);
        const auto lanes = static_cast<double>(picture.lanes);
        lane_height = std::clamp(kRoomOfLanes / lanes, kLeastLaneHeight, kLaneHeight);
        ticks_top = kTop + lanes * lane_height + 8;
        chain_top = ticks_top + kTickHeight + static_cast<double>(kNameRows) * kNameRow + 40;
        links = std::min(picture.chain.size(), kMostLinks);
        height = chain_top + static_cast<double>(links) * kChainRow + kMargin;
        width = plot_width + 2 * kMargin;
        scale = plot_width / static_cast<double>(picture.span.count());
    }

    [[nodiscard]] double X(Duration at) const { return kMargin + static_cast<double>(at.count()) * scale; }

    double plot_width;
    double width;
    double lane_height;
    double ticks_top;
    double chain_top;
    double height;
    double scale;
    std::size_t links;  // that are shown
};

class Drawing {
  public:
    Drawing(std::ostream& out, const ChosenRun& run, const RunGraph& graph, const BootPicture& picture)
        : canvas_(out), run_(run), graph_(graph), picture_(picture), frame_(picture) {}

    void Draw() {
        canvas_.Begin(frame_.width, frame_.height, Heading() + ", " + Summary(), kStyleSheet);
        canvas_.Rectangle("paper", 0, 0, frame_.width, frame_.height);
        DrawHead();
        DrawAxis();
        for (std::size_t index = 0; index < picture_.bars.size(); ++index) {
            DrawBar(index);
        }
        DrawTicks();
        DrawChain();
        canvas_.End();
    }

  private:
    [[nodiscard]] const PluginTimes& Plugin(std::size_t index) const { return run_.block.plugins[index]; }

    [[nodiscard]] std::string Heading() const {
        const std::string what = run_.block.kind == RunKind::kBoot ? "Boot" : "Run of daemons";
        return run_.block.start.has_value() ? what + " of " + FormatInstant(*run_.block.start) + " UTC"
                                            : what;
    }

    [[nodiscard]] std::string Summary() const {
        const TimeSummary summary = Summarize(run_.block);
        std::string text = std::to_string(summary.ran) + (summary.ran == 1 ? " plugin" : " plugins");
        if (summary.total.has_value()) {
            text += " in " + FormatDuration(*summary.total);
        }
        if (summary.at_a_time.has_value()) {
            text += ", " + FormatFixed(*summary.at_a_time, 2) + " at a time";
        }
        if (run_.block.kernel.has_value()) {
            text += "; the kernel handed over after " + FormatDuration(*run_.block.kernel);
        }
        return text;
    }

    void DrawHead() {
        constexpr double kHeadingLine = 32;
        constexpr double kSummaryLine = 50;
        constexpr double kLegendLine = 68;
        constexpr double kSwatch = 10;
        canvas_.Text("heading", kMargin, kHeadingLine, Heading());
        canvas_.Text("quiet", kMargin, kSummaryLine, Summary());
        canvas_.Rectangle("bar", kMargin, kLegendLine - kSwatch + 1, kSwatch, kSwatch);
        canvas_.Text("quiet", kMargin + 16, kLegendLine, "plugin");
        canvas_.Rectangle("critical", kMargin + 70, kLegendLine - kSwatch + 1, kSwatch, kSwatch);
        canvas_.Text("quiet", kMargin + 86, kLegendLine, "critical chain: what the end waited for");
        canvas_.Line("tick", kMargin + 310, kLegendLine - kSwatch + 1, kMargin + 310, kLegendLine + 1);
        canvas_.Text("quiet", kMargin + 318, kLegendLine, "barrier, when it was done");
    }

    void DrawAxis() {
        constexpr double kRoomOfLabel = 110;
        const auto parts = static_cast<std::int64_t>(frame_.plot_width / kRoomOfLabel);
        const Duration step = AxisStep(picture_.span, parts);
        for (Duration at{0}; at <= picture_.span; at += step) {
            canvas_.Line("grid", frame_.X(at), kTop - 6, frame_.X(at), frame_.height - kMargin);
            const std::string text = AxisText(at);
            const bool fits = frame_.X(at) + static_cast<double>(text.size()) * kColumn <= frame_.width;
            canvas_.Text(fits ? "quiet" : "quiet before", frame_.X(at), kTop - 10, text);
        }
    }

    void DrawBar(std::size_t index) {
        const PictureBar& bar = picture_.bars[index];
        const double y = kTop + static_cast<double>(bar.lane) * frame_.lane_height;
        const double x = frame_.X(bar.at);
        const double width = WidthOf(bar.taken);
        canvas_.BeginGroup(BarTooltip(bar));
        canvas_.Rectangle(bar.critical ? "critical" : "bar", x, y + 1, width, frame_.lane_height - 2);
        DrawBarName(index, x, width, y);
        canvas_.EndGroup();
    }

    /// In the bar when it fits there, behind it when it fits before the next one; else its beginning.
    void DrawBarName(std::size_t index, double x, double width, double y) {
        constexpr double kLeastHeight = 14;
        if (frame_.lane_height < kLeastHeight) {
            return;
        }
        const PictureBar& bar = picture_.bars[index];
        const std::string& name = Plugin(bar.plugin).name;
        const double base = y + frame_.lane_height / 2 + 4;
        const double needed = static_cast<double>(ColumnsOf(name)) * kColumn + 2 * kInset;
        if (needed <= width) {
            canvas_.Text("inside", x + kInset, base, name);
        } else if (x + width + needed <= StartOfNext(index)) {
            canvas_.Text("outside", x + width + kInset, base, name);
        } else if (const std::string part = Shorten(name, Columns(width - 2 * kInset)); !part.empty()) {
            canvas_.Text("inside", x + kInset, base, part);
        }
    }

    /// Where the next bar of the lane begins, or the plot ends.
    [[nodiscard]] double StartOfNext(std::size_t index) const {
        const bool last =
            index + 1 == picture_.bars.size() || picture_.bars[index + 1].lane != picture_.bars[index].lane;
        return last ? kMargin + frame_.plot_width : frame_.X(picture_.bars[index + 1].at);
    }

    [[nodiscard]] double WidthOf(Duration taken) const {
        return std::max(static_cast<double>(taken.count()) * frame_.scale, kThinnest);
    }

    [[nodiscard]] static std::size_t Columns(double width) {
        return width > 0 ? static_cast<std::size_t>(width / kColumn) : 0;
    }

    [[nodiscard]] std::string BarTooltip(const PictureBar& bar) const {
        const RunPlugin& plugin = graph_.plugins[bar.plugin];
        return Plugin(bar.plugin).name + "\n" + FormatDuration(bar.taken) + ", from " +
               FormatDuration(bar.at) + " to " + FormatDuration(bar.at + bar.taken) + "\n" +
               PluginKindText(plugin.kind) + (bar.critical ? ", critical chain" : "") +
               "\nrequires: " + Barriers(plugin.required) + "\nprovides: " + Barriers(plugin.provided);
    }

    [[nodiscard]] std::string Barriers(const std::vector<std::size_t>& indices) const {
        std::vector<std::string> names;
        names.reserve(indices.size());
        for (const std::size_t index : indices) {
            names.push_back(graph_.barriers[index].name);
        }
        return NameSome(names);
    }

    [[nodiscard]] std::string Plugins(const std::vector<std::size_t>& indices) const {
        std::vector<std::string> names;
        names.reserve(indices.size());
        for (const std::size_t index : indices) {
            names.push_back(Plugin(index).name);
        }
        return NameSome(names);
    }

    /// Names stand in the first row that is free; one that fits in none has its tooltip only.
    void DrawTicks() {
        constexpr double kCatch = 5;
        std::array<double, kNameRows> taken_until{};
        for (const PictureTick& tick : picture_.ticks) {
            const RunBarrier& barrier = graph_.barriers[tick.barrier];
            const double x = frame_.X(tick.at);
            canvas_.BeginGroup("barrier " + barrier.name + "\ndone at " + FormatDuration(tick.at) +
                               "\nprovided by: " + Plugins(barrier.providers) +
                               "\nrequired by: " + Plugins(barrier.requirers));
            canvas_.Line("tick", x, frame_.ticks_top, x, frame_.ticks_top + kTickHeight);
            canvas_.Rectangle("catch", x - kCatch / 2, frame_.ticks_top, kCatch, kTickHeight);
            const double end = x + static_cast<double>(ColumnsOf(barrier.name) + 1) * kColumn;
            for (std::size_t row = 0; row < kNameRows && end <= frame_.width; ++row) {
                if (taken_until.at(row) <= x) {
                    const double base =
                        frame_.ticks_top + kTickHeight + kNameRow * static_cast<double>(row + 1);
                    canvas_.Text("quiet", x, base - 2, barrier.name);
                    taken_until.at(row) = end;
                    break;
                }
            }
            canvas_.EndGroup();
        }
    }

    /// Of a long chain the links that took longest; all in the order in which they ran.
    [[nodiscard]] std::vector<ChainLink> ShownLinks() const {
        std::vector<ChainLink> links = picture_.chain;
        const auto taken = [&](const ChainLink& link) { return Plugin(link.plugin).taken(); };
        if (links.size() > frame_.links) {
            std::stable_sort(links.begin(), links.end(), [&](const ChainLink& one, const ChainLink& other) {
                return taken(one) > taken(other);
            });
            links.resize(frame_.links);
            std::stable_sort(links.begin(), links.end(), [&](const ChainLink& one, const ChainLink& other) {
                return Plugin(one.plugin).start < Plugin(other.plugin).start;
            });
        }
        return links;
    }

    void DrawChain() {
        const std::vector<ChainLink> links = ShownLinks();
        std::string title = "Critical chain";
        if (links.size() < picture_.chain.size()) {
            title += ": the " + std::to_string(links.size()) + " longest of " +
                     std::to_string(picture_.chain.size()) + " plugins";
        }
        canvas_.Text("section", kMargin, frame_.chain_top - 10, title);
        double end = 0;
        for (std::size_t row = 0; row < links.size(); ++row) {
            const Duration at = Plugin(links[row].plugin).start - picture_.origin;
            const double y = frame_.chain_top + static_cast<double>(row) * kChainRow;
            if (row > 0) {
                canvas_.Line("thread", end, y - 4, end, y + kChainRow / 2);
                canvas_.Line("thread", std::min(end, frame_.X(at)), y + kChainRow / 2,
                             std::max(end, frame_.X(at)), y + kChainRow / 2);
            }
            end = DrawLink(links[row], at, y, row > 0 ? end : frame_.width);
        }
    }

    /// `thread` is where the line from the link before comes in. Returns where the bar ends.
    double DrawLink(const ChainLink& link, Duration at, double y, double thread) {
        const PluginTimes& plugin = Plugin(link.plugin);
        const double x = frame_.X(at);
        const double width = WidthOf(plugin.taken());
        std::string text = plugin.name + "  " + FormatDuration(plugin.taken());
        if (link.barrier.has_value()) {
            text += ", after " + graph_.barriers[*link.barrier].name;
        }
        canvas_.BeginGroup(text);
        canvas_.Rectangle("critical", x, y + 2, width, kChainRow - 4);
        const double needed = static_cast<double>(ColumnsOf(text)) * kColumn + 2 * kInset;
        const double base = y + kChainRow / 2 + 4;
        const double behind = x + width;
        if (behind + needed <= frame_.width) {
            canvas_.Text("outside", behind + kInset, base, text);
        } else if (const double front = std::min(x, thread); needed <= front) {
            canvas_.Text("before", front - kInset, base, text);
        } else {
            canvas_.Text("inside", x + kInset, base, Shorten(text, Columns(frame_.width - x - 2 * kInset)));
        }
        canvas_.EndGroup();
        return behind;
    }

    SvgCanvas canvas_;
    const ChosenRun& run_;
    const RunGraph& graph_;
    const BootPicture& picture_;
    const Frame frame_;
};

}  // namespace

void WritePlotSvg(std::ostream& out, const ChosenRun& run, const RunGraph& graph,
                  const BootPicture& picture) {
    Drawing(out, run, graph, picture).Draw();
}

}  // namespace bootweave
