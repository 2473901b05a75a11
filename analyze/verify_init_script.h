// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>

#include "analyze/verified_plugins.h"
#include "analyze/verify_finding.h"

namespace bootweave {

/// Whether a file begins as scripts do that the system starts by their interpreter.
[[nodiscard]] bool IsScript(const std::string& path);

/// Finds what keeps a daemon run from starting an init script. Nothing is started.
void CheckInitScript(const std::string& path, const VerifiedPlugin& script, Findings& findings);

}  // namespace bootweave
