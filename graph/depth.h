// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>

#include "graph/node.h"

namespace bootweave {

// NOLINTBEGIN(readability-redundant-declaration): node.h has them as friends

/// The length of the longest chain from `root` along `next`, kept in `depth` of every node on the way: -1
/// there means not computed. An edge that closes a cycle counts 0. Takes memory, but no stack, for the
/// chain's length. The caller holds the graph lock.
std::int32_t ComputeDepth(Node& root, Edges Node::*next, std::int32_t Node::*depth) REQUIRES(g_process_lock);

/// Whether `node` has its depth, or gets it here because those of its neighbours along `next` are known.
bool ComputeKnownDepth(Node& node, Edges Node::*next, std::int32_t Node::*depth) REQUIRES(g_process_lock);

// NOLINTEND(readability-redundant-declaration)

}  // namespace bootweave
