// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <set>
#include <string>
#include <vector>

#include "analyze/verify_finding.h"

/// \file
/// Loads the plugins that are to be verified, those around them too, and finds what is wrong with each file
/// by itself.

namespace bootweave {

struct VerifySources;

/// A plugin as its file, or a line of debug injections, declares it.
struct VerifiedPlugin {
    std::string name;
    std::string file;        ///< as findings name it
    bool reported = true;    ///< false for one that only stands around what is verified
    bool injected = false;   ///< by a line of debug injections
    bool is_script = false;  ///< an init script, which runs of daemons start
    std::vector<std::string> requires_names{};
    std::vector<std::string> provides_names{};
    std::set<std::string> required_flags{};
    std::set<std::string> disabling_flags{};
    bool run_once = false;
    std::string version{};                ///< of the plugin itself
    std::vector<std::string> commands{};  ///< of all its methods
};

/// Adds a finding about a plugin, unless nothing is to be said about it.
void AddFinding(Findings& findings, const VerifiedPlugin& plugin, Severity severity, FindingKind kind,
                const std::string& text);

/// What was loaded.
struct VerifiedPlugins {
    std::vector<VerifiedPlugin> plugins{};
    Findings findings{};    ///< about files that cannot be loaded, or that anybody may change, and their keys
    bool complete = false;  ///< whether a plugin directory, with all that a host has, is among them
};

/// Loads everything that `sources` stands for; see Verify().
[[nodiscard]] VerifiedPlugins LoadVerifiedPlugins(const VerifySources& sources);

}  // namespace bootweave
