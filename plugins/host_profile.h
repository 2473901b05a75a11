// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "util/process_lock.h"

namespace bootweave {

/// Whether this host has a host profile. Decided when first asked and kept: a file that appears later in the
/// boot changes nothing, so that all plugins of one boot go the same way.
class HostProfile {
  public:
    /// \param paths  any of them, of whatever type, links followed, is a host profile
    explicit HostProfile(std::vector<std::string> paths) : paths_(std::move(paths)) {}

    /// The host's own, at its fixed paths.
    [[nodiscard]] static HostProfile& Instance();

    /// Any thread; takes the graph lock.
    [[nodiscard]] bool Present();

  private:
    const std::vector<std::string> paths_;
    std::optional<bool> present_ GUARDED_BY(g_process_lock);
};

}  // namespace bootweave
