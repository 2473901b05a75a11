// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

#include "analyze/simulation.h"
#include "driver/options.h"
#include "driver/profiling_log.h"
#include "util/exception.h"

namespace bootweave {

/// The command line makes no sense; the message says why.
class UsageException : public Exception {
  public:
    using Exception::Exception;
};

/// What is asked for.
enum class AnalyzeCommand {
    kHelp,
    kTime,
    kBlame,
    kCriticalChain,
    kList,
    kDiff,
    kVerify,
    kPlot,
    kDot,
    kSimulate,
};

/// Which block of the log a report is about.
struct BlockChoice {
    enum class Which {
        kLastBoot,  ///< the last one of a boot
        kLast,      ///< the last one of all
        kNumber,
    };
    Which which = Which::kLastBoot;
    std::size_t number = 0;  ///< from 1; only with kNumber
};

/// The command line.
struct AnalyzeOptions {
    AnalyzeCommand command = AnalyzeCommand::kTime;
    std::string profile = kProfilingLogPath;
    std::string newer_profile{};  ///< that diff compares with `profile`
    BlockChoice block{};
    std::string plugin_directory = DriverOptions().plugin_directory;
    std::optional<std::string> plugin{};  ///< that critical-chain is about; nothing is the last to end
    std::vector<std::string> files{};     ///< that verify is about; none are the host's own
    bool strict = false;                  ///< for verify: warnings count as errors
    std::optional<std::string> output{};  ///< where plot puts its picture; nothing is standard output
    std::optional<std::string> around{};  ///< the plugin whose neighbourhood dot shows; nothing is all
    WhatIf what_if{};                     ///< for simulate
    bool json = false;
};

/// Parses the command line; options and the command may come in any order. Not thread-safe (getopt).
///
/// \throws UsageException  "<what is wrong>; see --help"
[[nodiscard]] AnalyzeOptions ParseAnalyzeOptions(int argc, char** argv);

}  // namespace bootweave
