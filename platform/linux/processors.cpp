// SPDX-License-Identifier: Apache-2.0
#include "platform/processors.h"

#include <unistd.h>

std::uint32_t Host_ProcessorCount() {
    const long online = ::sysconf(_SC_NPROCESSORS_ONLN);
    return online < 1 ? 1 : static_cast<std::uint32_t>(online);
}
