// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <string>

#include "analyze/boot_profile.h"
#include "analyze/options.h"

namespace bootweave {

/// The run that a report is about.
struct ChosenRun {
    std::string path;    ///< of the log
    std::size_t number;  ///< of the block, from 1
    std::size_t count;   ///< of blocks in the log
    ProfileBlock block;
};

/// Takes the block that was asked for out of the log that was read at `path`.
///
/// \throws Exception  when there is no such block
[[nodiscard]] ChosenRun ChooseRun(BootProfile profile, const std::string& path, const BlockChoice& choice);

}  // namespace bootweave
