// SPDX-License-Identifier: Apache-2.0
// A plugin that has as little as possible, of the version VERSION; START may be NULL to have even less.
#include <bootweave/native_plugin.h>

#ifndef START
#define START Start
static int Start(const char* name) {
    return name[0] == '\0';
}
#endif

BOOTWEAVE_PLUGIN_OPERATIONS(START, NULL);
BOOTWEAVE_PLUGIN_METADATA(VERSION, NULL, NULL);
