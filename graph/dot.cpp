// SPDX-License-Identifier: Apache-2.0
#include "graph/dot.h"

#include <cstdint>
#include <string>

namespace bootweave {
namespace {

std::string Identifier(const Node* node) {
    return std::to_string(reinterpret_cast<std::uintptr_t>(node));
}

/// A label ends at a plain double quote, and a backslash takes the next character's meaning away.
std::string Escape(const std::string& name) {
    std::string label;
    for (const char character : name) {
        if (character == '"' || character == '\\') {
            label += '\\';
        }
        label += character;
    }
    return label;
}

/// One write a line, also where the stream keeps nothing back.
void WriteLine(std::ostream& out, std::string line) {
    line += '\n';
    out << line << std::flush;
}

void WriteNode(std::ostream& out, const Node* node) {
    const std::string identifier = Identifier(node);
    WriteLine(out, identifier + " [label=\"" + Escape(node->name()) + "\"" + node->GetDotAttributes() + "];");
    for (const Node* dependent : node->dependents()) {
        WriteLine(out, identifier + " -> " + Identifier(dependent) + ";");
    }
}

}  // namespace

void WriteDot(std::ostream& out, const std::vector<const Node*>& plugins, const BarrierRegistry& registry) {
    WriteLine(out, "digraph g {");
    for (const Node* plugin : plugins) {
        WriteNode(out, plugin);
    }
    for (const InitBarrier* barrier : registry.List()) {
        WriteNode(out, barrier);
    }
    WriteLine(out, "}");
}

}  // namespace bootweave
