// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>

#include <bootweave/native_plugin.h>

#include "plugins/native_metadata.h"

namespace bootweave {

/// Loads a shared object into this process, copies its metadata and closes it again, whatever the outcome.
/// Runs the object's code, and follows whatever pointers it has: for a process that may crash.
[[nodiscard]] MetadataAnswer LoadMetadata(const std::string& path);

/// Copies the metadata of an object that is loaded: the step of LoadMetadata behind the loader.
///
/// \param operations  a table with an entry for apply-host-profile at least
[[nodiscard]] MetadataAnswer ReadMetadataRecord(const BootweavePluginOperation* operations,
                                                const BootweavePluginMetadata& record);

}  // namespace bootweave
