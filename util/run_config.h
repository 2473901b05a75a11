// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <list>
#include <memory>
#include <string>

/// \file
/// The process-wide run configuration.

namespace bootweave {

/// What the command line asked of this run. Written by the driver before any other thread exists, and by the
/// interactive console, which runs plugins one at a time; everybody else only reads.
struct RunConfig {
    bool verbose = false;                     ///< --verbose
    bool parallel = false;                    ///< --parallel; cleared where a host must boot serially
    bool randomize = false;                   ///< --randomize
    bool interactive = false;                 ///< --interactive, until the operator continues
    bool trace = false;                       ///< --trace
    std::uint32_t threads = 1;                ///< workers of the pool
    std::int64_t seed = 0;                    ///< for the profile; seconds since 1970 unless given
    std::string plugin_directory;             ///< absolute
    std::list<std::string> disabled_plugins;  ///< base names, in the order given
    std::list<std::string> interactive_mode_requires;  ///< plugin names still to be reached
    std::string method;                                ///< --method; empty when not given
    bool invoke = false;                               ///< --invoke
    bool daemon_wait = false;                          ///< --daemon=wait
    std::uint32_t daemon_wait_timeout = 40;            ///< seconds

    /// A configuration of its own, with the wall clock's seconds as seed.
    RunConfig();

    /// The process's configuration, made on first use and alive until exit. Any thread.
    [[nodiscard]] static std::shared_ptr<RunConfig> Instance();
};

}  // namespace bootweave
