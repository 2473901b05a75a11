// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>

/// \file
/// Standard input, output and error of this process and of its forked children.

namespace bootweave {

/// Opens whichever of the descriptors 0, 1 and 2 are missing on /dev/null, so that nothing else that the
/// program opens ever gets one of these numbers. Called first of all.
void EnsureStandardDescriptors();

/// Takes standard input from /dev/null and appends standard output and error to the file at `path`, which is
/// made with mode 0644 when missing. A step that fails is a warning and the streams stay as they are.
/// For a freshly forked child: takes no lock.
void RedirectStandardStreams(const std::string& path);

/// Opens anew those of the three that stand for a terminal which was hung up: what was open then is dead for
/// ever, reads find the end and writes fail, though the terminal itself may be there again. One that cannot
/// be opened stays as it is. Never waits for a line's carrier.
void ReopenHungUpStreams();

/// Closes every descriptor from `first` up. For a freshly forked child.
void CloseDescriptorsFrom(int first);

}  // namespace bootweave
