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

    /// Shows a message, a status, or that one more unit of work is done: the splash learns at which moments
    /// of a boot its updates come and moves its bar by them in the next one. `unit` is a name that is the
    /// same in each boot. As Tell().
    void ShowMessage(const std::string& text) const;
    void ShowStatus(const std::string& text) const;
    void ShowStep(unsigned unit) const;

    /// Starts the client with `arguments`. Never blocks, never raises, leaves no zombie; any thread.
    void Tell(const std::vector<std::string>& arguments) const;
};

}  // namespace bootweave
