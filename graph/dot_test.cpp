// SPDX-License-Identifier: Apache-2.0
#include "graph/dot.h"

#include <cstdint>
#include <fstream>
#include <sstream>

#include "gtest/gtest.h"
#include "tests/support/recording_node.h"

namespace bootweave {
namespace {

std::string Id(const Node* node) {
    return std::to_string(reinterpret_cast<std::uintptr_t>(node));
}

class DotTest : public testing::Test {
  protected:
    [[nodiscard]] std::string Dump(const std::vector<const Node*>& plugins) const {
        std::ostringstream out;
        WriteDot(out, plugins, registry_);
        return out.str();
    }

    RunRecord record_;
    BarrierRegistry registry_;
};

TEST_F(DotTest, WithoutPluginsThereAreTheFrameAndTheBarriers) {
    EXPECT_EQ("digraph g {\n}\n", Dump({}));
    const Node* barrier = registry_.Find("net", true);
    EXPECT_EQ("digraph g {\n" + Id(barrier) + " [label=\"net\" shape=box];\n}\n", Dump({}));
}

TEST_F(DotTest, PluginsComeInTheOrderGivenAndBarriersByName) {
    RecordingNode b("b", record_);
    RecordingNode a("a", record_);
    InitBarrier& zulu = *registry_.Find("zulu", true);
    InitBarrier& alpha = *registry_.Find("alpha", true);
    b.AddDependent(zulu);
    a.AddDependency(zulu);
    a.AddDependency(zulu);
    a.AddDependent(alpha);
    EXPECT_EQ("digraph g {\n" +                                     //
                  Id(&b) + " [label=\"b\"];\n" +                    //
                  Id(&b) + " -> " + Id(&zulu) + ";\n" +             //
                  Id(&a) + " [label=\"a\"];\n" +                    //
                  Id(&a) + " -> " + Id(&alpha) + ";\n" +            //
                  Id(&alpha) + " [label=\"alpha\" shape=box];\n" +  //
                  Id(&zulu) + " [label=\"zulu\" shape=box];\n" +    //
                  Id(&zulu) + " -> " + Id(&a) + ";\n" +             //
                  Id(&zulu) + " -> " + Id(&a) + ";\n" +             //
                  "}\n",
              Dump({&b, &a}));
}

TEST_F(DotTest, APriorityBarrierIsATrapezium) {
    const Node& barrier = registry_.Priority(20);
    EXPECT_EQ("digraph g {\n" + Id(&barrier) + " [label=\"_<->_priority_<->_20\" shape=trapezium];\n}\n",
              Dump({}));
}

TEST_F(DotTest, QuotesAndBackslashesInANameDoNotEndTheLabel) {
    const RecordingNode node(R"(a"b\c)", record_);
    EXPECT_EQ("digraph g {\n" + Id(&node) + R"( [label="a\"b\\c"];)" + "\n}\n", Dump({&node}));
}

TEST_F(DotTest, AStreamThatTakesNothingIsLeftInAFailedState) {
    std::ofstream full("/dev/full");
    WriteDot(full, {}, registry_);
    EXPECT_FALSE(full.good());
}

}  // namespace
}  // namespace bootweave
