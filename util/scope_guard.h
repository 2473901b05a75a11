// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <utility>

namespace bootweave {

/// Runs an action when the scope ends, however it ends. The action must not throw.
template <typename Action>
class [[nodiscard]] ScopeGuard {
  public:
    explicit ScopeGuard(Action action) : action_(std::move(action)) {}
    ScopeGuard(const ScopeGuard&) = delete;
    ScopeGuard& operator=(const ScopeGuard&) = delete;
    ~ScopeGuard() { action_(); }

  private:
    Action action_;
};

}  // namespace bootweave
