// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <ostream>

#include "analyze/report_text.h"
#include "analyze/verify.h"

namespace bootweave {

/// Writes one line for each finding, "FILE: error: TEXT" or "FILE: warning: TEXT", and one that adds them up.
void WriteVerifyText(std::ostream& out, const VerifyReport& report, const TextStyle& style);

}  // namespace bootweave
