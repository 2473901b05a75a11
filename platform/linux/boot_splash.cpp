// SPDX-License-Identifier: Apache-2.0
#include "platform/linux/boot_splash.h"

#include <algorithm>
#include <cstddef>

#include <fcntl.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include "util/child_process.h"
#include "util/retry.h"
#include "util/unique_fd.h"

namespace bootweave {
namespace {

/// A daemon too busy to accept counts as none: its socket is not waited for.
bool Listens(const std::string& name) {
    sockaddr_un address{};
    if (name.size() >= sizeof address.sun_path) {
        return false;
    }
    address.sun_family = AF_UNIX;
    std::copy(name.begin(), name.end(), address.sun_path + 1);
    const auto length = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + 1 + name.size());
    const UniqueFd socket(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    return RetryOnEintr([&] {
               return ::connect(socket.get(), reinterpret_cast<const sockaddr*>(&address), length);
           }) == 0;
}

}  // namespace

void BootSplash::ShowMessage(const std::string& text) const {
    Tell({"display-message", "--text=" + text});
}

void BootSplash::ShowStatus(const std::string& text) const {
    Tell({"update", "--status=" + text});
}

void BootSplash::ShowStep(unsigned unit) const {
    Tell({"update", "--status=bootweave-" + std::to_string(unit)});
}

void BootSplash::Tell(const std::vector<std::string>& arguments) const {
    if (!Listens(socket)) {
        return;
    }
    const UniqueFd null_device(RetryOnEintr([] { return ::open("/dev/null", O_RDWR | O_CLOEXEC); }));
    SpawnOptions options;
    options.descriptors = {{null_device.get(), STDIN_FILENO},
                           {null_device.get(), STDOUT_FILENO},
                           {null_device.get(), STDERR_FILENO}};
    options.directory = "/";
    for (const std::string& client : clients) {
        options.path = client;
        options.argv = {client};
        options.argv.insert(options.argv.end(), arguments.begin(), arguments.end());
        if (ChildProcess::SpawnDetached(options)) {
            return;
        }
    }
}

}  // namespace bootweave
