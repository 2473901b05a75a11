// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <ostream>

#include "analyze/verify_finding.h"

namespace bootweave {

/// How a failed comparison shows a finding.
inline void PrintTo(const Finding& finding, std::ostream* stream) {
    *stream << finding.file << ": " << SeverityText(finding.severity) << " " << FindingKindText(finding.kind)
            << " (" << finding.plugin << "): " << finding.text;
}

}  // namespace bootweave
