// SPDX-License-Identifier: Apache-2.0
#include "analyze/verify.h"

#include <algorithm>

#include "analyze/verified_plugins.h"
#include "analyze/verify_commands.h"
#include "analyze/verify_graph.h"
#include "analyze/verify_names.h"

namespace bootweave {

std::size_t VerifyReport::Count(Severity severity) const {
    return static_cast<std::size_t>(
        std::count_if(findings.begin(), findings.end(),
                      [severity](const Finding& finding) { return finding.severity == severity; }));
}

VerifyReport Verify(const VerifySources& sources) {
    VerifiedPlugins verified = LoadVerifiedPlugins(sources);
    Findings& findings = verified.findings;
    for (const VerifiedPlugin& plugin : verified.plugins) {
        CheckFlags(plugin, findings);
    }
    CheckRunOnceKeys(verified.plugins, findings);
    CheckCommands(verified.plugins, sources, findings);
    CheckNames(verified.plugins, findings);
    CheckCircles(verified.plugins, findings);
    if (verified.complete) {
        CheckBarriers(verified.plugins, findings);
    }
    std::stable_sort(findings.begin(), findings.end(),
                     [](const Finding& left, const Finding& right) { return left.file < right.file; });
    const auto reported = std::count_if(verified.plugins.begin(), verified.plugins.end(),
                                        [](const VerifiedPlugin& plugin) { return plugin.reported; });
    return {static_cast<std::size_t>(reported), std::move(findings)};
}

}  // namespace bootweave
