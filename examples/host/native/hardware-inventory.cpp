// SPDX-License-Identifier: Apache-2.0
// Takes down what the host is made of, once per version of this plugin: the management agents read it.
#include <cstdio>
#include <exception>
#include <fstream>
#include <stdexcept>
#include <string>

#include <sys/sysinfo.h>
#include <unistd.h>

#include <bootweave/native_plugin.h>

namespace {

constexpr const char* kInventory = "/var/lib/corvane/hardware-inventory";

void WriteInventory() {
    struct sysinfo memory {};
    if (::sysinfo(&memory) != 0) {
        throw std::runtime_error("the kernel does not say how much memory there is");
    }
    std::ofstream file(kInventory, std::ios::trunc);
    file << "processors " << ::sysconf(_SC_NPROCESSORS_CONF) << "\n";
    file << "memory-mib " << memory.totalram * memory.mem_unit / (1024 * 1024) << "\n";
    file.close();
    if (!file) {
        throw std::runtime_error(std::string("cannot write ") + kInventory);
    }
}

// No exception may leave an operation: the caller is C.
int Start(const char* name) {
    try {
        WriteInventory();
        std::printf("%s: written\n", name);
        return 0;
    } catch (const std::exception& error) {
        std::fprintf(stderr, "%s: %s\n", name, error.what());
        return 1;
    }
}

BOOTWEAVE_PLUGIN_NAMES(kRequired, "kernel-ready");
BOOTWEAVE_PLUGIN_NAMES(kProvided, "hardware-inventory");

}  // namespace

BOOTWEAVE_PLUGIN_OPERATIONS(Start, nullptr);
BOOTWEAVE_PLUGIN_METADATA_3(3, kRequired, kProvided, "1.0", 1, nullptr, nullptr);
