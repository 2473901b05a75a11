// SPDX-License-Identifier: Apache-2.0
#pragma once

namespace bootweave {

/// The whole help, lines with their ends.
extern const char* const kHelpText;

}  // namespace bootweave
