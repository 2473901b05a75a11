// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "analyze/boot_profile.h"
#include "plugins/debug_injections.h"
#include "plugins/native_metadata_reader.h"

/// \file
/// What the plugins of a run waited for, from their files. Runs none of them; the metadata of native plugins
/// is read in a process of its own, as a boot reads it.

namespace bootweave {

/// Where the needs of plugins are read.
struct NeedsSources {
    std::string directory;                             ///< of the plugins
    NativeMetadataReader::Options native{};            ///< how native plugins are read
    std::string injections = kDebugConfigurationPath;  ///< for plugins without a file
};

/// The providers of each plugin of a block.
struct PluginNeeds {
    /// By index in the block's plugins: the indices of those that provide what it requires, ascending.
    std::vector<std::vector<std::size_t>> providers;
    std::vector<std::string> warnings;  ///< one for each plugin whose needs are not known
};

/// Reads the files of those plugins of `block` that ran. One whose file is not there, or cannot be loaded,
/// requires and provides nothing, and costs a warning; one of the debug injections needs none.
///
/// \throws Exception  "cannot read <directory>: <reason>"
[[nodiscard]] PluginNeeds ReadPluginNeeds(const ProfileBlock& block, const NeedsSources& sources);

}  // namespace bootweave
