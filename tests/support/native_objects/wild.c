// SPDX-License-Identifier: Apache-2.0
// A plugin whose list is somewhere where nothing is.
#include <bootweave/native_plugin.h>

BOOTWEAVE_PLUGIN_OPERATIONS(NULL, NULL);
BOOTWEAVE_PLUGIN_METADATA(1, NULL, (const char* const*)8);
