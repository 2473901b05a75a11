// SPDX-License-Identifier: Apache-2.0
#include "graph/node.h"

#include <algorithm>
#include <exception>
#include <utility>
#include <vector>

#include "graph/depth.h"
#include "graph/executor.h"
#include "graph/stall.h"
#include "platform/log.h"

namespace bootweave {
namespace {

/// Calls the work of a node. Kinds of nodes contain their own failures; what escapes all the same must not
/// take the worker, and with it the boot, down.
template <typename Work>
void Contain(const Node& node, Work work) {
    try {
        work();
    } catch (const std::exception& error) {
        Log_Level(2, "unhandled exception whilst running %s: %s\n", node.name().c_str(), error.what());
    } catch (...) {
        Log_Level(2, "unhandled exception whilst running %s\n", node.name().c_str());
    }
}

}  // namespace

const Direction Direction::kForward{NodeState::kWaitingForward, NodeState::kQueuedForward,
                                    NodeState::kDoneForward, &Node::dependencies_, &Node::dependents_};
const Direction Direction::kReverse{NodeState::kWaitingReverse, NodeState::kQueuedReverse,
                                    NodeState::kDoneReverse, &Node::dependents_, &Node::dependencies_};

Node::Node(std::string name, std::uint32_t order_key)
    : order_key_(order_key),
      name_(std::move(name)),
      finished_("Condition variable for Node could not be initialized") {}

NodeState Node::state() const {
    const ProcessLockGuard lock;
    return state_;
}

void Node::AddDependency(Node& provider) {
    const ProcessLockGuard lock;
    dependencies_.push_back(&provider);
    provider.dependents_.push_back(this);
    level_ = -1;
    provider.height_ = -1;
}

void Node::AddDependent(Node& dependent) {
    const ProcessLockGuard lock;
    dependents_.push_back(&dependent);
    dependent.dependencies_.push_back(this);
    height_ = -1;
    dependent.level_ = -1;
}

std::int32_t Node::level() {
    const ProcessLockGuard lock;
    return LevelLocked();
}

std::int32_t Node::height() {
    const ProcessLockGuard lock;
    return HeightLocked();
}

std::int32_t Node::LevelLocked() {
    return level_ >= 0 ? level_ : ComputeDepth(*this, &Node::dependencies_, &Node::level_);
}

std::int32_t Node::HeightLocked() {
    return height_ >= 0 ? height_ : ComputeDepth(*this, &Node::dependents_, &Node::height_);
}

void Node::ScheduleForward(Executor& executor) {
    Schedule(executor, Direction::kForward);
}
void Node::ScheduleReverse(Executor& executor) {
    Schedule(executor, Direction::kReverse);
}

// A walk in depth, by a list of its own: a chain of plugins may be longer than a thread's stack is deep.
// Nodes that are ready are queued when the walk leaves them, so that they arrive in the order of the lists.
void Node::Schedule(Executor& executor, const Direction& direction) {
    struct Step {
        Node* node;
        std::uint32_t next;
        std::uint32_t unfinished;
    };
    const ProcessLockGuard lock;
    if (state_ == direction.waiting || state_ == direction.queued || state_ == direction.done) {
        return;
    }
    const std::uint32_t unfinished = EnterLocked(direction);
    const Edges& own = this->*direction.before;
    const bool nothing_idle =
        std::none_of(own.begin(), own.end(), [](Node* node) { return node->state_ == NodeState::kIdle; });
    if (nothing_idle) {  // most nodes: those before them were scheduled first
        if (unfinished == 0) {
            QueueLocked(direction);
            executor.Enqueue(*this);
        }
        return;
    }
    std::vector<Step> path{{this, 0, unfinished}};
    while (!path.empty()) {
        Step& step = path.back();
        const Edges& before = step.node->*direction.before;
        while (step.next < before.size() && before[step.next]->state_ != NodeState::kIdle) {
            ++step.next;
        }
        if (step.next < before.size()) {
            Node& provider = *before[step.next];
            path.push_back({&provider, 0, provider.EnterLocked(direction)});
            continue;
        }
        if (step.unfinished == 0) {
            step.node->QueueLocked(direction);
            executor.Enqueue(*step.node);
        }
        path.pop_back();
    }
}

/// Sets an idle node waiting. Returns how many different nodes it waits for.
std::uint32_t Node::EnterLocked(const Direction& direction) {
    if (state_ != NodeState::kIdle) {  // it went the other way before: looked at, but left as it is
        return CountUnfinishedLocked(direction);
    }
    state_ = direction.waiting;
    StallWatch::NoteWaitingLocked();
    unfinished_ = CountUnfinishedLocked(direction);
    return unfinished_;
}

/// A node named twice counts once: when it is done it lets go of each of its neighbours in one go.
std::uint32_t Node::CountUnfinishedLocked(const Direction& direction) {
    const std::uint64_t walk = NextWalkLocked();
    std::uint32_t count = 0;
    for (Node* node : this->*direction.before) {
        if (node->walk_ != walk && direction.Unfinished(node->state_)) {
            node->walk_ = walk;
            ++count;
        }
    }
    return count;
}

void Node::QueueLocked(const Direction& direction) {
    StallWatch::NoteQueuedLocked(state_ == direction.waiting);
    state_ = direction.queued;
}

const Direction& Node::QueuedDirection() const {
    return state_ == NodeState::kQueuedForward ? Direction::kForward : Direction::kReverse;
}

void Node::RunLocked(Executor& executor) {
    const Direction& direction = QueuedDirection();
    g_process_lock.Unlock();
    Perform(direction);
    g_process_lock.Lock();
    FinishLocked(executor, direction);
}

void Node::Perform(const Direction& direction) {
    if (&direction == &Direction::kForward) {
        Contain(*this, [this] { Execute(); });
    } else {
        Contain(*this, [this] { ExecuteReverse(); });
    }
}

void Node::FinishLocked(Executor& executor, const Direction& direction) {
    state_ = direction.done;
    const std::uint64_t walk = NextWalkLocked();
    for (Node* node : this->*direction.after) {
        if (node->state_ != direction.waiting || node->walk_ == walk || node->unfinished_ == 0) {
            continue;
        }
        node->walk_ = walk;
        if (--node->unfinished_ == 0) {
            node->QueueLocked(direction);
            executor.EnqueueFromWorkerLocked(*node);
        }
    }
    if (awaited_) {
        finished_.Broadcast();
    }
    StallWatch::NoteFinishedLocked();
}

void Node::WaitForward() {
    Wait(Direction::kForward);
}
void Node::WaitReverse() {
    Wait(Direction::kReverse);
}

void Node::Wait(const Direction& direction) {
    const ProcessLockGuard lock;
    if (state_ == direction.done) {
        return;
    }
    awaited_ = true;
    const StallWatch::Sleeper sleeper(*this, direction);
    while (state_ != direction.done) {
        sleeper.ReportStallLocked();
        if (state_ != direction.done) {
            finished_.Wait();
        }
    }
}

void Node::MarkDone() {
    const ProcessLockGuard lock;
    state_ = NodeState::kDoneForward;
}

}  // namespace bootweave
