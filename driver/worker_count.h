// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <cstdint>

namespace bootweave {

/// How many workers a parallel run of so many plugins has on this host: two for each processor, but no more
/// than there are plugins.
[[nodiscard]] std::uint32_t ParallelWorkers(std::size_t plugins);

}  // namespace bootweave
