// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <span>

#include "graph/executor.h"
#include "graph/node.h"

namespace bootweave {

/// Runs all of the nodes, and what they need, and returns when the last of them is done. Waits for ever when
/// some wait for each other; see Node::WaitForward. The caller does not hold the graph lock.
void RunAllForward(std::span<Node* const> nodes, Executor& executor);
/// The same in reverse.
void RunAllReverse(std::span<Node* const> nodes, Executor& executor);

}  // namespace bootweave
