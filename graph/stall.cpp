// SPDX-License-Identifier: Apache-2.0
#include "graph/stall.h"

#include <algorithm>
#include <cstddef>
#include <vector>

#include "graph/barrier.h"
#include "platform/log.h"

namespace bootweave {
namespace {

struct Reports {
    bool made = false;
    std::vector<Node*> awaited;
};

Reports& ReportsLocked() REQUIRES(g_process_lock) {
    static constinit Reports reports;
    return reports;
}

}  // namespace

void StallWatch::WakeWhenStalledLocked() {
    if (g_waiting == 0 || ReportsLocked().made) {
        return;
    }
    for (Node* node : ReportsLocked().awaited) {
        node->finished_.Broadcast();
    }
}

StallWatch::Sleeper::Sleeper(Node& node, const Direction& direction) : node_(node), direction_(direction) {
    ReportsLocked().awaited.push_back(&node);
}

StallWatch::Sleeper::~Sleeper() {
    std::vector<Node*>& awaited = ReportsLocked().awaited;
    awaited.erase(std::find(awaited.begin(), awaited.end(), &node_));
}

void StallWatch::Sleeper::ReportStallLocked() const {
    if (g_waiting == 0 || g_active > 0 || ReportsLocked().made) {
        return;
    }
    const std::string circle = DescribeCircleLocked(node_, direction_);
    if (circle.empty()) {
        return;
    }
    ReportsLocked().made = true;
    g_process_lock.Unlock();
    Log_Level(2, "Bootweave is stalled: plugins wait for each other: %s\n", circle.c_str());
    g_process_lock.Lock();
}

std::string StallWatch::DescribeCircleLocked(Node& node, const Direction& direction) {
    std::vector<Node*> circle = FindCircleLocked(node, direction);
    // Barriers only pass the waiting on: the plugins are what has to be mended.
    std::erase_if(circle, [](Node* member) { return dynamic_cast<InitBarrier*>(member) != nullptr; });
    if (circle.empty()) {
        return {};
    }
    std::string text;
    for (const Node* member : circle) {
        text += member->name() + " -> ";
    }
    return text + circle.front()->name();
}

/// In a stalled run everything that waits does so for something that waits, so that following the first such
/// provider must come back to a node seen before.
std::vector<Node*> StallWatch::FindCircleLocked(Node& node, const Direction& direction) {
    std::vector<Node*> path;
    Node* current = node.state_ == direction.waiting ? &node : nullptr;
    const std::uint64_t walk = Node::NextWalkLocked();
    while (current != nullptr && current->walk_ != walk) {
        current->walk_ = walk;
        path.push_back(current);
        const Edges& before = current->*direction.before;
        const auto next = std::find_if(before.begin(), before.end(),
                                       [&](Node* provider) { return provider->state_ == direction.waiting; });
        current = next == before.end() ? nullptr : *next;
    }
    if (current == nullptr) {
        return {};
    }
    path.erase(path.begin(), std::find(path.begin(), path.end(), current));
    return path;
}

void StallWatch::Reset() {
    const ProcessLockGuard lock;
    ReportsLocked() = Reports();
    g_waiting = 0;
    g_active = 0;
}

}  // namespace bootweave
