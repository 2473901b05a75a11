// SPDX-License-Identifier: Apache-2.0
#include "analyze/diagnostics.h"

#include <algorithm>
#include <cstddef>

#include "util/harmless_text.h"
#include "util/line_buffer.h"

namespace bootweave {
namespace {

constexpr std::size_t kMostWarnings = 10;

std::string LeftOut(std::size_t warnings) {
    return "warnings left out: " + std::to_string(warnings - kMostWarnings);
}

}  // namespace

void Diagnostics::Say(std::string_view text) {
    LineBuffer line;
    AppendHarmless(line, text);
    err_ << "bootweave-analyze: " << line.view() << "\n";
}

void Diagnostics::Warn(const std::vector<std::string>& warnings) {
    for (std::size_t index = 0; index < std::min(warnings.size(), kMostWarnings); ++index) {
        Say(warnings[index]);
    }
    if (warnings.size() > kMostWarnings) {
        Say(LeftOut(warnings.size()));
    }
}

void Diagnostics::WarnOfLog(const std::string& path, const BootProfile& profile) {
    const std::vector<ProfileWarning>& warnings = profile.warnings;
    for (std::size_t index = 0; index < std::min(warnings.size(), kMostWarnings); ++index) {
        Say(path + ":" + std::to_string(warnings[index].line) + ": " + warnings[index].text);
    }
    if (warnings.size() > kMostWarnings) {
        Say(path + ": " + LeftOut(warnings.size() + profile.more_warnings));
    }
}

}  // namespace bootweave
