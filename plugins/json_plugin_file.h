// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <optional>
#include <set>
#include <span>
#include <string>
#include <string_view>
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

/// A key that a JSON plugin file may have.
struct JSONPluginKey {
    std::string_view parent;  ///< the key of the object that has it; empty for the root
    std::string_view name;
    std::int32_t since = 1;  ///< the first version that reads it
};

/// All keys that any version reads.
[[nodiscard]] std::span<const JSONPluginKey> JSONPluginKeys();

/// Reads and checks a JSON plugin file. Comments and trailing commas are allowed; unknown keys are ignored.
///
/// \throws InvalidPluginException  naming the path and the first thing that is wrong with the file
[[nodiscard]] JSONPluginFile ReadJSONPluginFile(const std::string& path);

/// What an author wants to know of a file beside what a boot makes of it. A boot says nothing of these.
struct JSONPluginRemarks {
    /// A key of the root, or of an object in it.
    struct Key {
        std::string parent;  ///< as in JSONPluginKey
        std::string name;
    };
    std::vector<Key> keys{};      ///< in the order of the file
    std::vector<Key> repeated{};  ///< those that an object has more than once; the last one counts
    std::string syntax_error{};   ///< "line 3, column 5: <why>" for a text that is no JSON
};

/// Looks at a JSON plugin file, whether it can be loaded or not. One that cannot be read has no remarks.
[[nodiscard]] JSONPluginRemarks ReadJSONPluginRemarks(const std::string& path);

}  // namespace bootweave
