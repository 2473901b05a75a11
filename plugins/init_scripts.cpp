// SPDX-License-Identifier: Apache-2.0
#include "plugins/init_scripts.h"

#include <optional>
#include <sstream>

#include "util/exception.h"
#include "util/shell.h"

namespace bootweave {

InitScripts ParseInitScriptList(const std::string& output) {
    InitScripts scripts;
    std::istringstream lines(output);
    for (std::string line; std::getline(lines, line);) {
        std::istringstream words(line);
        std::string path;
        int priority = 0;
        if (words >> path >> priority) {
            scripts.emplace(priority, path);
        }
    }
    return scripts;
}

InitScripts ListInitScripts(const std::string& lister) {
    try {
        const std::optional<std::string> output = ReadShellCommand(lister);
        return output.has_value() ? ParseInitScriptList(*output) : InitScripts();
    } catch (...) {
        throw Exception("Failed obtaining list of init.d scripts");
    }
}

}  // namespace bootweave
