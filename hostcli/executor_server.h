// SPDX-License-Identifier: Apache-2.0
#pragma once

namespace bootweave {

/// The command executor's side of the fork: daemonises, serves the control socket until it is told to stop.
///
/// The body of a forked child. The process that calls it ends inside, in one of three ways: the first child
/// with status 0 once the socket listens and the daemon runs; the daemon with status 0 after a stop request;
/// either of them with status 255 when it cannot start.
///
/// Fork: other threads of the parent may have held any lock. Nothing here takes one of theirs: not the graph
///       lock, not the run configuration, not the C library's streams or time zone.
/// \return never
[[noreturn]] int RunExecutorProcess();

}  // namespace bootweave
