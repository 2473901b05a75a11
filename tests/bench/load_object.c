// SPDX-License-Identifier: Apache-2.0
// What a native plugin costs at least: a program that loads the object and calls its start function.
#include <dlfcn.h>
#include <string.h>

#include <bootweave/native_plugin.h>

int main(int argc, char** argv) {
    void* const object = argc == 2 ? dlopen(argv[1], RTLD_NOW) : NULL;
    const BootweavePluginOperation* operations = object == NULL ? NULL : dlsym(object, "operations");
    return operations == NULL ? 1 : operations[BOOTWEAVE_PLUGIN_START](strrchr(argv[1], '/') + 1);
}
