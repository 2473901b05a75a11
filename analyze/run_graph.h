// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "analyze/boot_profile.h"
#include "plugins/debug_injections.h"
#include "plugins/init_scripts.h"
#include "plugins/native_metadata_reader.h"

/// \file
/// What the plugins of a run waited for: from their files, or from the start priorities of init scripts.
/// Runs none of them; the metadata of native plugins is read in a process of its own, as a boot reads it.

namespace bootweave {

/// Where the needs of plugins are read.
struct GraphSources {
    std::string directory;                             ///< of the plugins
    NativeMetadataReader::Options native{};            ///< how native plugins are read
    std::string injections = kDebugConfigurationPath;  ///< for plugins without a file
    std::string lister = kInitScriptLister;            ///< of the host's init scripts, for runs of daemons
};

/// What a plugin is made of.
enum class PluginKind {
    kUnknown,  ///< nothing of it was found
    kJSON,
    kNative,
    kDebug,
    kDaemon,
};

/// "unknown", "json", "native", "debug" or "daemon".
[[nodiscard]] const char* PluginKindText(PluginKind kind);

/// One plugin's place in the graph.
struct RunPlugin {
    PluginKind kind = PluginKind::kUnknown;
    std::vector<std::size_t> required;  ///< indices of barriers, in the order of its file
    std::vector<std::size_t> provided;  ///< the same
    std::size_t commands = 0;           ///< host commands of its start method, for a JSON plugin
};

/// What plugins meet at.
struct RunBarrier {
    std::string name;                    ///< without control characters; "priority 20" for daemons
    std::vector<std::size_t> providers;  ///< indices of plugins, ascending
    std::vector<std::size_t> requirers;  ///< the same
};

/// The plugins of a block, by their index there, and the barriers, by name.
struct RunGraph {
    std::vector<RunPlugin> plugins;
    std::vector<RunBarrier> barriers;
    std::vector<std::string> warnings;  ///< about what is not known, or may have changed since the run
};

/// Reads what the plugins of `block` require and provide. One whose file is not there, or cannot be loaded,
/// requires and provides nothing, and costs a warning when it ran; so do files that are newer than the run,
/// together. So does a lister of init scripts that fails; then those that it has not listed cost none. Of
/// several plugins with one name the n-th line is the n-th that a boot would collect; where that is not
/// certain, it costs a warning. Of a run that starts daemons each waits for those of the next lower priority
/// in the block, of one that stops them for those of the next higher one.
///
/// \throws Exception  "cannot read <directory>: <reason>"
[[nodiscard]] RunGraph ReadRunGraph(const ProfileBlock& block, const GraphSources& sources);

}  // namespace bootweave
