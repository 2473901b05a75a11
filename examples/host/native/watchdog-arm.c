// SPDX-License-Identifier: Apache-2.0
// Arms the hardware watchdog for the rest of the boot: a host that hangs is reset after two minutes. Where
// there is no watchdog there is nothing to do.
#include <errno.h>
#include <fcntl.h>
#include <stdio.h>
#include <string.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <linux/watchdog.h>

#include <bootweave/native_plugin.h>

#define DEVICE "/dev/watchdog"

static int Fail(const char* plugin, const char* what) {
    fprintf(stderr, "%s: %s: %s\n", plugin, what, strerror(errno));
    return 1;
}

static int Start(const char* pluginName) {
    const int device = open(DEVICE, O_WRONLY | O_CLOEXEC);
    if (device < 0 && errno == ENOENT) {
        printf("%s: this host has no watchdog\n", pluginName);
        return 0;
    }
    if (device < 0) {
        return Fail(pluginName, DEVICE);
    }
    int seconds = 120;
    if (ioctl(device, WDIOC_SETTIMEOUT, &seconds) != 0) {
        const int failure = Fail(pluginName, "cannot set the time");
        close(device);
        return failure;
    }
    printf("%s: armed for %d s\n", pluginName, seconds);
    close(device);  // without the word that disarms it
    return 0;
}

BOOTWEAVE_PLUGIN_NAMES(required, "kernel-ready");
BOOTWEAVE_PLUGIN_NAMES(provided, "watchdog");
BOOTWEAVE_PLUGIN_OPERATIONS(Start, NULL);
BOOTWEAVE_PLUGIN_METADATA(1, required, provided);
