// SPDX-License-Identifier: Apache-2.0
// A plugin whose list is a global symbol of the same name in several objects. It provides PROVIDED.
#include <bootweave/native_plugin.h>

BOOTWEAVE_PLUGIN_EXPORT const char* const shared_names[];
const char* const shared_names[] = {PROVIDED, NULL};

BOOTWEAVE_PLUGIN_OPERATIONS(NULL, NULL);
BOOTWEAVE_PLUGIN_METADATA(1, NULL, shared_names);
