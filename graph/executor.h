// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

#include "graph/ready_queue.h"
#include "util/process_lock.h"
#include "util/thread.h"

namespace bootweave {

/// A fixed set of worker threads that run queued nodes.
///
/// Life:    construct with a number of workers; schedule nodes on it and wait for them; destroy. Nodes still
///          queued when it is destroyed never run; those that run are finished first.
/// Lock:    the graph lock guards the queue and the stop flag; nodes run without it.
/// Wakes:   workers sleep until a node is queued or the executor is destroyed; both wake all of them. A
///          worker whose node lets go of others takes one of them itself: it wakes the rest only for more.
class Executor {
  public:
    /// \param threads    number of workers; below 1 there are none, and what is queued waits for ever
    /// \param randomize  choose at random among nodes that are equally good
    /// \throws Exception  "Condition variable for Executor could not be initialized", or "Could not create
    ///                    enough execution threads. (<created> created, <threads>requested)"
    Executor(std::int32_t threads, bool randomize);
    /// Joins every worker. The caller does not hold the graph lock.
    virtual ~Executor();
    Executor(const Executor&) = delete;
    Executor& operator=(const Executor&) = delete;

    /// Adds a node, in state queued forward or queued in reverse, to the end of the queue.
    void Enqueue(Node& node);
    /// The same, for a worker that is about to look at the queue: wakes nobody.
    void EnqueueFromWorkerLocked(Node& node) REQUIRES(g_process_lock) { queue_.Push(node); }
    /// Takes the next node out of the queue, for whoever runs it; null when there is none.
    [[nodiscard]] Node* TakeLocked() REQUIRES(g_process_lock) { return queue_.Pop(randomize_); }

    /// Which nodes are about to be scheduled, and live until the next call; see ReadyQueue::Expect().
    void Expect(std::span<Node* const> nodes);

    /// Sleeps until no node is queued and none runs: what was scheduled is done, or waits for what will never
    /// be. One sleep for a whole run, where waiting for each node would wake the caller once a node. The
    /// caller does not hold the graph lock.
    void WaitUntilIdle();

  private:
    void Work();
    void Stop();
    void RunLocked(Node& node) REQUIRES(g_process_lock);

    ConditionVariable work_to_do_;
    ConditionVariable idle_;
    ReadyQueue queue_ GUARDED_BY(g_process_lock);
    std::vector<Thread> workers_;
    std::size_t sleeping_ GUARDED_BY(g_process_lock) = 0;  // workers
    std::size_t running_ GUARDED_BY(g_process_lock) = 0;   // nodes
    bool stop_ GUARDED_BY(g_process_lock) = false;
    const bool randomize_;
};

}  // namespace bootweave
