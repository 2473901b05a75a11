// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <vector>

#include "analyze/verified_plugins.h"
#include "analyze/verify_finding.h"

/// \file
/// What is wrong with how plugins depend on each other. Costs as much as there are names in their lists.

namespace bootweave {

/// Finds plugins that wait for each other: for each group of plugins that do, one of the shortest circles,
/// "a -> b -> a", where a requires what b provides.
void CheckCircles(const std::vector<VerifiedPlugin>& plugins, Findings& findings);

/// Finds barriers that nobody provides or nobody requires.
void CheckBarriers(const std::vector<VerifiedPlugin>& plugins, Findings& findings);

}  // namespace bootweave
