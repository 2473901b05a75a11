// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include <sys/types.h>

#include "analyze/verify_finding.h"
#include "driver/options.h"
#include "hostcli/dispatcher.h"
#include "plugins/debug_injections.h"
#include "plugins/native_metadata_reader.h"

/// \file
/// What is wrong with a host's plugins, before a boot finds out. Everything is read by the code that a boot
/// reads it with; no plugin and no command is run, and nothing is written.

namespace bootweave {

/// What is verified, and against what.
struct VerifySources {
    std::vector<std::string> paths{};  ///< files and directories; none stands for the host's own
    std::string directory = DriverOptions().plugin_directory;  ///< the host's plugins
    std::string injections = kDebugConfigurationPath;          ///< the host's debug injections
    NativeMetadataReader::Options native{};                    ///< how native plugins are read
    std::vector<std::string> command_directories{kCommandDirectories.begin(), kCommandDirectories.end()};
    uid_t user = 0;  ///< that a boot runs as: whom it trusts
};

/// What came of it.
struct VerifyReport {
    std::size_t plugins = 0;  ///< how many were loaded of what was to be verified, injections included
    std::vector<Finding> findings{};  ///< by file, in ascending byte order

    [[nodiscard]] std::size_t Count(Severity severity) const;
};

/// Verifies files and directories, all together, as if one plugin directory had them.
///
/// A directory stands for the files in it; a file whose name ends in ".conf" is one of debug injections,
/// and a script that is given by itself an init script. Files without any directory are verified as additions
/// to the host's own plugins and injections, about which nothing is said. Where a host has no plugin
/// directory, it is not asked who provides what such files require.
[[nodiscard]] VerifyReport Verify(const VerifySources& sources);

}  // namespace bootweave
