// SPDX-License-Identifier: Apache-2.0
// A plugin that stays loaded: its metadata is unique in a process, as a C++ inline variable is, so that the
// first object's would stand for those of all others. It provides PROVIDED.
#include <bootweave/native_plugin.h>

BOOTWEAVE_PLUGIN_NAMES(provided, PROVIDED);
BOOTWEAVE_PLUGIN_OPERATIONS(NULL, NULL);
BOOTWEAVE_PLUGIN_METADATA(1, NULL, provided);

__asm__(".type metadata, %gnu_unique_object");
