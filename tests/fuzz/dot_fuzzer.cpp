// SPDX-License-Identifier: Apache-2.0
// The name of a node in a dump of the graph.

#include <sstream>

#include "graph/barrier_registry.h"
#include "graph/dot.h"
#include "tests/fuzz/fuzzing.h"
#include "tests/support/recording_node.h"

namespace bootweave {
namespace {

/// What a reader of the DOT language takes a quoted label for, up to the quote that ends it.
std::string Unquote(std::string_view& text) {
    std::string label;
    while (!text.empty() && text.front() != '"') {
        if (text.front() == '\\') {
            text.remove_prefix(1);
            Check(!text.empty(), "a backslash is in front of something");
        }
        label += text.front();
        text.remove_prefix(1);
    }
    return label;
}

}  // namespace
}  // namespace bootweave

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using namespace bootweave;
    const std::string name(Text(data, size));
    RunRecord record;
    const RecordingNode node(name, record);
    std::ostringstream out;
    WriteDot(out, {&node}, BarrierRegistry());
    const std::string dump = out.str();
    const std::string number = std::to_string(reinterpret_cast<std::uintptr_t>(&node));
    const std::string start = "digraph g {\n" + number + " [label=\"";
    Check(dump.starts_with(start), "the label is where it belongs");
    std::string_view rest = std::string_view(dump).substr(start.size());
    Check(Unquote(rest) == name, "the label reads as the name");
    Check(rest == "\"];\n}\n", "the label ends where it should");
    return 0;
}
