// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <list>
#include <optional>
#include <set>
#include <string>
#include <variant>

#include "util/run_config.h"

namespace bootweave {

/// What the command line asked of the driver alone; what concerns others is in the RunConfig.
struct DriverOptions {
    bool init_mode = false;
    bool daemon_mode = false;
    bool dump_requested = false;
    std::optional<std::string> dump_path;  ///< none is standard output
    std::list<std::string> plugins;  ///< in the order given, duplicates kept; empty is the whole directory
    std::set<std::string> plugin_flags;
    std::set<std::string> run_once_names;  ///< grows with the run-once plugins that are admitted
    std::string plugin_directory = "/usr/libexec/bootweave/plugins";
};

/// An exit status that ends the run before anything was started.
struct EarlyExit {
    int status;
};

/// Parses the command line and checks that its options go together.
///
/// Prints the help and the usage line; logs combinations that make no sense. Not thread-safe (getopt).
/// \param config  receives what concerns the whole process
[[nodiscard]] std::variant<DriverOptions, EarlyExit> ParseOptions(int argc, char** argv, RunConfig& config);

}  // namespace bootweave
