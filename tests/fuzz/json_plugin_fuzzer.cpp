// SPDX-License-Identifier: Apache-2.0
// A JSON plugin file.

#include <algorithm>
#include <string_view>

#include "plugins/json_plugin_file.h"
#include "tests/fuzz/fuzzing.h"
#include "util/exception.h"

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using namespace bootweave;
    const MemoryFile file(Text(data, size));
    const JSONPluginRemarks remarks = ReadJSONPluginRemarks(file.path());
    const auto has_key = [&remarks](std::string_view parent, std::string_view name) {
        return std::any_of(remarks.keys.begin(), remarks.keys.end(), [&](const JSONPluginRemarks::Key& key) {
            return key.parent == parent && key.name == name;
        });
    };
    for (const JSONPluginRemarks::Key& key : remarks.repeated) {
        Check(has_key(key.parent, key.name), "a key that is repeated is there");
    }
    try {
        const JSONPluginFile plugin = ReadJSONPluginFile(file.path());
        Check(remarks.syntax_error.empty(), "what is loaded is JSON");
        for (const char* name : {"version", "requires", "provides"}) {
            Check(has_key("metadata", name), "what must be there is remarked");
        }
        Check(has_key("", "metadata") && has_key("operations", "start"), "in each object");
        Check(plugin.version >= 1 && plugin.version <= 4, "the version is one that there is");
        Check(plugin.version >= 2 || !plugin.apply_host_profile.has_value(),
              "version 1 has no host profiles");
        Check(plugin.version >= 3 || (!plugin.run_once && plugin.plugin_version.empty() &&
                                      plugin.required_flags.empty() && plugin.disabling_flags.empty()),
              "before version 3 there are no flags");
    } catch (const InvalidPluginException& error) {
        const std::string start = "plugin `" + file.path() + "' is invalid: ";
        Check(std::string(error.what()).starts_with(start), "a refusal names the file");
    }
    return 0;
}
