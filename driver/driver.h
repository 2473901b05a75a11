// SPDX-License-Identifier: Apache-2.0
#pragma once

namespace bootweave {

/// The whole program, from the command line to the exit status: 0 for a run that went through, whatever its
/// plugins did, and 1 for wrong usage and for a run that broke off. Called once per process.
[[nodiscard]] int RunBootweave(int argc, char** argv);

}  // namespace bootweave
