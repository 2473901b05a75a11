// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <vector>

#include "analyze/boot_profile.h"
#include "analyze/critical_chain.h"
#include "analyze/run_graph.h"

namespace bootweave {

/// A plugin's place in a picture of its run. Times count from the picture's origin.
struct PictureBar {
    std::size_t plugin;  ///< index in the block
    std::size_t lane;    ///< from 0
    Duration at;
    Duration taken;
    bool critical;  ///< part of the critical chain
};

/// When a barrier was done: when the last of its providers ended.
struct PictureTick {
    std::size_t barrier;  ///< index in the graph
    Duration at;
};

/// A run laid out on a time axis.
struct BootPicture {
    Instant origin;                    ///< the run's start, or that of its first plugin when it is earlier
    Duration span;                     ///< from there to the end of all; above zero
    std::size_t lanes = 0;             ///< how many plugins ran at a time, at most
    std::vector<PictureBar> bars{};    ///< those that ran, by lane and then by time
    std::vector<PictureTick> ticks{};  ///< those with a provider that ran, by time
    std::vector<ChainLink> chain{};    ///< what held up the run, first to begin first
};

/// Lays out a run: each plugin in the first lane that is free when it starts.
///
/// \throws Exception  "no plugin ran"
[[nodiscard]] BootPicture LayOut(const ProfileBlock& block, const RunGraph& graph);

}  // namespace bootweave
