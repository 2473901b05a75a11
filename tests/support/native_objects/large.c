// SPDX-License-Identifier: Apache-2.0
// A plugin whose only name has SIZE characters.
#include <string.h>

#include <bootweave/native_plugin.h>

static char name[SIZE + 1];

__attribute__((constructor)) static void Fill(void) {
    memset(name, 'x', SIZE);
}

BOOTWEAVE_PLUGIN_NAMES(provided, name);
BOOTWEAVE_PLUGIN_OPERATIONS(NULL, NULL);
BOOTWEAVE_PLUGIN_METADATA(1, NULL, provided);
