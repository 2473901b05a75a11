// SPDX-License-Identifier: Apache-2.0
#include "analyze/report_dot.h"

#include <cstddef>
#include <map>
#include <set>
#include <string>
#include <string_view>
#include <utility>

#include "analyze/table.h"
#include "analyze/utf8_text.h"

namespace bootweave {
namespace {

constexpr std::string_view kCriticalEdge = " [class=critical, color=\"#a6480a\", penwidth=2.5]";

/// A quoted identifier.
std::string Quoted(std::string_view text) {
    std::string result = "\"";
    for (const char character : Utf8Text(text)) {
        if (character == '"' || character == '\\') {
            result += '\\';
        }
        result += character;
    }
    return result + "\"";
}

/// What reads as `text` inside a quoted label, where a backslash and an ampersand begin something.
std::string LabelText(std::string_view text) {
    std::string result;
    for (const char character : Utf8Text(text)) {
        if (character == '"' || character == '\\') {
            result += '\\';
        }
        result += character == '&' ? std::string("&amp;") : std::string(1, character);
    }
    return result;
}

class Drawing {
  public:
    Drawing(std::ostream& out, const ChosenRun& run, const RunGraph& graph, const GraphPart& part)
        : out_(out), run_(run), graph_(graph), part_(part) {}

    void Mark(const std::vector<ChainLink>& chain) {
        for (std::size_t index = 0; index < chain.size(); ++index) {
            plugins_.insert(chain[index].plugin);
            if (chain[index].barrier.has_value() && index + 1 < chain.size()) {
                barriers_.insert(*chain[index].barrier);
                into_plugin_.emplace(*chain[index].barrier, chain[index].plugin);
                into_barrier_.emplace(chain[index + 1].plugin, *chain[index].barrier);
            }
        }
    }

    void Draw() {
        NameNodes();
        out_ << "digraph boot {\n"
                "graph [rankdir=LR, fontname=\"sans-serif\"];\n"
                "node [fontname=\"sans-serif\", fontsize=11, style=filled];\n"
                "edge [color=\"#5b6472\"];\n";
        for (std::size_t index = 0; index < graph_.plugins.size(); ++index) {
            if (part_.plugins[index]) {
                DrawPlugin(index);
            }
        }
        for (std::size_t index = 0; index < graph_.barriers.size(); ++index) {
            if (part_.barriers[index]) {
                DrawBarrier(index);
            }
        }
        out_ << "}\n";
    }

  private:
    void NameNodes() {
        std::map<std::string, std::size_t> plugins_met;
        for (const PluginTimes& plugin : run_.block.plugins) {
            identifiers_.push_back(Identifier("plugin", plugin.name, plugins_met));
        }
        std::map<std::string, std::size_t> barriers_met;
        for (const RunBarrier& barrier : graph_.barriers) {
            barrier_identifiers_.push_back(Identifier("barrier", barrier.name, barriers_met));
        }
    }

    /// Those are counted that look the same here: names that are no UTF-8 may differ in what nobody sees.
    static std::string Identifier(const std::string& kind, const std::string& name,
                                  std::map<std::string, std::size_t>& met) {
        const std::size_t place = ++met[Utf8Text(name)];
        const std::string number = place > 1 ? "/" + std::to_string(place) : "";
        return Quoted(kind + number + ":" + name);
    }

    void DrawPlugin(std::size_t index) {
        const PluginTimes& times = run_.block.plugins[index];
        const RunPlugin& plugin = graph_.plugins[index];
        out_ << identifiers_[index] << " [label=\"" << LabelText(times.name) << "\\n"
             << PluginKindText(plugin.kind) << ", "
             << (times.ran() ? FormatDuration(times.taken()) : "did not run") << "\"";
        if (plugins_.contains(index)) {
            out_ << R"(, class=critical, fillcolor="#ef8f4c", color="#a6480a", penwidth=2.5)";
        } else if (times.ran()) {
            out_ << R"(, fillcolor="#8fb8e3", color="#5d8fc4")";
        } else {
            out_ << ", style=dashed";
        }
        out_ << "];\n";
        for (const std::size_t barrier : plugin.provided) {
            if (part_.barriers[barrier]) {
                out_ << identifiers_[index] << " -> " << barrier_identifiers_[barrier]
                     << (into_barrier_.contains({index, barrier}) ? kCriticalEdge : "") << ";\n";
            }
        }
    }

    void DrawBarrier(std::size_t index) {
        const RunBarrier& barrier = graph_.barriers[index];
        const bool daemons = run_.block.kind == RunKind::kDaemon;
        out_ << barrier_identifiers_[index] << " [label=\"" << LabelText(barrier.name)
             << (daemons ? "\", shape=trapezium" : "\", shape=box");
        if (barriers_.contains(index)) {
            out_ << R"(, class=critical, fillcolor="#fbe3d3", color="#a6480a", penwidth=2.5)";
        } else {
            out_ << R"(, fillcolor="#f4f6f8", color="#5b6472")";
        }
        out_ << "];\n";
        for (const std::size_t plugin : barrier.requirers) {
            if (part_.plugins[plugin]) {
                out_ << barrier_identifiers_[index] << " -> " << identifiers_[plugin]
                     << (into_plugin_.contains({index, plugin}) ? kCriticalEdge : "") << ";\n";
            }
        }
    }

    using Edge = std::pair<std::size_t, std::size_t>;

    std::ostream& out_;
    const ChosenRun& run_;
    const RunGraph& graph_;
    const GraphPart& part_;
    std::vector<std::string> identifiers_;  // of the plugins
    std::vector<std::string> barrier_identifiers_;
    // What the critical chain goes through.
    std::set<std::size_t> plugins_;
    std::set<std::size_t> barriers_;
    std::set<Edge> into_barrier_;
    std::set<Edge> into_plugin_;
};

}  // namespace

void WriteGraphDot(std::ostream& out, const ChosenRun& run, const RunGraph& graph,
                   const std::vector<ChainLink>& chain, const GraphPart& part) {
    Drawing drawing(out, run, graph, part);
    drawing.Mark(chain);
    drawing.Draw();
}

}  // namespace bootweave
