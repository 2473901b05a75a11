// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include <sys/time.h>

#include "graph/barrier_registry.h"
#include "graph/node.h"
#include "util/run_config.h"

namespace bootweave {

inline constexpr const char* kStartMethod = "start";
inline constexpr const char* kApplyHostProfileMethod = "apply_host_profile";

/// A node that runs one of its methods and reports the outcome: base of every kind of plugin.
///
/// Life:    built by discovery -> linked into the graph -> run at most once by a worker -> kept for reports.
/// Threads: different plugins run at the same time; one plugin's fields are its worker's while it runs.
/// Failure: whatever a method throws is logged, written to the kernel's log and contained here.
class Plugin : public Node {
  public:
    /// Runs the method that the command line names, or else the one that fits this host: apply-host-profile
    /// where the host has a profile and the plugin supports it, start otherwise. Never throws for a plugin's
    /// failure.
    void Execute() override;
    [[nodiscard]] std::string GetDotAttributes() const override { return {}; }

    /// The start method. Throws when it fails.
    virtual void Start() = 0;
    /// Whether there is an apply-host-profile method.
    [[nodiscard]] virtual bool SupportsHostProfile() const = 0;
    /// The apply-host-profile method. Throws when it fails.
    /// \throws NotImplementedException  by kinds without one
    virtual void ApplyHostProfile() = 0;
    /// The interface version; -1 for kinds without one.
    [[nodiscard]] virtual std::int32_t GetVersion() const { return interface_version_; }

    /// Makes the plugin depend on each barrier that it requires, and each barrier that it provides on the
    /// plugin. A name that is listed twice gives two edges. Done once: a second call adds nothing.
    void LinkIntoGraph(BarrierRegistry& registry);

    /// Whether each version of the plugin is to run only once on a host.
    [[nodiscard]] bool run_once() const { return run_once_; }
    [[nodiscard]] const std::string& plugin_version() const { return plugin_version_; }
    /// Boot flags that must all be given for the plugin to take part.
    [[nodiscard]] const std::set<std::string>& required_flags() const { return required_flags_; }
    /// Boot flags any of which keeps the plugin out.
    [[nodiscard]] const std::set<std::string>& disabling_flags() const { return disabling_flags_; }

    /// Wall-clock times of the run; zero for a plugin that never ran.
    [[nodiscard]] const timeval& start_time() const { return start_time_; }
    [[nodiscard]] const timeval& end_time() const { return end_time_; }
    /// From start to end, in microseconds; negative when the wall clock was set back meanwhile.
    [[nodiscard]] std::int64_t elapsed_microseconds() const;

  protected:
    explicit Plugin(const std::string& name) : Plugin(name, 1) {}
    Plugin(const std::string& name, std::uint32_t order_key) : Node(name, order_key) {}

    /// Takes the start time now and the end time when the scope ends, for work that Execute does not do.
    class ScopedRunTime {
      public:
        explicit ScopedRunTime(Plugin& plugin);
        ~ScopedRunTime();
        ScopedRunTime(const ScopedRunTime&) = delete;
        ScopedRunTime& operator=(const ScopedRunTime&) = delete;

      private:
        Plugin& plugin_;
    };

    std::int32_t interface_version_ = -1;
    bool run_once_ = false;
    std::string plugin_version_;
    std::set<std::string> required_flags_;
    std::set<std::string> disabling_flags_;
    std::vector<std::string> requires_;
    std::vector<std::string> provides_;

  private:
    std::optional<std::string> RunFittingMethod();
    bool InvokeMethod(const std::string& method);

    timeval start_time_{};
    timeval end_time_{};
};

}  // namespace bootweave
