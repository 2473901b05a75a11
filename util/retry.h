// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cerrno>

/// \file
/// The one place that deals with system calls which a signal interrupted.

namespace bootweave {

/// Calls `call` until it does something else than fail with EINTR; returns what it returned, errno as it left
/// it.
template <typename Call>
auto RetryOnEintr(Call call) {
    auto result = call();
    while (result == -1 && errno == EINTR) {
        result = call();
    }
    return result;
}

}  // namespace bootweave
