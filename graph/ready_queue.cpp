// SPDX-License-Identifier: Apache-2.0
#include "graph/ready_queue.h"

#include <algorithm>
#include <bit>
#include <cstdlib>
#include <utility>

#include "graph/depth.h"

namespace bootweave {
namespace {

/// The lowest set bit: how many slots an entry of the tree counts.
std::size_t LowestBit(std::size_t value) {
    return value & (~value + 1);
}

/// One of so many. By rand, never seeded: two randomised runs of one graph choose alike. The graph lock is
/// held.
std::size_t Choose(std::size_t candidates) {
    // NOLINTNEXTLINE(concurrency-mt-unsafe,cert-msc50-cpp)
    return static_cast<std::size_t>(std::rand()) % candidates;
}

}  // namespace

void ArrivalList::Append(Node& node) {
    slots_.push_back(&node);
    ++size_;
    if (counts_.empty()) {
        return;
    }
    // The new entry counts its own slot and those of the entries below it.
    const std::size_t index = slots_.size();
    std::uint32_t count = 1;
    for (std::size_t below = index - 1; below > index - LowestBit(index); below -= LowestBit(below)) {
        count += counts_[below];
    }
    counts_.push_back(count);
}

Node& ArrivalList::TakeFirst() {
    while (slots_[first_] == nullptr) {
        ++first_;
    }
    Node& node = *slots_[first_];
    RemoveAt(first_);
    return node;
}

Node& ArrivalList::TakeAt(std::size_t place) {
    if (counts_.empty()) {
        RebuildCounts();
    }
    std::size_t slot = 0;
    auto remaining = static_cast<std::uint32_t>(place);
    for (std::size_t step = std::bit_floor(counts_.size() - 1); step > 0; step /= 2) {
        if (slot + step < counts_.size() && counts_[slot + step] <= remaining) {
            slot += step;
            remaining -= counts_[slot];
        }
    }
    Node& node = *slots_[slot];
    RemoveAt(slot);
    return node;
}

void ArrivalList::RemoveAt(std::size_t slot) {
    slots_[slot] = nullptr;
    --size_;
    if (!counts_.empty()) {
        for (std::size_t index = slot + 1; index < counts_.size(); index += LowestBit(index)) {
            --counts_[index];
        }
    }
    // Most slots empty: move the nodes together, so that a list that is filled while it is emptied stays
    // small.
    constexpr std::size_t kWorthMoving = 64;
    if (slots_.size() >= kWorthMoving && size_ < slots_.size() / 2) {
        std::erase(slots_, nullptr);
        first_ = 0;
        if (!counts_.empty()) {
            RebuildCounts();
        }
    }
}

void ArrivalList::Recycle() {
    constexpr std::size_t kMuch = 1024;
    if (slots_.capacity() > kMuch) {
        *this = ArrivalList();
    }
    slots_.clear();
    counts_.clear();
    first_ = 0;
}

void ArrivalList::RebuildCounts() {
    counts_.assign(slots_.size() + 1, 0);
    for (std::size_t index = 1; index < counts_.size(); ++index) {
        counts_[index] += slots_[index - 1] != nullptr ? 1U : 0U;
        const std::size_t above = index + LowestBit(index);
        if (above < counts_.size()) {
            counts_[above] += counts_[index];
        }
    }
}

void ReadyQueue::Expect(std::span<Node* const> nodes) {
    expected_ = nodes;
    unranked_.clear();
}

ReadyQueue::Rank ReadyQueue::RankOf(Node& node) {
    const bool reverse = node.state_ == NodeState::kQueuedReverse || node.state_ == NodeState::kDoneReverse;
    const auto next = reverse ? &Node::dependencies_ : &Node::dependents_;
    const auto depth = reverse ? &Node::level_ : &Node::height_;
    if (!ComputeKnownDepth(node, next, depth)) {
        RankExpected(reverse);
    }
    return {node.order_key(), -ComputeDepth(node, next, depth)};
}

/// Those in or before a cycle stay unknown: their depth depends on who is asked first.
void ReadyQueue::RankExpected(bool reverse) {
    const std::span<Node* const> nodes = std::exchange(expected_, {});
    if (reverse) {
        for (Node* node : nodes) {
            ComputeKnownDepth(*node, &Node::dependencies_, &Node::level_);
        }
        return;
    }
    for (std::size_t left = nodes.size(); left > 0; --left) {
        ComputeKnownDepth(*nodes[left - 1], &Node::dependents_, &Node::height_);
    }
}

void ReadyQueue::Push(Node& node) {
    if (size_++ == 0) {
        lone_ = &node;
        return;
    }
    if (lone_ != nullptr) {
        SortLone();
    }
    ListOf(RankOf(node)).Append(node);
}

void ReadyQueue::SortLone() {
    for (Node* node : std::exchange(unranked_, {})) {
        static_cast<void>(RankOf(*node));
    }
    Node& node = *std::exchange(lone_, nullptr);
    ListOf(RankOf(node)).Append(node);
}

ArrivalList& ReadyQueue::ListOf(const Rank& rank) {
    const auto place = ranks_.lower_bound(rank);
    if (place != ranks_.end() && place->first == rank) {
        return place->second;
    }
    if (spare_.empty()) {
        return ranks_.try_emplace(place, rank)->second;
    }
    Ranks::node_type list = std::move(spare_.back());
    spare_.pop_back();
    list.key() = rank;
    return ranks_.insert(place, std::move(list))->second;
}

Node* ReadyQueue::Pop(bool randomize) {
    if (size_ == 0) {
        return nullptr;
    }
    --size_;
    if (lone_ != nullptr) {
        if (randomize) {
            static_cast<void>(Choose(1));  // each choice costs one value, this one, too
        }
        unranked_.push_back(lone_);
        return std::exchange(lone_, nullptr);
    }
    const auto best = ranks_.begin();
    ArrivalList& candidates = best->second;
    Node& node = randomize ? candidates.TakeAt(Choose(candidates.size())) : candidates.TakeFirst();
    if (candidates.size() == 0) {
        candidates.Recycle();
        spare_.push_back(ranks_.extract(best));
    }
    return &node;
}

}  // namespace bootweave
