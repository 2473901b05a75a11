// SPDX-License-Identifier: Apache-2.0
#include "graph/virtual_run.h"

#include <queue>
#include <tuple>

#include "graph/executor.h"
#include "graph/stall.h"

namespace bootweave {
namespace {

/// A node that a worker is busy with. Of those that end at the same time the one that was taken first ends
/// first.
struct Busy {
    VirtualTime end;
    std::size_t taken;
    Node* node;

    bool operator>(const Busy& other) const {
        return std::tie(end, taken) > std::tie(other.end, other.taken);
    }
};

std::string CircleAmong(std::span<Node* const> nodes) REQUIRES(g_process_lock) {
    for (Node* node : nodes) {
        if (node->state() == NodeState::kWaitingForward) {
            return StallWatch::DescribeCircleLocked(*node, Direction::kForward);
        }
    }
    return {};
}

}  // namespace

VirtualOutcome RunInVirtualTime(std::span<Node* const> nodes, std::size_t workers, bool randomize,
                                const std::function<VirtualTime(const Node&)>& time_of) {
    VirtualOutcome outcome;
    Executor executor(0, randomize);  // for its queue: the workers are imagined
    const ProcessLockGuard lock;
    for (Node* node : nodes) {
        node->ScheduleForward(executor);
    }
    std::priority_queue<Busy, std::vector<Busy>, std::greater<>> busy;
    VirtualTime now{0};
    while (true) {
        while (busy.size() < workers) {
            Node* const node = executor.TakeLocked();
            if (node == nullptr) {
                break;
            }
            const VirtualTime end = now + time_of(*node);
            busy.push({end, outcome.spans.size(), node});
            outcome.spans.push_back({node, now, end});
        }
        if (busy.empty()) {
            break;
        }
        now = busy.top().end;
        Node* const node = busy.top().node;
        busy.pop();
        node->FinishLocked(executor);
    }
    outcome.circle = CircleAmong(nodes);
    return outcome;
}

}  // namespace bootweave
