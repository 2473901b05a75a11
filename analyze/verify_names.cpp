// SPDX-License-Identifier: Apache-2.0
#include "analyze/verify_names.h"

#include <map>
#include <string>

#include "driver/discovery.h"

namespace bootweave {
namespace {

/// --plugin-flags splits its value at commas and drops what is empty.
bool CanBeGiven(const std::string& flag) {
    return !flag.empty() && flag.find(',') == std::string::npos;
}

/// Two plugins that share something. What was loaded first owns it, unless only that one is to be reported.
struct Clash {
    Clash(const VerifiedPlugin& first, const VerifiedPlugin& second)
        : culprit(second.reported ? second : first), owner(second.reported ? first : second) {}

    const VerifiedPlugin& culprit;
    const VerifiedPlugin& owner;
};

}  // namespace

void CheckFlags(const VerifiedPlugin& plugin, Findings& findings) {
    for (const std::string& flag : plugin.required_flags) {
        if (plugin.disabling_flags.contains(flag)) {
            AddFinding(findings, plugin, Severity::kError, FindingKind::kFlags,
                       "never runs: the flag '" + flag + "' is both required and disabling");
        }
        if (!CanBeGiven(flag)) {
            AddFinding(findings, plugin, Severity::kError, FindingKind::kFlags,
                       "never runs: no command line can give the required flag '" + flag + "'");
        }
    }
    for (const std::string& flag : plugin.disabling_flags) {
        if (!CanBeGiven(flag)) {
            AddFinding(findings, plugin, Severity::kWarning, FindingKind::kFlags,
                       "no command line can give the disabling flag '" + flag + "'");
        }
    }
}

void CheckRunOnceKeys(const std::vector<VerifiedPlugin>& plugins, Findings& findings) {
    std::map<std::string, const VerifiedPlugin*> owners;  // of keys that are found again
    for (const VerifiedPlugin& plugin : plugins) {
        if (!plugin.run_once) {
            continue;
        }
        const std::string key = RunOnceKey(plugin.name, plugin.version);
        const std::string recorded = RecordedRunOnceKey(key);
        if (recorded != key) {
            AddFinding(
                findings, plugin, Severity::kWarning, FindingKind::kRunOnce,
                "runs on every boot: its run-once key '" + key + "' is recorded as '" + recorded + "'");
        } else if (const auto [owner, is_new] = owners.emplace(key, &plugin); !is_new) {
            const Clash clash(*owner->second, plugin);
            AddFinding(
                findings, clash.culprit, Severity::kError, FindingKind::kRunOnce,
                "only one of two runs: its run-once key '" + key + "' is also that of " + clash.owner.file);
        }
    }
}

void CheckNames(const std::vector<VerifiedPlugin>& plugins, Findings& findings) {
    std::map<std::string, const VerifiedPlugin*> owners;
    for (const VerifiedPlugin& plugin : plugins) {
        if (plugin.is_script) {
            continue;  // which no run has beside plugins of another kind
        }
        const auto [owner, is_new] = owners.emplace(plugin.name, &plugin);
        if (!is_new) {
            const Clash clash(*owner->second, plugin);
            AddFinding(findings, clash.culprit, Severity::kWarning, FindingKind::kDuplicateName,
                       "its name '" + plugin.name + "' is also that of " + clash.owner.file);
        }
    }
}

}  // namespace bootweave
