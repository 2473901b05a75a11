// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <optional>

#include "analyze/verified_plugins.h"
#include "analyze/verify_finding.h"
#include "plugins/json_plugin_file.h"

namespace bootweave {

/// Finds what is odd about the keys of a JSON plugin file, and where one is no JSON.
///
/// \param version  of the file; nothing when it could not be loaded
void CheckJSONKeys(const JSONPluginRemarks& remarks, std::optional<std::int32_t> version,
                   const VerifiedPlugin& plugin, Findings& findings);

}  // namespace bootweave
