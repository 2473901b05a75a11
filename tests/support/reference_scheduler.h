// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <vector>

/// \file
/// What order one worker runs a graph in, computed the slow and obvious way: by recursion and by walking the
/// whole queue at each choice. Shares nothing with the product.

namespace bootweave {

/// A graph of numbered nodes; edges in the order in which they were added.
struct ReferenceGraph {
    explicit ReferenceGraph(std::size_t size) : before(size), after(size), keys(size, 1), done(size, false) {}

    void AddEdge(std::size_t provider, std::size_t dependent) {
        before[dependent].push_back(provider);
        after[provider].push_back(dependent);
    }
    [[nodiscard]] std::size_t size() const { return keys.size(); }

    std::vector<std::vector<std::size_t>> before;
    std::vector<std::vector<std::size_t>> after;
    std::vector<std::uint32_t> keys;
    std::vector<bool> done;  // marked done before the run
};

/// Computes the order of a run in which all of `scheduled` are scheduled before the first choice.
class ReferenceScheduler {
  public:
    ReferenceScheduler(const ReferenceGraph& graph, bool randomize)
        : graph_(graph), randomize_(randomize), state_(graph.size(), kIdle) {
        for (std::size_t node = 0; node < graph.size(); ++node) {
            state_[node] = graph.done[node] ? kDone : kIdle;
        }
    }

    std::vector<std::size_t> Run(const std::vector<std::size_t>& scheduled) {
        for (const std::size_t node : scheduled) {
            Schedule(node);
        }
        std::vector<std::size_t> order;
        while (!queue_.empty()) {
            const std::size_t node = Choose();
            order.push_back(node);
            state_[node] = kDone;
            for (const std::size_t dependent : graph_.after[node]) {
                if (state_[dependent] == kWaiting) {
                    Schedule(dependent);
                }
            }
        }
        return order;
    }

  private:
    enum State { kIdle, kWaiting, kQueued, kDone };

    void Schedule(std::size_t node) {
        if (state_[node] == kQueued || state_[node] == kDone) {
            return;
        }
        state_[node] = kWaiting;
        bool ready = true;
        for (const std::size_t provider : graph_.before[node]) {
            if (state_[provider] == kIdle) {
                Schedule(provider);
                ready = false;
            } else if (state_[provider] != kDone) {
                ready = false;
            }
        }
        if (ready) {
            state_[node] = kQueued;
            queue_.push_back(node);
        }
    }

    [[nodiscard]] int Height(std::size_t node) const {
        int height = 0;
        for (const std::size_t dependent : graph_.after[node]) {
            height = std::max(height, 1 + Height(dependent));
        }
        return height;
    }

    std::size_t Choose() {
        std::vector<std::size_t> candidates;
        for (const std::size_t node : queue_) {
            const auto better = [&](std::size_t other) {
                return graph_.keys[node] < graph_.keys[other] ||
                       (graph_.keys[node] == graph_.keys[other] && Height(node) > Height(other));
            };
            const auto equal = [&](std::size_t other) {
                return graph_.keys[node] == graph_.keys[other] && Height(node) == Height(other);
            };
            if (candidates.empty() || better(candidates.front())) {
                candidates = {node};
            } else if (equal(candidates.front())) {
                candidates.push_back(node);
            }
        }
        const std::size_t place = randomize_ ? static_cast<std::size_t>(std::rand()) % candidates.size() : 0;
        const std::size_t chosen = candidates[place];
        queue_.erase(std::find(queue_.begin(), queue_.end(), chosen));
        return chosen;
    }

    const ReferenceGraph& graph_;
    const bool randomize_;
    std::vector<State> state_;
    std::vector<std::size_t> queue_;
};

}  // namespace bootweave
