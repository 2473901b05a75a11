// SPDX-License-Identifier: Apache-2.0
// A plugin with everything in it, of the version VERSION.
#include <string.h>

#include <bootweave/native_plugin.h>

static int Start(const char* name) {
    return strcmp(name, "plugin") == 0 ? 0 : 5;
}

static int Apply(const char* name) {
    return strcmp(name, "plugin") == 0 ? -1 : 0;
}

BOOTWEAVE_PLUGIN_NAMES(required, "r1", "r2");
BOOTWEAVE_PLUGIN_NAMES(provided, "p1", "p2", "p1");
BOOTWEAVE_PLUGIN_NAMES(required_flags, "f2", "f1");
BOOTWEAVE_PLUGIN_NAMES(disabling_flags, "d1");
BOOTWEAVE_PLUGIN_OPERATIONS(Start, Apply);
BOOTWEAVE_PLUGIN_METADATA_3(VERSION, required, provided, "1.2-3", 0x80, required_flags, disabling_flags);
