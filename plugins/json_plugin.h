// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>
#include <vector>

#include "plugins/plugin.h"

namespace bootweave {

/// A plugin declared by a JSON file: its methods are lists of host management commands, run one after the
/// other by the command executor.
class JSONPlugin : public Plugin {
  public:
    /// Reads the file.
    ///
    /// \throws InvalidPluginException  naming the path and the first thing that is wrong with the file
    JSONPlugin(const std::string& name, const std::string& path);

    void Start() override;
    /// True from version 2 when the file has a list for it, an empty one included.
    [[nodiscard]] bool SupportsHostProfile() const override;
    void ApplyHostProfile() override;

  private:
    void RunCommands(const char* method, const std::vector<std::string>& commands) const;

    std::vector<std::string> start_commands_;
    bool has_apply_host_profile_ = false;
    std::vector<std::string> apply_host_profile_commands_;
};

}  // namespace bootweave
