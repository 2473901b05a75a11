// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <optional>
#include <string>

#include "util/child_process.h"

namespace bootweave {

/// What a program has left behind.
struct ProgramOutput {
    std::string text;               ///< its standard output
    std::optional<int> raw_status;  ///< how it ended, as a raw wait status; nothing when waiting failed
};

/// Runs a program, reads what it writes to standard output, to its end, and then waits for it. Any thread.
///
/// \param options  standard output is added to its descriptors
/// \return nothing, with errno set, when it cannot be started
/// \throws Exception  the system's error text, when reading fails
[[nodiscard]] std::optional<ProgramOutput> ReadProgram(SpawnOptions options);

}  // namespace bootweave
