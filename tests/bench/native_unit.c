// SPDX-License-Identifier: Apache-2.0
// A native plugin that does nothing, or, built with NOTE, notes when it begins and ends. The names are places
// that the benchmark fills in: REQUIRED of them (0 to 2), and one that is provided.
#include <bootweave/native_plugin.h>

#ifdef NOTE
#include <fcntl.h>
#include <stdio.h>
#include <stdlib.h>
#include <unistd.h>

static void Write(char what, const char* pluginName) {
    char line[64];
    const int length = snprintf(line, sizeof line, "%c %ld\n", what, strtol(pluginName + 1, NULL, 10));
    const int notes = open("/run/bench-notes", O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0600);
    if (notes >= 0 && write(notes, line, (size_t)length) == length) {
        close(notes);
    }
}
#endif

static int Start(const char* pluginName) {
#ifdef NOTE
    Write('b', pluginName);
    Write('e', pluginName);
#endif
    return pluginName == NULL;
}

#if REQUIRED == 0
#define REQUIRED_NAMES NULL
#elif REQUIRED == 1
BOOTWEAVE_PLUGIN_NAMES(required, "REQUIRED-0");
#define REQUIRED_NAMES required
#else
BOOTWEAVE_PLUGIN_NAMES(required, "REQUIRED-0", "REQUIRED-1");
#define REQUIRED_NAMES required
#endif

BOOTWEAVE_PLUGIN_NAMES(provided, "PROVIDED-0");
BOOTWEAVE_PLUGIN_OPERATIONS(Start, NULL);
BOOTWEAVE_PLUGIN_METADATA(1, REQUIRED_NAMES, provided);
