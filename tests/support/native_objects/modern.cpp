// SPDX-License-Identifier: Apache-2.0
// A plugin in C++.
#include <stdexcept>
#include <string>

#include <bootweave/native_plugin.h>

namespace {

int Start(const char* name) {
    return std::string(name) == "plugin" ? 0 : 1;
}

int Apply(const char* /*name*/) {
    throw std::runtime_error("no profile");
}

BOOTWEAVE_PLUGIN_NAMES(kRequired, "r");

}  // namespace

BOOTWEAVE_PLUGIN_OPERATIONS(Start, Apply);
BOOTWEAVE_PLUGIN_METADATA(2, kRequired, nullptr);
