// SPDX-License-Identifier: Apache-2.0
#include "analyze/report_dot.h"

#include <chrono>
#include <sstream>
#include <string>

#include "gmock/gmock.h"

namespace bootweave {
namespace {

using testing::HasSubstr;

constexpr Instant kBegin{std::chrono::hours(24)};

class ReportDotTest : public testing::Test {
  protected:
    ReportDotTest() {
        run_.block.start = kBegin;
        run_.block.plugins = {Ran("a", 0, 500), Ran("b", 500, 1000), {"c", {}, {}}};
        graph_.plugins = {{PluginKind::kJSON, {}, {0}}, {PluginKind::kNative, {0}, {}}, {}};
        graph_.barriers = {{"x", {0}, {1}}};
    }

    static PluginTimes Ran(const std::string& name, int from, int to) {
        return {name, kBegin + Duration(from), kBegin + Duration(to)};
    }

    std::string Draw(const std::optional<std::string>& around = {}) {
        std::ostringstream out;
        WriteGraphDot(out, run_, graph_, CriticalChain(run_.block, graph_, {}),
                      PartAround(run_.block, graph_, around));
        return out.str();
    }

    ChosenRun run_{};
    RunGraph graph_;
};

TEST_F(ReportDotTest, PluginsAndBarriersHaveStableNamesAndTheChainIsMarked) {
    EXPECT_EQ(
        "digraph boot {\n"
        "graph [rankdir=LR, fontname=\"sans-serif\"];\n"
        "node [fontname=\"sans-serif\", fontsize=11, style=filled];\n"
        "edge [color=\"#5b6472\"];\n"
        "\"plugin:a\" [label=\"a\\njson, 500us\", class=critical, fillcolor=\"#ef8f4c\", color=\"#a6480a\", "
        "penwidth=2.5];\n"
        "\"plugin:a\" -> \"barrier:x\" [class=critical, color=\"#a6480a\", penwidth=2.5];\n"
        "\"plugin:b\" [label=\"b\\nnative, 500us\", class=critical, fillcolor=\"#ef8f4c\", "
        "color=\"#a6480a\", "
        "penwidth=2.5];\n"
        "\"plugin:c\" [label=\"c\\nunknown, did not run\", style=dashed];\n"
        "\"barrier:x\" [label=\"x\", shape=box, class=critical, fillcolor=\"#fbe3d3\", color=\"#a6480a\", "
        "penwidth=2.5];\n"
        "\"barrier:x\" -> \"plugin:b\" [class=critical, color=\"#a6480a\", penwidth=2.5];\n"
        "}\n",
        Draw());
}

TEST_F(ReportDotTest, WhatIsNotOfTheChainIsPlain) {
    run_.block.plugins.push_back(Ran("d", 0, 5));
    graph_.plugins.push_back({PluginKind::kDebug, {0}, {1}});
    graph_.barriers[0].requirers.push_back(3);
    graph_.barriers.push_back({"y", {3}, {}});
    const std::string graph = Draw();
    EXPECT_THAT(graph, HasSubstr("\"plugin:d\" [label=\"d\\ndebug, 5us\", fillcolor=\"#8fb8e3\", "
                                 "color=\"#5d8fc4\"];\n\"plugin:d\" -> \"barrier:y\";\n"));
    EXPECT_THAT(graph, HasSubstr("\"barrier:x\" -> \"plugin:d\";\n"));
    EXPECT_THAT(graph, HasSubstr("\"barrier:y\" [label=\"y\", shape=box, fillcolor=\"#f4f6f8\", "
                                 "color=\"#5b6472\"];\n"));
}

TEST_F(ReportDotTest, PrioritiesOfDaemonsHaveAShapeOfTheirOwn) {
    run_.block.kind = RunKind::kDaemon;
    EXPECT_THAT(Draw(), HasSubstr("\"barrier:x\" [label=\"x\", shape=trapezium, "));
}

TEST_F(ReportDotTest, PluginsOfOneNameAreNodesOfTheirOwn) {
    run_.block.plugins[1].name = "a";
    run_.block.plugins[2].name = "/2:a";
    const std::string graph = Draw();
    EXPECT_THAT(graph, HasSubstr("\n\"plugin:a\" ["));
    EXPECT_THAT(graph, HasSubstr("\n\"plugin/2:a\" ["));
    EXPECT_THAT(graph, HasSubstr("\n\"plugin:/2:a\" ["));
}

TEST_F(ReportDotTest, ANeighbourhoodHasNoEdgesThatLeaveIt) {
    run_.block.plugins.push_back(Ran("d", 0, 5));
    graph_.plugins[1].provided = {1};
    graph_.plugins.push_back({PluginKind::kJSON, {1}, {}});
    graph_.barriers.push_back({"y", {1}, {3}});
    const std::string graph = Draw("a");
    EXPECT_THAT(graph, HasSubstr("\"barrier:x\" -> \"plugin:b\""));
    EXPECT_EQ(std::string::npos, graph.find("\"plugin:d\""));
    EXPECT_EQ(std::string::npos, graph.find("\"barrier:y\""));
}

TEST_F(ReportDotTest, HostileNamesStayInsideTheirQuotes) {
    run_.block.plugins[2].name = "\"]; \\N & \\";
    EXPECT_THAT(Draw(), HasSubstr(R"("plugin:\"]; \\N & \\" [label="\"]; \\N &amp; \\\nunknown)"));
    run_.block.plugins[2].name = "\xFF";
    EXPECT_THAT(Draw(), HasSubstr("\"plugin:\xEF\xBF\xBD\""));
}

TEST_F(ReportDotTest, NamesThatOnlyLookTheSameAreNodesOfTheirOwn) {
    run_.block.plugins[0].name = "\xFE";
    run_.block.plugins[1].name = "\xFF";
    graph_.barriers[0].name = "\xFE";
    graph_.barriers.push_back({"\xFF", {0}, {}});
    graph_.plugins[0].provided.push_back(1);
    const std::string graph = Draw();
    EXPECT_THAT(graph, HasSubstr("\n\"plugin:\xEF\xBF\xBD\" -> \"barrier:\xEF\xBF\xBD\" ["));
    EXPECT_THAT(graph, HasSubstr("\n\"plugin:\xEF\xBF\xBD\" -> \"barrier/2:\xEF\xBF\xBD\";"));
    EXPECT_THAT(graph, HasSubstr("\n\"barrier/2:\xEF\xBF\xBD\" ["));
    EXPECT_THAT(graph, HasSubstr("\n\"plugin/2:\xEF\xBF\xBD\" ["));
}

}  // namespace
}  // namespace bootweave
