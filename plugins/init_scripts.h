// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <map>
#include <string>

namespace bootweave {

inline constexpr const char* kInitScriptLister = "/bin/chkconfig -p";

/// Init-script paths by start priority; those of one priority in the order in which the host lists them.
using InitScripts = std::multimap<int, std::string>;

/// Asks the host's service lister. A lister that cannot be started lists nothing; lines without a word and a
/// number are skipped; how the lister ends does not matter.
///
/// \throws Exception  "Failed obtaining list of init.d scripts"
[[nodiscard]] InitScripts ListInitScripts(const std::string& lister = kInitScriptLister);

/// What a lister's output says.
[[nodiscard]] InitScripts ParseInitScriptList(const std::string& output);

}  // namespace bootweave
