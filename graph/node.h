// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <string>

#include <boost/container/small_vector.hpp>

#include "util/process_lock.h"

/// \file
/// Nodes of the dependency graph: every unit of boot work is one.
///
/// A node runs once, in one direction: forward after everything it depends on, or in reverse (to stop what
/// was started) after everything that depends on it.
///
/// States:  idle 0 -> waiting 1 -> queued or running 3 -> done 5   forward
///          idle 0 -> waiting 2 -> queued or running 4 -> done 6   reverse
///          idle 0 -> done 5                                       MarkDone: it is not to run
/// Lock:    the graph lock guards everything but the name and the order key; each operation takes it. Only
///          Execute and ExecuteReverse are called without it.
/// Life:    construct; add edges; mark done what is not to run; then schedule and wait. Edges and marks come
///          before the first of its neighbours is scheduled. Nodes live for the whole run: edges do not own.

namespace bootweave {

class Executor;
class Node;
struct Direction;

/// Neighbours of a node. Most have few, which lie in the node itself: a walk over the graph then finds them
/// in the memory that it looks at anyway.
using Edges = boost::container::small_vector<Node*, 2>;

/// Where a node is on its way. The numbers are those of the daemon states that plugins report.
enum class NodeState : std::uint32_t {
    kIdle = 0,
    kWaitingForward = 1,
    kWaitingReverse = 2,
    kQueuedForward = 3,
    kQueuedReverse = 4,
    kDoneForward = 5,
    kDoneReverse = 6,
};

/// One unit of boot work and its place in the graph.
class Node {
  public:
    /// \param order_key  among ready nodes the smallest key runs first
    /// \throws Exception  "Condition variable for Node could not be initialized"
    Node(std::string name, std::uint32_t order_key);
    virtual ~Node() = default;
    Node(const Node&) = delete;
    Node& operator=(const Node&) = delete;

    /// The forward work. Runs on a worker, without the lock.
    virtual void Execute() = 0;
    /// The work of the reverse traversal; does nothing unless a kind of node has some.
    virtual void ExecuteReverse() {}
    /// What stands in the node's bracket of a DOT dump, right behind the label; a blank comes first.
    [[nodiscard]] virtual std::string GetDotAttributes() const = 0;

    [[nodiscard]] const std::string& name() const { return name_; }
    [[nodiscard]] std::uint32_t order_key() const { return order_key_; }
    [[nodiscard]] NodeState state() const;

    /// Makes this node depend on `provider`. The same edge may be added more than once.
    void AddDependency(Node& provider);
    /// Makes `dependent` depend on this node.
    void AddDependent(Node& dependent);
    /// The nodes that finish before this one, in the order in which the edges were added.
    [[nodiscard]] const Edges& dependencies() const { return dependencies_; }
    /// The nodes that wait for this one, in the order in which the edges were added.
    [[nodiscard]] const Edges& dependents() const { return dependents_; }

    /// The longest chain of nodes before this one; 0 without dependencies. Computed on first request.
    [[nodiscard]] std::int32_t level();
    /// The longest chain of nodes that wait for this one; 0 without dependents. Computed on first request.
    [[nodiscard]] std::int32_t height();

    /// Puts the node, and first what it depends on, on its way: ready nodes go to the executor's queue.
    void ScheduleForward(Executor& executor);
    /// Sleeps until the node is done. The caller holds the graph lock not at all.
    ///
    /// When the run has stalled, the level 2 line "Bootweave is stalled: plugins wait for each other: ..."
    /// names a circle, once per process; the wait goes on.
    void WaitForward();

    /// The same two, for the reverse traversal.
    void ScheduleReverse(Executor& executor);
    void WaitReverse();

    /// Runs the node on the calling worker, the way that it was queued, and lets go of what waited for it.
    /// Frees the lock meanwhile.
    void RunLocked(Executor& executor) REQUIRES(g_process_lock);
    /// Counts a node that was taken from the queue as done, without its work, and lets go of what waited for
    /// it.
    void FinishLocked(Executor& executor) REQUIRES(g_process_lock) {
        FinishLocked(executor, QueuedDirection());
    }

    /// Counts the node as done, without running it.
    void MarkDone();

  private:
    friend struct Direction;
    friend class ReadyQueue;
    friend class StallWatch;
    friend std::int32_t ComputeDepth(Node& root, Edges Node::*next, std::int32_t Node::*depth);
    friend bool ComputeKnownDepth(Node& node, Edges Node::*next, std::int32_t Node::*depth);

    [[nodiscard]] std::int32_t LevelLocked() REQUIRES(g_process_lock);
    [[nodiscard]] std::int32_t HeightLocked() REQUIRES(g_process_lock);
    void Schedule(Executor& executor, const Direction& direction);
    void Wait(const Direction& direction);
    /// The way that a queued node goes.
    [[nodiscard]] const Direction& QueuedDirection() const;
    void Perform(const Direction& direction);
    void FinishLocked(Executor& executor, const Direction& direction) REQUIRES(g_process_lock);

    /// A number that no earlier walk over nodes has had.
    [[nodiscard]] static std::uint64_t NextWalkLocked() REQUIRES(g_process_lock) { return ++g_last_walk; }
    std::uint32_t EnterLocked(const Direction& direction) REQUIRES(g_process_lock);
    void QueueLocked(const Direction& direction) REQUIRES(g_process_lock);
    std::uint32_t CountUnfinishedLocked(const Direction& direction) REQUIRES(g_process_lock);

    // What each step of a run looks at lies together: a large graph does not fit into the caches.
    const std::uint32_t order_key_;
    NodeState state_ = NodeState::kIdle;
    /// While waiting: how many different nodes it still waits for.
    std::uint32_t unfinished_ = 0;
    std::int32_t height_ = -1;
    std::int32_t level_ = -1;
    /// Whether a thread sleeps, or has slept, until it is done.
    bool awaited_ = false;
    /// The last walk that came by: tells a node met twice in one walk.
    std::uint64_t walk_ = 0;
    Edges dependencies_;
    Edges dependents_;
    std::string name_;
    ConditionVariable finished_;

    static constinit inline std::uint64_t g_last_walk GUARDED_BY(g_process_lock) = 0;
};

/// One of the two ways through the graph.
struct Direction {
    NodeState waiting;
    NodeState queued;
    NodeState done;
    Edges Node::*before;  ///< what must be done first
    Edges Node::*after;   ///< what waits

    /// Whether a node in this state holds up what comes after it.
    [[nodiscard]] bool Unfinished(NodeState state) const {
        return state == NodeState::kIdle || state == waiting || state == queued;
    }

    static const Direction kForward;
    static const Direction kReverse;
};

}  // namespace bootweave
