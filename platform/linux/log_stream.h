// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string_view>

#include <sys/types.h>

/// \file
/// Log lines on standard output and standard error.

namespace bootweave {

/// Writes a line, with one write where the stream takes it whole, so that lines of several threads and
/// processes never mix (a pipe keeps that up to 4096 bytes).
///
/// A stream that does not block and is full is waited for within Patience. Any other failure is the end of
/// this line and nobody's business. Any thread, and the child of a fork; `pid` is this process.
void WriteLine(int stream, std::string_view line, pid_t pid);

/// Has writing to a pipe that nobody reads any more, or to a file that has reached its limit, fail instead of
/// ending the process, unless the program handles that signal itself. Children get the default back before
/// they run another program.
void IgnoreWriteSignals();

/// Gives all patience back, for tests.
void ResetStreamsForTest();

}  // namespace bootweave
