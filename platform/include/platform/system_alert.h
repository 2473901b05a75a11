// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>

/// \file
/// Alerts that an operator has to see.

namespace MantleCtl::System {

/// The host's system information, as far as the boot writes to it.
class SystemInfoImpl {
  public:
    /// Raises an alert: the message goes to the system log and to the kernel's log with the highest urgency
    /// that leaves the host running. Never raises; any thread.
    void SetSystemAlert(const std::string& message);
};

}  // namespace MantleCtl::System
