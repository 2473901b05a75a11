// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <chrono>
#include <cstddef>
#include <functional>
#include <span>
#include <string>
#include <vector>

#include "graph/node.h"

/// \file
/// A run on a clock that only the nodes' own times move: what a run would take, in the time that it takes to
/// schedule it. The nodes, the queue and its choices are those of a real run; nothing of a node is executed.

namespace bootweave {

/// What a node takes, or when something happens; the run begins at zero.
using VirtualTime = std::chrono::microseconds;

/// What a node takes when nothing holds it up.
struct VirtualWork {
    VirtualTime time{0};  ///< not negative
    /// Zero for work of the node's own. Otherwise so many steps of the same length, each of which waits for
    /// its turn at the one thing that all such steps share: the first to come is served first.
    std::size_t shared_steps = 0;
};

/// A node's part of a run.
struct VirtualSpan {
    const Node* node;
    VirtualTime start;  ///< when a worker took it
    VirtualTime end;
};

/// How a run went.
struct VirtualOutcome {
    std::vector<VirtualSpan> spans;  ///< of the nodes that ran, in the order in which workers took them
    std::string circle;  ///< "a -> b -> a" when nodes were left that wait for each other; else empty
};

/// Runs the nodes, and what they need, forward. They are idle, or marked done, and are done afterwards. Takes
/// the graph lock for the whole run; no executor runs in the process meanwhile.
///
/// \param workers    how many nodes run at a time; below 1 none does
/// \param randomize  as an Executor has it
[[nodiscard]] VirtualOutcome RunInVirtualTime(std::span<Node* const> nodes, std::size_t workers,
                                              bool randomize,
                                              const std::function<VirtualWork(const Node&)>& work_of);

}  // namespace bootweave
