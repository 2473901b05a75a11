// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include <sys/time.h>

#include "plugins/plugin.h"
#include "util/run_config.h"

/// \file
/// The boot profile: what ran when, and with which settings. A boot replaces it, a daemon run adds a block to
/// it; both through a stream that readers never see half written.

namespace bootweave {

inline constexpr const char* kProfilingLogPath = "/var/log/sysboot.log";

/// What a profile tells of one run.
struct RunProfile {
    timeval start{};                     ///< wall clock, at the program's entry
    timeval end{};                       ///< wall clock, after the run or the dump
    std::uint64_t uptime_seconds = 0;    ///< of the host, at the program's entry
    std::vector<const Plugin*> plugins;  ///< in the order collected
};

/// Writes the block of a boot as the whole new content of the log at `path`.
///
/// A log that cannot be opened or written is a level 2 line; the old one stays whole.
/// \throws std::runtime_error  when the finished log cannot be put in place
void WriteBootProfile(const RunProfile& run, const RunConfig& config,
                      const std::string& path = kProfilingLogPath);

/// Adds the block of a daemon run behind what the log at `path` holds. Fails as WriteBootProfile does.
void AppendDaemonProfile(const RunProfile& run, const RunConfig& config,
                         const std::string& path = kProfilingLogPath);

/// A time stamp of the log, "2026-11-15 15:04:56.000123", in UTC. Times before 1970 and after 9999 are shown
/// as these.
[[nodiscard]] std::string FormatTimeStamp(const timeval& time);

}  // namespace bootweave
