// SPDX-License-Identifier: Apache-2.0
#include "plugins/message_channel.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdint>
#include <cstring>

#include <poll.h>
#include <sys/socket.h>

#include "util/retry.h"

namespace bootweave {
namespace {

using Status = ReceivedMessage::Status;

/// Sleeps until the socket is ready for `events`. \return false when the deadline has passed
bool AwaitReady(const UniqueFd& socket, short events, const Deadline& deadline) {
    pollfd wanted{.fd = socket.get(), .events = events, .revents = 0};
    const auto remaining = [&deadline] {
        if (!deadline.has_value()) {
            return -1;
        }
        const auto left =
            std::chrono::ceil<std::chrono::milliseconds>(*deadline - std::chrono::steady_clock::now());
        return static_cast<int>(std::clamp<std::int64_t>(left.count(), 0, INT_MAX));
    };
    return RetryOnEintr([&] { return ::poll(&wanted, 1, remaining()); }) != 0;
}

/// Fills `size` bytes at `buffer`.
Status Fill(const UniqueFd& socket, char* buffer, std::size_t size, const Deadline& deadline) {
    while (size > 0) {
        const ssize_t count = RetryOnEintr([&] { return ::recv(socket.get(), buffer, size, MSG_DONTWAIT); });
        if (count > 0) {
            buffer += count;
            size -= static_cast<std::size_t>(count);
        } else if (count == 0 || errno != EAGAIN) {
            return Status::kClosed;
        } else if (!AwaitReady(socket, POLLIN, deadline)) {
            return Status::kTimedOut;
        }
    }
    return Status::kWhole;
}

}  // namespace

bool SendMessage(const UniqueFd& socket, std::string_view message, Deadline deadline) {
    const auto length = static_cast<std::uint32_t>(message.size());
    std::string bytes(sizeof length, '\0');
    std::memcpy(bytes.data(), &length, sizeof length);
    bytes += message;
    std::string_view left(bytes);
    while (!left.empty()) {
        const ssize_t count = RetryOnEintr(
            [&] { return ::send(socket.get(), left.data(), left.size(), MSG_DONTWAIT | MSG_NOSIGNAL); });
        if (count >= 0) {
            left.remove_prefix(static_cast<std::size_t>(count));
        } else if (errno != EAGAIN || !AwaitReady(socket, POLLOUT, deadline)) {
            return false;
        }
    }
    return true;
}

ReceivedMessage ReceiveMessage(const UniqueFd& socket, std::size_t most, Deadline deadline) {
    std::uint32_t length = 0;
    char raw[sizeof length];
    Status status = Fill(socket, raw, sizeof raw, deadline);
    if (status != Status::kWhole) {
        return {status, {}};
    }
    std::memcpy(&length, raw, sizeof length);
    if (length > most) {
        return {Status::kTooLong, {}};
    }
    std::string bytes(length, '\0');
    status = Fill(socket, bytes.data(), bytes.size(), deadline);
    return {status, status == Status::kWhole ? std::move(bytes) : std::string()};
}

}  // namespace bootweave
