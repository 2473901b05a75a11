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

std::string KeyOf(const VerifiedPlugin& plugin) {
    return RunOnceKey(plugin.name, plugin.version);
}

/// One key is recorded for both. Whoever is looked up by it, as one with foreign characters is not, is left
/// out when the other one has run.
void AddSharedKey(const VerifiedPlugin& first, const VerifiedPlugin& second, const std::string& recorded,
                  Findings& findings) {
    const Clash clash(first, second);
    const bool is_culprit = KeyOf(clash.culprit) == recorded;
    const VerifiedPlugin& left_out = is_culprit ? clash.culprit : clash.owner;
    const VerifiedPlugin& other = is_culprit ? clash.owner : clash.culprit;
    if (KeyOf(left_out) == recorded) {
        AddFinding(findings, left_out, Severity::kError, FindingKind::kRunOnce,
                   "left out once another plugin has run: its run-once key '" + recorded +
                       "' is also recorded for " + other.file);
    }
}

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
    std::map<std::string, const VerifiedPlugin*> owners;  // of keys as they are recorded
    for (const VerifiedPlugin& plugin : plugins) {
        if (!plugin.run_once) {
            continue;
        }
        const std::string key = KeyOf(plugin);
        const std::string recorded = RecordedRunOnceKey(key);
        if (recorded != key) {
            std::string text = "runs on every boot: its run-once key '";
            text.append(key).append("' is recorded as '").append(recorded).append("'");
            AddFinding(findings, plugin, Severity::kWarning, FindingKind::kRunOnce, text);
        }
        if (const auto [owner, is_new] = owners.emplace(recorded, &plugin); !is_new) {
            AddSharedKey(*owner->second, plugin, recorded, findings);
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
