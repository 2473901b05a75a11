// SPDX-License-Identifier: Apache-2.0
// Writes the label that the host shows in its rack: its name, and with a host profile that it has one.
//
// Runs once for each version of this plugin, and not on a host that is booted for maintenance.
#include <cstdio>
#include <exception>
#include <fstream>
#include <stdexcept>
#include <string>

#include <unistd.h>

#include <bootweave/native_plugin.h>

namespace {

constexpr const char* kLabel = "/var/lib/corvane/rack-label";

std::string HostName() {
    char name[256] = "";
    if (::gethostname(name, sizeof name - 1) != 0) {
        throw std::runtime_error("this host has no name");
    }
    return name;
}

void WriteLabel(const std::string& text) {
    std::ofstream file(kLabel, std::ios::trunc);
    file << text << "\n";
    file.close();
    if (!file) {
        throw std::runtime_error(std::string("cannot write ") + kLabel);
    }
}

// No exception may leave an operation: the caller is C.
template <typename Action>
int Try(const char* plugin, Action action) {
    try {
        action();
        return 0;
    } catch (const std::exception& error) {
        std::fprintf(stderr, "%s: %s\n", plugin, error.what());
        return 1;
    }
}

int Start(const char* name) {
    return Try(name, [] { WriteLabel(HostName()); });
}

int ApplyHostProfile(const char* name) {
    return Try(name, [] { WriteLabel(HostName() + " (profile)"); });
}

BOOTWEAVE_PLUGIN_NAMES(kRequired, "names");
BOOTWEAVE_PLUGIN_NAMES(kProvided, "rack-label");
BOOTWEAVE_PLUGIN_NAMES(kDisablingFlags, "maintenance");

}  // namespace

BOOTWEAVE_PLUGIN_OPERATIONS(Start, ApplyHostProfile);
BOOTWEAVE_PLUGIN_METADATA_3(3, kRequired, kProvided, "1.0", 1, nullptr, kDisablingFlags);
