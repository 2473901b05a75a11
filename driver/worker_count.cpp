// SPDX-License-Identifier: Apache-2.0
#include "driver/worker_count.h"

#include <algorithm>

#include "platform/processors.h"

namespace bootweave {

std::uint32_t ParallelWorkers(std::size_t plugins) {
    const std::size_t most = std::size_t{2} * Host_ProcessorCount();
    return static_cast<std::uint32_t>(std::min(most, plugins));
}

}  // namespace bootweave
