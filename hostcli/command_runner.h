// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <functional>
#include <memory>
#include <string>

#include "platform/cmdgen.h"

namespace bootweave {

/// Gives the dispatcher to the first one that needs it; may make it then.
using DispatcherSource = std::function<std::shared_ptr<Plinth::Cmdgen::Dispatcher>()>;

/// Parses one command line, runs the command it names and waits for its end.
///
/// Each parse error and each error of the command is a level 2 line.
/// \param dispatcher  asked only for a line that parses
/// \throws Exception  "Executor failed to parse command <line>" or "Executor failed to execute command:
///                    <line>"; what `dispatcher` throws comes through
void RunCommandLine(const std::string& line, const DispatcherSource& dispatcher);

}  // namespace bootweave
