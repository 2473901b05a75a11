// SPDX-License-Identifier: Apache-2.0
// A JSON plugin file.

#include "plugins/json_plugin_file.h"
#include "tests/fuzz/fuzzing.h"
#include "util/exception.h"

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using namespace bootweave;
    const MemoryFile file(Text(data, size));
    try {
        const JSONPluginFile plugin = ReadJSONPluginFile(file.path());
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
