// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <ostream>

#include "analyze/boot_picture.h"
#include "analyze/chosen_run.h"
#include "analyze/run_graph.h"

namespace bootweave {

/// Writes a run as a picture in SVG: a bar for each plugin that ran, the critical chain marked and once more
/// below, a tick for each barrier, a tooltip for each of these. Colours follow the reader's light or dark
/// scheme.
void WritePlotSvg(std::ostream& out, const ChosenRun& run, const RunGraph& graph, const BootPicture& picture);

}  // namespace bootweave
