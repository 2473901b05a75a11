// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <string>

#include "graph/node.h"

/// \file
/// Barriers: nodes without work of their own that plugins meet at by name.

namespace bootweave {

/// A named point of the boot: done when everything that provides it is done.
class InitBarrier : public Node {
  public:
    explicit InitBarrier(const std::string& name);

    /// Reports a barrier that nobody provides: a level 3 line with the plugins that require it, and, unless a
    /// single method is being invoked, a system alert. Then the barrier counts as done like any other.
    void Execute() override;
    [[nodiscard]] std::string GetDotAttributes() const override;

  private:
    [[nodiscard]] std::string NotProvidedMessage() const;
};

class BarrierRegistry;

/// Stands for one start priority of daemons: done when every daemon of that priority has started.
class PriorityBarrier : public InitBarrier {
  public:
    /// Enters the priority into the registry's list and takes its place between the next lower and the next
    /// higher one. The registry creates these; see BarrierRegistry::Priority.
    PriorityBarrier(std::uint32_t priority, BarrierRegistry& registry);

    /// The barrier's name for a priority; no plugin would choose it.
    [[nodiscard]] static std::string NameOf(std::uint32_t priority);

    /// Makes `daemon` wait for the barrier of the next lower priority, and this one wait for `daemon`.
    /// The caller holds the graph lock.
    void Attach(Node& daemon) REQUIRES(g_process_lock);

    [[nodiscard]] std::string GetDotAttributes() const override;
    [[nodiscard]] std::uint32_t priority() const { return priority_; }
    /// The place of the priority in the list when a daemon was attached last; -1 before that.
    [[nodiscard]] std::int32_t index() const { return index_; }

  private:
    void PutInFrontOfLocked(PriorityBarrier& higher) REQUIRES(g_process_lock);

    BarrierRegistry& registry_;
    std::int32_t index_ = -1;
    const std::uint32_t priority_;
};

}  // namespace bootweave
