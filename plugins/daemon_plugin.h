// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <map>
#include <string>

#include "plugins/plugin.h"

namespace bootweave {

/// A boot-time daemon: a table of command lines, one for each operation.
///
/// State:  0 built -> 2 started, or 20 start failed -> 12 stopped.
class DaemonPlugin : public Plugin {
  public:
    /// \param priority  the start priority of its init script
    /// \param kind      the node's order key
    DaemonPlugin(const std::string& name, std::int32_t priority, std::uint32_t kind);

    /// Shows the service on the boot progress screen and runs the plugin's method.
    void Execute() override;
    /// Stops the daemon, in the reverse traversal; see Deactivate.
    void ExecuteReverse() override { Deactivate(); }

    /// \throws MethodFailedException  when the daemon cannot be started
    void Start() override;
    [[nodiscard]] bool SupportsHostProfile() const override { return false; }
    /// \throws NotImplementedException  always, like Restart and SSLReset
    void ApplyHostProfile() override;

    /// \throws Exception  when the daemon cannot be stopped
    virtual void Stop();
    virtual void Restart();
    virtual void SSLReset();

    /// Stops the daemon; a failure is written to the kernel's log and goes no further.
    void Deactivate();

    [[nodiscard]] std::int32_t start_priority() const { return start_priority_; }
    [[nodiscard]] std::int32_t daemon_state() const { return daemon_state_; }

  protected:
    static constexpr int kStartOperation = 2;
    static constexpr int kStopOperation = 4;

    std::map<int, std::string> operations_;  ///< command line by operation

  private:
    [[nodiscard]] const std::string& Operation(int code) const;

    const std::int32_t start_priority_;
    std::int32_t daemon_state_ = 0;
};

/// A daemon made from an init script, started in the order of the scripts' priorities.
class LegacyDaemonPlugin : public DaemonPlugin {
  public:
    /// Takes its place among the priorities of the process's graph at once. Takes the graph lock.
    LegacyDaemonPlugin(const std::string& name, const std::string& script_path, std::int32_t priority);

    void ApplyHostProfile() override;
};

}  // namespace bootweave
