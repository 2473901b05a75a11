// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <optional>
#include <set>
#include <string>
#include <vector>

namespace bootweave {

/// What a JSON plugin file says. Fields that its version does not have keep their defaults.
struct JSONPluginFile {
    std::int32_t version = -1;                                   ///< 1 to 4
    std::vector<std::string> requires_names;                     ///< barriers, in order, repeated ones kept
    std::vector<std::string> provides_names;                     ///< barriers, in order, repeated ones kept
    std::set<std::string> required_flags;                        ///< from version 3
    std::set<std::string> disabling_flags;                       ///< from version 3
    bool run_once = false;                                       ///< from version 3
    std::string plugin_version;                                  ///< from version 3
    std::vector<std::string> start;                              ///< commands, in order
    std::optional<std::vector<std::string>> apply_host_profile;  ///< from version 2; may be present and empty
};

/// Reads and checks a JSON plugin file. Comments and trailing commas are allowed; unknown keys are ignored.
///
/// \throws InvalidPluginException  naming the path and the first thing that is wrong with the file
[[nodiscard]] JSONPluginFile ReadJSONPluginFile(const std::string& path);

}  // namespace bootweave
