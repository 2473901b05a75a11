// SPDX-License-Identifier: Apache-2.0
#include "graph/dot.h"

#include <cstdint>
#include <string>

namespace bootweave {
namespace {

std::uintptr_t Identifier(const Node* node) {
    return reinterpret_cast<std::uintptr_t>(node);
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

void WriteNode(std::ostream& out, const Node* node) {
    out << Identifier(node) << " [label=\"" << Escape(node->name()) << "\"" << node->GetDotAttributes()
        << "];" << std::endl;
    for (const Node* dependent : node->dependents()) {
        out << Identifier(node) << " -> " << Identifier(dependent) << ";" << std::endl;
    }
}

}  // namespace

void WriteDot(std::ostream& out, const std::vector<const Node*>& plugins, const BarrierRegistry& registry) {
    out << "digraph g {" << std::endl;
    for (const Node* plugin : plugins) {
        WriteNode(out, plugin);
    }
    for (const InitBarrier* barrier : registry.List()) {
        WriteNode(out, barrier);
    }
    out << "}" << std::endl;
}

}  // namespace bootweave
