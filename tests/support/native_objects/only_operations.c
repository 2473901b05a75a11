// SPDX-License-Identifier: Apache-2.0
// An object without metadata.
#include <bootweave/native_plugin.h>

BOOTWEAVE_PLUGIN_OPERATIONS(NULL, NULL);
