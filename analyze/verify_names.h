// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <vector>

#include "analyze/verified_plugins.h"
#include "analyze/verify_finding.h"

/// \file
/// Flags, run-once keys and names of plugins that cannot work as they are written.

namespace bootweave {

/// Finds flags that keep a plugin out of every boot, and flags that no command line can give.
void CheckFlags(const VerifiedPlugin& plugin, Findings& findings);

/// Finds run-once keys that are never found again, and keys that two plugins share.
void CheckRunOnceKeys(const std::vector<VerifiedPlugin>& plugins, Findings& findings);

/// Finds names that two plugins share.
void CheckNames(const std::vector<VerifiedPlugin>& plugins, Findings& findings);

}  // namespace bootweave
