// SPDX-License-Identifier: Apache-2.0
#pragma once

namespace bootweave {

/// Connects the log to the host's system log and to standard output, which is unbuffered from then on.
///
/// A step that fails says so on standard error and leaves what was set up before it. Main thread, before
/// others.
/// \param identifier  the name in front of each message
void SetUpLogging(const char* identifier);

}  // namespace bootweave
