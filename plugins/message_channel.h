// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <chrono>
#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

#include "util/unique_fd.h"

/// \file
/// Messages over a stream socket between two processes of one machine: four bytes with the length, in the
/// machine's order, and as many bytes. All calls sleep in the kernel and end at their deadline.

namespace bootweave {

/// When to give up, by the steady clock; nothing is never.
using Deadline = std::optional<std::chrono::steady_clock::time_point>;

/// What came.
struct ReceivedMessage {
    enum class Status {
        kWhole,     ///< `bytes` is a message
        kClosed,    ///< the other side is gone, or the socket is broken
        kTimedOut,  ///< the deadline passed before the message was whole
        kTooLong,   ///< the other side announced more than is allowed
    };
    Status status;
    std::string bytes;
};

/// Sends one message. \return false when the other side is gone or the deadline passed
[[nodiscard]] bool SendMessage(const UniqueFd& socket, std::string_view message, Deadline deadline = {});

/// Receives one message of at most `most` bytes.
[[nodiscard]] ReceivedMessage ReceiveMessage(const UniqueFd& socket, std::size_t most,
                                             Deadline deadline = {});

}  // namespace bootweave
