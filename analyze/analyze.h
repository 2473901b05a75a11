// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <ostream>

#include "analyze/report_text.h"

/// \file
/// bootweave-analyze: says where the time of a boot went, and what is wrong with plugins. Runs no plugin;
/// writes no file but the picture that it is asked for.

namespace bootweave {

/// The whole program: parses the command line, reads the profile, writes one report.
///
/// \param out  for the report or the help
/// \param err  for warnings about the profile and for the error, one line each
/// \return 0; 1 when the report could not be made or written; 2 for a command line that makes no sense
[[nodiscard]] int RunAnalyze(int argc, char** argv, std::ostream& out, std::ostream& err,
                             const TextStyle& style);

}  // namespace bootweave
