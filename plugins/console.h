// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>

#include "util/run_config.h"

/// \file
/// The operator's say in an interactive run: a question at the console before each plugin.
///
/// Threads: plugins run one at a time in an interactive run; nothing here takes a lock.

namespace bootweave {

/// What the operator decided about a plugin.
enum class ConsoleAnswer { kProceed, kSkip };

/// Asks whether the plugin is to run; blocks until the operator answers, or until the troubleshooting shell
/// that was asked for has ended.
///
/// \param config  names are taken off its list of plugins that must be reached first, no question is asked
/// before it is
///                empty; "continue" clears its interactive flag
[[nodiscard]] ConsoleAnswer AskBeforePlugin(const std::string& plugin, RunConfig& config);

}  // namespace bootweave
