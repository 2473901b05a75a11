// SPDX-License-Identifier: Apache-2.0
#include "platform/linux/service_manager.h"

#include <algorithm>
#include <cstddef>
#include <string_view>

#include <sys/socket.h>
#include <sys/un.h>

#include "util/retry.h"
#include "util/unique_fd.h"

namespace bootweave {

void SendServiceStatus(const char* address, const std::string& text) {
    const std::string_view name = address != nullptr ? address : "";
    sockaddr_un to{};
    if (name.size() < 2 || name.size() >= sizeof to.sun_path || (name[0] != '/' && name[0] != '@')) {
        return;
    }
    to.sun_family = AF_UNIX;
    std::copy(name.begin(), name.end(), to.sun_path);
    if (name[0] == '@') {
        to.sun_path[0] = '\0';  // an abstract name begins with NUL and is as long as the address says
    }
    const auto length = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + name.size());
    const UniqueFd socket(::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    const std::string message = "STATUS=" + text;
    static_cast<void>(RetryOnEintr([&] {
        return ::sendto(socket.get(), message.data(), message.size(), MSG_DONTWAIT | MSG_NOSIGNAL,
                        reinterpret_cast<const sockaddr*>(&to), length);
    }));
}

}  // namespace bootweave
