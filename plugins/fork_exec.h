// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>

namespace bootweave {

/// Runs one operation of a daemon and waits for its end, for as long as the run configuration says: in wait
/// mode for the daemon wait timeout, after which the operation has failed; otherwise for 10 seconds, after
/// which it counts as done. Either way a program that outlives its time is left running.
///
/// The program runs in "/", with input and output on /dev/null and error on /dev/log where that can be
/// opened. Any thread; takes no lock while it waits. \param name          the daemon's \param command_line
/// words separated by blanks; the first one is the program \throws Exception  saying how it failed
void ForkExec(const std::string& name, const std::string& command_line);

}  // namespace bootweave
