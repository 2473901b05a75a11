// SPDX-License-Identifier: Apache-2.0
#include "graph/run_all.h"

#include <vector>

#include "graph/stall.h"

namespace bootweave {
namespace {

/// Held until all are scheduled: the first choice must see every node, whatever the workers' timing.
void ScheduleAll(std::span<Node* const> nodes, Executor& executor, void (Node::*schedule)(Executor&)) {
    const ProcessLockGuard lock;
    executor.Expect(nodes);
    for (Node* node : nodes) {
        (node->*schedule)(executor);
    }
}

/// Those that wait for what will never be. Mostly there are none, and nobody looks at each node to learn
/// that.
std::vector<Node*> NotDone(std::span<Node* const> nodes, NodeState done) {
    std::vector<Node*> left;
    const ProcessLockGuard lock;
    if (!StallWatch::AnyWaitsLocked()) {
        return left;
    }
    for (Node* node : nodes) {
        if (node->state() != done) {
            left.push_back(node);
        }
    }
    return left;
}

}  // namespace

void RunAllForward(std::span<Node* const> nodes, Executor& executor) {
    ScheduleAll(nodes, executor, &Node::ScheduleForward);
    executor.WaitUntilIdle();
    for (Node* node : NotDone(nodes, NodeState::kDoneForward)) {
        node->WaitForward();
    }
    executor.Expect({});
}

void RunAllReverse(std::span<Node* const> nodes, Executor& executor) {
    ScheduleAll(nodes, executor, &Node::ScheduleReverse);
    executor.WaitUntilIdle();
    for (Node* node : NotDone(nodes, NodeState::kDoneReverse)) {
        node->WaitReverse();
    }
    executor.Expect({});
}

}  // namespace bootweave
