// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>

#include "plugins/debug_injections.h"
#include "plugins/plugin.h"

namespace bootweave {

/// A shell command placed in the boot graph by the debug configuration.
class DebugPlugin : public Plugin {
  public:
    /// Takes its place in the process's graph at once.
    explicit DebugPlugin(const DebugInjection& injection);

    /// Runs the command and waits. A command that fails is a level 5 line; the plugin has not failed.
    void Start() override;
    [[nodiscard]] bool SupportsHostProfile() const override { return false; }
    /// \throws NotImplementedException  always
    void ApplyHostProfile() override;

  private:
    const std::string command_;
};

}  // namespace bootweave
