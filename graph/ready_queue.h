// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <span>
#include <utility>
#include <vector>

#include "graph/node.h"

/// \file
/// The nodes that are ready to run, and which of them runs next.
///
/// Order: the smallest order key first; among equal keys the greatest depth (the height of a node queued
/// forward, the level of one queued in reverse); among those the candidates in order of arrival.

namespace bootweave {

/// Nodes in order of arrival from which any may be taken by its place.
///
/// Taking the first costs a constant; taking any other one costs the logarithm of the length, by a tree of
/// counts that is made when it is first asked for.
class ArrivalList {
  public:
    [[nodiscard]] std::size_t size() const { return size_; }
    void Append(Node& node);
    /// Takes out the node that arrived first. The list is not empty.
    Node& TakeFirst();
    /// Takes out the node at `place`, counted from 0 in order of arrival; `place` is less than size().
    Node& TakeAt(std::size_t place);
    /// Readies an empty list for other nodes. It keeps its memory unless that is much.
    void Recycle();

  private:
    void RemoveAt(std::size_t slot);
    void RebuildCounts();

    std::vector<Node*> slots_;  // null where a node was taken
    std::size_t first_ = 0;     // no node stands before this slot
    std::size_t size_ = 0;
    std::vector<std::uint32_t> counts_;  // a Fenwick tree over the slots; empty until TakeAt
};

/// The ready nodes of one executor. Guarded by the graph lock.
class ReadyQueue {
  public:
    [[nodiscard]] std::size_t size() const { return size_; }
    /// Begins a run of these nodes; those that others depend on come first, mostly. Knowing them changes
    /// nothing but the time it takes to rank them: a large graph is gone through once, from end to end, where
    /// walks along its chains would come by the same memory again and again.
    ///
    /// \param nodes  live until the next call
    void Expect(std::span<Node* const> nodes) REQUIRES(g_process_lock);
    /// Adds a node, behind those of its rank that came before.
    void Push(Node& node) REQUIRES(g_process_lock);
    /// Takes out the next node; null when there is none.
    ///
    /// \param randomize  choose among the candidates by one value of `rand` instead of by arrival
    [[nodiscard]] Node* Pop(bool randomize) REQUIRES(g_process_lock);

  private:
    using Rank = std::pair<std::uint32_t, std::int32_t>;  // order key, depth counted down

    using Ranks = std::map<Rank, ArrivalList>;

    [[nodiscard]] Rank RankOf(Node& node) REQUIRES(g_process_lock);
    void RankExpected(bool reverse) REQUIRES(g_process_lock);
    ArrivalList& ListOf(const Rank& rank);
    void SortLone() REQUIRES(g_process_lock);

    Node* lone_ = nullptr;  // the only one there is: along a chain nothing is ever sorted
    /// Those that came and went alone, unranked. Inside a cycle the depth depends on who is asked first, so
    /// they are asked before the first node that has to be sorted.
    std::vector<Node*> unranked_;
    std::span<Node* const> expected_;  ///< empty once they are ranked
    Ranks ranks_;
    /// Empty lists to be used again: along a chain each node has a rank of its own.
    std::vector<Ranks::node_type> spare_;
    std::size_t size_ = 0;
};

}  // namespace bootweave
