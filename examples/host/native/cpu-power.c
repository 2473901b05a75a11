// SPDX-License-Identifier: Apache-2.0
// Chooses how the processors trade speed for power: balanced, or, on a host with a profile, for speed.
#include <errno.h>
#include <stdio.h>
#include <string.h>

#include <bootweave/native_plugin.h>

// Read by whatever sets the processors' governors.
#define POLICY "/var/lib/corvane/cpu-power"

static int Choose(const char* plugin, const char* policy) {
    FILE* file = fopen(POLICY, "w");
    const int written = file != NULL && fprintf(file, "%s\n", policy) > 0;
    const int closed = file != NULL && fclose(file) == 0;
    if (!written || !closed) {
        fprintf(stderr, "%s: %s: %s\n", plugin, POLICY, strerror(errno));
        return 1;
    }
    printf("%s: %s\n", plugin, policy);
    return 0;
}

static int Start(const char* pluginName) {
    return Choose(pluginName, "balanced");
}

static int ApplyHostProfile(const char* pluginName) {
    return Choose(pluginName, "performance");
}

BOOTWEAVE_PLUGIN_NAMES(required, "kernel-ready");
BOOTWEAVE_PLUGIN_NAMES(provided, "cpu-power");
BOOTWEAVE_PLUGIN_OPERATIONS(Start, ApplyHostProfile);
BOOTWEAVE_PLUGIN_METADATA(2, required, provided);
