// SPDX-License-Identifier: Apache-2.0
#include "analyze/verify_json_keys.h"

#include <algorithm>
#include <string>
#include <string_view>
#include <vector>

#include "analyze/did_you_mean.h"

namespace bootweave {
namespace {

using Key = JSONPluginRemarks::Key;

std::string PathOf(std::string_view parent, std::string_view name) {
    return parent.empty() ? std::string(name) : std::string(parent) + "." + std::string(name);
}

const JSONPluginKey* FindKnown(const Key& key) {
    const auto keys = JSONPluginKeys();
    const auto found = std::find_if(keys.begin(), keys.end(), [&key](const JSONPluginKey& known) {
        return known.parent == key.parent && known.name == key.name;
    });
    return found == keys.end() ? nullptr : &*found;
}

/// Whether no key of that object is known, which then is a finding itself.
bool IsInUnknownObject(const Key& key) {
    const auto keys = JSONPluginKeys();
    return std::none_of(keys.begin(), keys.end(),
                        [&key](const JSONPluginKey& known) { return known.parent == key.parent; });
}

/// Editors look here for the schema of the file.
bool IsForEditors(const Key& key) {
    return key.parent.empty() && key.name == "$schema";
}

/// A key with nearly this name in the same object, or with just this name in another one; or nothing.
std::string Suggest(const Key& key) {
    std::vector<std::string_view> names;
    std::string elsewhere;
    for (const JSONPluginKey& known : JSONPluginKeys()) {
        if (known.parent == key.parent) {
            names.push_back(known.name);
        } else if (known.name == key.name) {
            elsewhere = PathOf(known.parent, known.name);
        }
    }
    const std::string_view nearest = FindNearest(key.name, names);
    return nearest.empty() ? elsewhere : PathOf(key.parent, nearest);
}

}  // namespace

void CheckJSONKeys(const JSONPluginRemarks& remarks, std::optional<std::int32_t> version,
                   const VerifiedPlugin& plugin, Findings& findings) {
    const auto add = [&](Severity severity, FindingKind kind, const std::string& text) {
        AddFinding(findings, plugin, severity, kind, text);
    };
    if (!remarks.syntax_error.empty()) {
        add(Severity::kError, FindingKind::kSyntax, remarks.syntax_error);
        return;
    }
    for (const Key& key : remarks.keys) {
        const JSONPluginKey* known = FindKnown(key);
        const std::string path = PathOf(key.parent, key.name);
        if (known == nullptr && !IsInUnknownObject(key) && !IsForEditors(key)) {
            add(Severity::kWarning, FindingKind::kUnknownKey,
                "unknown key '" + path + "'" + DidYouMean(Suggest(key)));
        } else if (known != nullptr && version.has_value() && *version < known->since) {
            add(Severity::kWarning, FindingKind::kUnreadKey,
                "key '" + path + "' is not read in version " + std::to_string(*version) +
                    ", only from version " + std::to_string(known->since));
        }
    }
    for (const Key& key : remarks.repeated) {
        add(Severity::kWarning, FindingKind::kRepeatedKey,
            "key '" + PathOf(key.parent, key.name) + "' is there twice, and the last one counts");
    }
}

}  // namespace bootweave
