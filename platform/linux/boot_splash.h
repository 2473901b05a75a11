// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>
#include <vector>

namespace bootweave {

/// The boot splash, spoken to through its own client program: that is always there with the splash, and
/// spares a library that most hosts lack.
///
/// Where no splash daemon listens, all this costs is one failed connect. Where one does, the client is
/// started and left alone. One that hangs with its daemon stays connected to it, so the daemon's backlog
/// bounds how many can pile up.
struct BootSplash {
    std::string socket = "/org/freedesktop/plymouthd";  ///< abstract name on which the daemon listens
    std::vector<std::string> clients = {"/usr/bin/plymouth",
                                        "/bin/plymouth"};  ///< the first that runs is used

    /// Starts the client with `arguments`. Never blocks, never raises, leaves no zombie; any thread.
    void Tell(const std::vector<std::string>& arguments) const;
};

}  // namespace bootweave
