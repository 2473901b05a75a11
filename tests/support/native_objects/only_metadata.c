// SPDX-License-Identifier: Apache-2.0
// An object without operations.
#include <bootweave/native_plugin.h>

BOOTWEAVE_PLUGIN_METADATA(1, NULL, NULL);
