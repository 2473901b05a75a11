// SPDX-License-Identifier: Apache-2.0
#pragma once

namespace bootweave {

/// The whole help of bootweave-analyze, lines with their ends.
extern const char* const kAnalyzeHelpText;

}  // namespace bootweave
