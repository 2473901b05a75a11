// SPDX-License-Identifier: Apache-2.0
// Stirs what the last shutdown has saved into the kernel's random numbers, before anything makes a key.
#include <stdio.h>

#include <bootweave/native_plugin.h>

#define SEED "/var/lib/corvane/random-seed"

static int Start(const char* pluginName) {
    char seed[512];
    size_t size = 0;
    FILE* saved = fopen(SEED, "rb");
    if (saved == NULL) {
        printf("%s: nothing was saved\n", pluginName);
        return 0;
    }
    size = fread(seed, 1, sizeof seed, saved);
    fclose(saved);
    FILE* random = fopen("/dev/urandom", "wb");
    const int stirred = random != NULL && fwrite(seed, 1, size, random) == size;
    if (random == NULL || fclose(random) != 0 || !stirred) {
        fprintf(stderr, "%s: cannot write to /dev/urandom\n", pluginName);
        return 1;
    }
    printf("%s: %zu bytes\n", pluginName, size);
    return 0;
}

BOOTWEAVE_PLUGIN_NAMES(required, "scratch");
BOOTWEAVE_PLUGIN_NAMES(provided, "random-seed");
BOOTWEAVE_PLUGIN_OPERATIONS(Start, NULL);
BOOTWEAVE_PLUGIN_METADATA(1, required, provided);
