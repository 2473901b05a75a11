// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "graph/node.h"

/// \file
/// Tells when a run can go no further: nothing runs, nothing is ready, and nodes still wait, for each other.
/// The thread that waits for such a node says so, once; whoever reads the log then knows which plugins to
/// mend.

namespace bootweave {

/// The process-wide count of nodes that wait and of nodes that are queued or running.
class StallWatch {
  public:
    static void NoteWaitingLocked() REQUIRES(g_process_lock) { ++g_waiting; }
    static void NoteQueuedLocked(bool was_waiting) REQUIRES(g_process_lock) {
        g_waiting -= was_waiting ? 1 : 0;
        ++g_active;
    }
    /// Wakes the threads that wait when it was the last node that could run.
    static void NoteFinishedLocked() REQUIRES(g_process_lock) {
        if (--g_active == 0) {
            WakeWhenStalledLocked();
        }
    }
    /// Whether a node waits for another one.
    [[nodiscard]] static bool AnyWaitsLocked() REQUIRES(g_process_lock) { return g_waiting > 0; }
    /// `count` nodes left a queue without having run.
    static void NoteDroppedLocked(std::size_t count) REQUIRES(g_process_lock) { g_active -= count; }

    /// A thread that waits for a node; lives while it does.
    class Sleeper {
      public:
        Sleeper(Node& node, const Direction& direction) REQUIRES(g_process_lock);
        ~Sleeper() REQUIRES(g_process_lock);
        Sleeper(const Sleeper&) = delete;
        Sleeper& operator=(const Sleeper&) = delete;

        /// Logs the circle that the node waits for, when the run has stalled and nobody has said so. Frees
        /// the lock while it logs.
        void ReportStallLocked() const REQUIRES(g_process_lock);

      private:
        Node& node_;
        const Direction& direction_;
    };

    /// The names of a circle of plugins that `node` waits for, "a -> b -> a"; empty when there is none.
    [[nodiscard]] static std::string DescribeCircleLocked(Node& node, const Direction& direction)
        REQUIRES(g_process_lock);

    /// Forgets that a stall was reported and everything counted, for a test's fresh start.
    static void Reset();

  private:
    static void WakeWhenStalledLocked() REQUIRES(g_process_lock);
    static std::vector<Node*> FindCircleLocked(Node& node, const Direction& direction)
        REQUIRES(g_process_lock);

    static constinit inline std::size_t g_waiting GUARDED_BY(g_process_lock) = 0;
    static constinit inline std::size_t g_active GUARDED_BY(g_process_lock) = 0;  // queued or running
};

}  // namespace bootweave
