// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <string>

#include <sys/socket.h>
#include <sys/un.h>

#include "util/unique_fd.h"

/// \file
/// The control socket between the driver and the command executor: a stream socket in the Unix domain. Each
/// request has a connection of its own.
///
///   bytes      from    meaning
///   0..1023    client  the command's text; no length, no end mark; then it shuts down its sending side
///   4          server  the status, a signed integer in host byte order: 0 success, 1 any failure
///
/// A request whose first four bytes are "stop", in any case, stops the executor and gets no reply: the server
/// closes the connection. What exceeds 1023 bytes is lost.

namespace bootweave {

inline constexpr const char* kControlSocketPath = "/var/run/corvane/bootweaveExecutor.sock";
inline constexpr std::size_t kLargestRequest = 1023;
inline constexpr int kListenBacklog = 16;
inline constexpr const char* kStopRequest = "stop";

/// What the executor answers.
using CommandStatus = std::int32_t;
inline constexpr CommandStatus kCommandSucceeded = 0;
inline constexpr CommandStatus kCommandFailed = 1;

/// The address of the control socket.
[[nodiscard]] sockaddr_un ControlSocketAddress();

/// An unconnected stream socket; invalid, with errno set, when there is none to be had.
[[nodiscard]] UniqueFd CreateControlSocket();

/// Sends all of `size` bytes. \return false, with errno set, on failure
[[nodiscard]] bool SendAll(const UniqueFd& socket, const void* data, std::size_t size);

/// Receives once. \return the number of bytes, 0 at the end of the stream, -1 with errno set on failure
[[nodiscard]] ssize_t ReceiveOnce(const UniqueFd& socket, void* data, std::size_t size);

/// Sleeps for a moment after a call that failed with `error`, when that is a want of descriptors or memory:
/// somebody may give some back.
///
/// \return whether it slept; keeps errno
bool PauseWhenExhausted(int error);

/// Makes a call until it does not fail, which is to return a negative number, for want of descriptors or
/// memory; up to ten times more, a tenth of a second apart.
///
/// \return what the call returned, errno as it left it
template <typename Call>
auto RepeatWhenExhausted(Call call) {
    auto result = call();
    for (int left = 10; result < 0 && left > 0 && PauseWhenExhausted(errno); --left) {
        result = call();
    }
    return result;
}

/// What the executor makes of a request: what is in front of its first NUL, as far as it fits.
[[nodiscard]] std::string ReceivedRequest(const std::string& request);

/// Whether a request asks the executor to stop.
[[nodiscard]] bool IsStopRequest(const std::string& request);

}  // namespace bootweave
