// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>

namespace bootweave {

/// Runs a program of the configuration store and waits for its end.
///
/// It gets no arguments, this process's environment, standard output and error, and an empty standard input.
/// One that is not installed is passed over; any other failure is one line at level 3.
void RunConfigStoreProgram(const std::string& path);

}  // namespace bootweave
