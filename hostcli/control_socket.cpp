// SPDX-License-Identifier: Apache-2.0
#include "hostcli/control_socket.h"

#include <algorithm>
#include <cstring>

#include <poll.h>
#include <strings.h>

#include "util/retry.h"

namespace bootweave {

sockaddr_un ControlSocketAddress() {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::strncpy(address.sun_path, kControlSocketPath, sizeof address.sun_path - 1);
    return address;
}

UniqueFd CreateControlSocket() {
    return UniqueFd(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
}

bool SendAll(const UniqueFd& socket, const void* data, std::size_t size) {
    const char* next = static_cast<const char*>(data);
    // One call takes it all, but for a command longer than the socket's buffer.
    do {
        const ssize_t sent = RetryOnEintr([&] { return ::send(socket.get(), next, size, MSG_NOSIGNAL); });
        if (sent < 0) {
            return false;
        }
        next += sent;
        size -= static_cast<std::size_t>(sent);
    } while (size > 0);
    return true;
}

ssize_t ReceiveOnce(const UniqueFd& socket, void* data, std::size_t size) {
    return RetryOnEintr([&] { return ::recv(socket.get(), data, size, 0); });
}

bool PauseWhenExhausted(int error) {
    constexpr int kPause = 100;  // milliseconds
    if (error != EMFILE && error != ENFILE && error != ENOBUFS && error != ENOMEM) {
        return false;
    }
    const int saved = errno;
    ::poll(nullptr, 0, kPause);
    errno = saved;
    return true;
}

std::string ReceivedRequest(const std::string& request) {
    return request.substr(0, std::min(request.find('\0'), kLargestRequest));
}

bool IsStopRequest(const std::string& request) {
    return ::strncasecmp(request.c_str(), kStopRequest, std::strlen(kStopRequest)) == 0;
}

}  // namespace bootweave
