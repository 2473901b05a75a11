// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "graph/barrier.h"

namespace bootweave {

/// All barriers by name, and the daemon priorities in use. Owns the barriers for the whole run.
/// Lock: the graph lock guards it; the operations take it, those named Locked expect it.
class BarrierRegistry {
  public:
    /// The process's registry, made on first use. Never destroyed: graph edges do not own.
    [[nodiscard]] static BarrierRegistry& Instance();

    /// The barrier of that name. When there is none: null, or with `create` a new InitBarrier.
    InitBarrier* Find(std::string_view name, bool create);
    /// Takes over the barrier and enters it under the name.
    InitBarrier& Register(std::unique_ptr<InitBarrier> barrier, const std::string& name);
    /// All barriers, in ascending byte order of their names.
    [[nodiscard]] std::vector<InitBarrier*> List() const;

    /// The barrier of a daemon priority, made and put in its place when it is not there.
    ///
    /// \throws Exception  when a barrier of another kind has its name
    PriorityBarrier& Priority(std::uint32_t priority);

    /// The registered barrier of a priority; null when there is none.
    [[nodiscard]] PriorityBarrier* FindPriorityLocked(std::uint32_t priority) REQUIRES(g_process_lock);
    /// The priorities in use, ascending.
    [[nodiscard]] std::vector<std::uint32_t>& PrioritiesLocked() REQUIRES(g_process_lock) {
        return priorities_;
    }

    /// Destroys every barrier, for programs that build one graph after another. Nothing refers to them any
    /// more.
    void Clear();

  private:
    std::map<std::string, std::unique_ptr<InitBarrier>, std::less<>> barriers_;
    std::vector<std::uint32_t> priorities_;
};

}  // namespace bootweave
