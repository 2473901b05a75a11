// SPDX-License-Identifier: Apache-2.0
#pragma once

/// \file
/// What a native plugin of bootweave is made of. Valid C11 and C++11.
///
/// A native plugin is a shared object, for a 64-bit process, that exports two data symbols: "operations", a
/// table of functions, and "metadata", what the boot needs to know before it runs one. Whole, it is
///
///     #include <bootweave/native_plugin.h>
///
///     static int Start(const char *pluginName) {
///         return pluginName[0] == '\0';
///     }
///
///     BOOTWEAVE_PLUGIN_NAMES(wanted, "network");
///     BOOTWEAVE_PLUGIN_NAMES(given, "names", "name-cache");
///     BOOTWEAVE_PLUGIN_OPERATIONS(Start, NULL);
///     BOOTWEAVE_PLUGIN_METADATA(1, wanted, given);
///
/// built with "cc -shared -fPIC $(pkg-config --cflags bootweave-native-plugin)" and put into
/// /usr/libexec/bootweave/plugins as NAME.so or libNAME.so.
///
/// Each operation runs in a process of its own, which loads the object, calls the operation and ends. The
/// object is loaded once more, earlier, in another process that reads its metadata: its constructors and
/// destructors run there too, where nothing else of the boot has begun, and within ten seconds.

// The header is C's as well: no using, no <cstdint>, the names of C.
// NOLINTBEGIN(modernize-use-using,modernize-deprecated-headers,readability-identifier-naming)

#include <assert.h>
#include <stddef.h>
#include <stdint.h>

/// What a plugin can do: gets the plugin's name; 0 is success.
typedef int (*BootweavePluginOperation)(const char* pluginName);

/// Places in the table of operations.
enum BootweavePluginEntry {
    BOOTWEAVE_PLUGIN_START = 0,               ///< every plugin has it
    BOOTWEAVE_PLUGIN_APPLY_HOST_PROFILE = 1,  ///< null when there is none; used from version 2 on
    BOOTWEAVE_PLUGIN_OPERATION_COUNT = 2
};

/// What the boot needs to know of a plugin. Lists are arrays of strings that end with a null pointer; a null
/// pointer instead of a list is an empty one. The fields from plugin_version on are read from version 3 on.
struct BootweavePluginMetadata {
    int32_t version;                     ///< of this interface, 1 to 4
    const char* const* required_names;   ///< barriers that the plugin waits for
    const char* const* provided_names;   ///< barriers that wait for the plugin
    const char* plugin_version;          ///< the plugin's own version; null leaves it empty
    uint8_t run_once;                    ///< not 0: each version of the plugin runs once on a host
    const char* const* required_flags;   ///< boot flags that must all be given
    const char* const* disabling_flags;  ///< boot flags any of which keeps the plugin out
};

static_assert(offsetof(struct BootweavePluginMetadata, version) == 0, "layout of metadata");
static_assert(offsetof(struct BootweavePluginMetadata, required_names) == 8, "layout of metadata");
static_assert(offsetof(struct BootweavePluginMetadata, provided_names) == 16, "layout of metadata");
static_assert(offsetof(struct BootweavePluginMetadata, plugin_version) == 24, "layout of metadata");
static_assert(offsetof(struct BootweavePluginMetadata, run_once) == 32, "layout of metadata");
static_assert(offsetof(struct BootweavePluginMetadata, required_flags) == 40, "layout of metadata");
static_assert(offsetof(struct BootweavePluginMetadata, disabling_flags) == 48, "layout of metadata");
static_assert(sizeof(struct BootweavePluginMetadata) == 56, "layout of metadata");
static_assert(sizeof(BootweavePluginOperation) == 8, "layout of operations");

#ifdef __cplusplus
#define BOOTWEAVE_PLUGIN_EXPORT extern "C" __attribute__((visibility("default")))
#else
#define BOOTWEAVE_PLUGIN_EXPORT extern __attribute__((visibility("default")))
#endif

/// Defines a list of at least one name, for the metadata.
#define BOOTWEAVE_PLUGIN_NAMES(list, ...) static const char* const list[] = {__VA_ARGS__, NULL}

/// Defines the plugin's operations: its start function, and its apply-host-profile function or NULL.
#define BOOTWEAVE_PLUGIN_OPERATIONS(start, apply_host_profile)           \
    BOOTWEAVE_PLUGIN_EXPORT const BootweavePluginOperation operations[]; \
    const BootweavePluginOperation operations[BOOTWEAVE_PLUGIN_OPERATION_COUNT] = {start, apply_host_profile}

/// Defines the metadata of a plugin of version 1 or 2; each list may be NULL.
#define BOOTWEAVE_PLUGIN_METADATA(version, required_names, provided_names) \
    BOOTWEAVE_PLUGIN_METADATA_3(version, required_names, provided_names, NULL, 0, NULL, NULL)

/// Defines the metadata of a plugin of version 3 or 4: the fields of BootweavePluginMetadata in their order.
#define BOOTWEAVE_PLUGIN_METADATA_3(version, required_names, provided_names, plugin_version, run_once, \
                                    required_flags, disabling_flags)                                   \
    BOOTWEAVE_PLUGIN_EXPORT const struct BootweavePluginMetadata metadata;                             \
    const struct BootweavePluginMetadata metadata = {                                                  \
        version, required_names, provided_names, plugin_version, run_once, required_flags, disabling_flags}

// NOLINTEND(modernize-use-using,modernize-deprecated-headers,readability-identifier-naming)
