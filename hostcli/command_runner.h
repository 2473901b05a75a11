// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <functional>
#include <list>
#include <memory>
#include <string>

#include <sys/types.h>

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

/// What would keep a command line from being run, one text for each error, as RunCommandLine() logs it. Runs
/// and logs nothing.
///
/// \param dispatcher  looks the command up; without one only the line itself is looked at
/// \param user        of the process that is to run the line
[[nodiscard]] std::list<std::string> CheckCommandLine(const std::string& line,
                                                      const Plinth::Cmdgen::Dispatcher* dispatcher,
                                                      uid_t user);

}  // namespace bootweave
