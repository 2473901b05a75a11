// SPDX-License-Identifier: Apache-2.0
// A plugin that has as little as possible, of the version VERSION.
#include <bootweave/native_plugin.h>

static int Start(const char* name) {
    return name[0] == '\0';
}

BOOTWEAVE_PLUGIN_OPERATIONS(Start, NULL);
BOOTWEAVE_PLUGIN_METADATA(VERSION, NULL, NULL);
