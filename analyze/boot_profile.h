// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

/// \file
/// The boot profile as it is read back: one block for each run that the log tells of.
///
/// A log may be a copy that was cut, or no profile at all. Whatever is not understood costs a warning and is
/// left out; the rest counts.

namespace bootweave {

using Duration = std::chrono::microseconds;
using Instant = std::chrono::sys_time<Duration>;

/// When a plugin ran, by the wall clock.
struct PluginTimes {
    std::string name;  ///< without control characters
    Instant start;
    Instant end;

    /// False for one that the run left out, whose stamps are both zero, and for one that was skipped at the
    /// console, whose end is.
    [[nodiscard]] bool ran() const { return end != Instant(); }
    /// Zero for one that did not run, and when the clock was set back meanwhile.
    [[nodiscard]] Duration taken() const { return end > start ? end - start : Duration(0); }
};

/// What kind of run a block tells of.
enum class RunKind {
    kBoot,
    kDaemon,
};

/// "boot" or "daemon".
[[nodiscard]] const char* RunKindText(RunKind kind);

/// The settings of a run; those that the log lacks are empty.
struct RunSettings {
    std::optional<bool> verbose;
    std::optional<bool> parallel;
    std::optional<bool> randomize;
    std::optional<bool> interactive;
    std::optional<std::int64_t> seed;
};

/// One run. Fields that the log lacks are empty.
struct ProfileBlock {
    RunKind kind = RunKind::kBoot;
    std::size_t line = 0;                ///< where it begins, from 1
    std::optional<Duration> kernel{};    ///< boots: how long the host was up when the run began
    std::vector<PluginTimes> plugins{};  ///< in the order of the log; their times can be added up
    std::optional<Instant> start{};
    std::optional<Instant> end{};
    RunSettings settings{};
};

/// Something odd about a line of the log.
struct ProfileWarning {
    std::size_t line;  ///< from 1
    std::string text;
};

/// All that a log tells.
struct BootProfile {
    std::vector<ProfileBlock> blocks;
    std::vector<ProfileWarning> warnings;  ///< by line
    std::size_t more_warnings = 0;         ///< of a log with so many that they are only counted
};

/// Reads the text of a log.
[[nodiscard]] BootProfile ParseBootProfile(std::string_view text);

/// Reads the log at `path`, a regular file.
///
/// \throws Exception  "cannot read <path>: <reason>"
[[nodiscard]] BootProfile ReadBootProfile(const std::string& path);

}  // namespace bootweave
