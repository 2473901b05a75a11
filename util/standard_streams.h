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

/// Closes every descriptor from `first` up. For a freshly forked child.
void CloseDescriptorsFrom(int first);

}  // namespace bootweave
