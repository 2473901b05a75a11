// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <string>

#include "util/child_process.h"

namespace bootweave {

/// What a program came to.
struct CapturedRun {
    ExitStatus status;
    std::string error_output;  ///< what it wrote to standard error, from the start, up to the bound
};

/// Runs a program, captures its standard error and waits for its end.
///
/// Only the program itself is waited for: processes that it left behind may hold its standard error open, and
/// lose it at the return. What the program wrote before its end is never lost, whatever is beyond the bound
/// is read and dropped, so that the program is never blocked by its own messages. Sleeps in the kernel; takes
/// no lock.
///
/// \param options      standard error is added to its descriptors here
/// \param error_bound  how many bytes of standard error are kept
/// \throws Exception   with the system's error text, when the program cannot be started or waited for;
///                     nothing of it is then left running
[[nodiscard]] CapturedRun RunCapturingErrors(SpawnOptions options, std::size_t error_bound);

}  // namespace bootweave
