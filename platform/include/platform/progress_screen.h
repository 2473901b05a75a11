// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>

/// \file
/// The boot progress screen.

namespace MantleCtl::System {

/// Shows what the boot is doing on the boot splash and to the service manager, where there is one.
/// Nothing here raises or blocks; objects hold nothing, so any thread may make its own.
class KernelProgressScreenImpl {
  public:
    /// The large line: what is being done.
    void ProgressText(const std::string& text);
    /// The small line below it; an empty text is not sent.
    void StatusText(const std::string& text);
    /// One unit of work is done.
    void Step();
};

}  // namespace MantleCtl::System
