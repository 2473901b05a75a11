// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <map>
#include <string>

namespace bootweave {

inline constexpr const char* kInitScriptLister = "/bin/chkconfig";
inline constexpr const char* kInitScriptCommand = "/bin/chkconfig -p";

/// Init-script paths by start priority; those of one priority in the order in which the host lists them.
using InitScripts = std::multimap<int, std::string>;

/// Asks the host's service lister, by a command line for the shell. A lister that cannot be started lists
/// nothing; lines without a word and a number are skipped; how the lister ends does not matter.
///
/// \throws Exception  "Failed obtaining list of init.d scripts"
[[nodiscard]] InitScripts ListInitScripts(const std::string& command = kInitScriptCommand);

/// What a lister has listed, and why that need not be all.
struct InitScriptListing {
    InitScripts scripts;
    std::string failure;  ///< "<program>: <why it did not run to a good end>"; empty when it did
};

/// Runs the host's service lister for programs that tell why it failed, which a run of daemons does not look
/// at. Its complaints go to this process's standard error.
[[nodiscard]] InitScriptListing RunInitScriptLister(const std::string& program);

/// What a lister's output says.
[[nodiscard]] InitScripts ParseInitScriptList(const std::string& output);

}  // namespace bootweave
