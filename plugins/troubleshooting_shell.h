// SPDX-License-Identifier: Apache-2.0
#pragma once

namespace bootweave {

/// Runs a shell for the operator, in a session of its own with standard input as its terminal, and waits for
/// its end. A shell that cannot be had is a level 2 line. Standard streams that its end hung up work again.
void RunTroubleshootingShell();

}  // namespace bootweave
