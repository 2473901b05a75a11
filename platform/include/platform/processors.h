// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>

/// The number of processors that are online; 1 when the host does not say.
std::uint32_t Host_ProcessorCount();
