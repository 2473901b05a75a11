// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <ostream>
#include <string>
#include <string_view>
#include <vector>

#include "analyze/boot_profile.h"

namespace bootweave {

/// What the program says on standard error: whole lines that begin with its name.
class Diagnostics {
  public:
    explicit Diagnostics(std::ostream& err) : err_(err) {}

    /// One line, whatever names the text holds.
    void Say(std::string_view text);
    /// A line for each of the first ten; one more says how many were left out.
    void Warn(const std::vector<std::string>& warnings);
    /// The same for those of the log at `path`, with their lines.
    void WarnOfLog(const std::string& path, const BootProfile& profile);

  private:
    std::ostream& err_;
};

}  // namespace bootweave
