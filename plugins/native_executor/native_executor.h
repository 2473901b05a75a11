// SPDX-License-Identifier: Apache-2.0
#pragma once

/// \file
/// The program nativeExecutor: runs one operation of one native plugin, in a process of its own.

namespace bootweave {

/// The program's whole work: nativeExecutor PATH NAME METHOD. Loads the shared object at PATH and calls the
/// operation for METHOD ("start" or "apply_host_profile") with the plugin's NAME. The object stays loaded:
/// its exit handlers and destructors run when the process ends.
///
/// \return the exit status: 0 for success; 1 when the operation returned something else than 0; 2 for wrong
///         usage; 3 when the object cannot be loaded or lacks a symbol; 4 when there is no such operation.
///         For the last three a line on standard error says why.
[[nodiscard]] int RunNativeExecutor(int argc, const char* const* argv);

}  // namespace bootweave
