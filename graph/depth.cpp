// SPDX-License-Identifier: Apache-2.0
#include "graph/depth.h"

#include <algorithm>
#include <cstdint>
#include <vector>

namespace bootweave {
namespace {

constexpr std::int32_t kOnTheWay = -2;  // the walk is inside this node: an edge to it closes a cycle

struct Step {
    Node* node;
    std::uint32_t next;  // 16 bytes in all: along a chain there is a step for each node
    std::int32_t best;
};

/// The depth that the neighbours' give, when all of them are known; -1 when one is not.
std::int32_t DepthFromKnown(const Edges& neighbours, std::int32_t Node::*depth) {
    std::int32_t best = 0;
    for (const Node* neighbour : neighbours) {
        if (neighbour->*depth < 0) {
            return -1;
        }
        best = std::max(best, neighbour->*depth + 1);
    }
    return best;
}

}  // namespace

bool ComputeKnownDepth(Node& node, Edges Node::*next, std::int32_t Node::*depth) {
    if (node.*depth < 0) {
        node.*depth = DepthFromKnown(node.*next, depth);
    }
    return node.*depth >= 0;
}

std::int32_t ComputeDepth(Node& root, Edges Node::*next, std::int32_t Node::*depth) {
    if (ComputeKnownDepth(root, next, depth)) {  // most nodes: no walk
        return root.*depth;
    }
    std::vector<Step> path{{&root, 0, 0}};
    root.*depth = kOnTheWay;
    while (!path.empty()) {
        Step& step = path.back();
        const Edges& neighbours = step.node->*next;
        if (step.next == neighbours.size()) {
            const std::int32_t result = step.best;
            step.node->*depth = result;
            path.pop_back();
            if (!path.empty()) {
                path.back().best = std::max(path.back().best, result + 1);
            }
            continue;
        }
        Node* neighbour = neighbours[step.next++];
        if (neighbour->*depth >= 0) {
            step.best = std::max(step.best, neighbour->*depth + 1);
        } else if (neighbour->*depth != kOnTheWay) {
            neighbour->*depth = kOnTheWay;
            path.push_back({neighbour, 0, 0});
        }
    }
    return root.*depth;
}

}  // namespace bootweave
