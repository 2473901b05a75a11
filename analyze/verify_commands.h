// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <vector>

#include "analyze/verified_plugins.h"
#include "analyze/verify_finding.h"

namespace bootweave {

struct VerifySources;

/// Finds commands that the command executor would not run as they are written: lines that do not parse or do
/// not reach it whole, commands that no program answers, and programs that it does not trust. Runs none.
///
/// Where no command directory can be read, a warning says so, and only the lines are looked at.
void CheckCommands(const std::vector<VerifiedPlugin>& plugins, const VerifySources& sources,
                   Findings& findings);

}  // namespace bootweave
