// SPDX-License-Identifier: Apache-2.0
#include "platform/linux/notify_receiver.h"

#include <cstddef>

#include <sys/socket.h>
#include <sys/un.h>

#include "gtest/gtest.h"

namespace bootweave {

NotifyReceiver::NotifyReceiver(const std::string& address) : address_(address) {
    sockaddr_un own{};
    own.sun_family = AF_UNIX;
    address.copy(own.sun_path, sizeof own.sun_path - 1);
    if (address[0] == '@') {
        own.sun_path[0] = '\0';
    }
    const auto length = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + address.size());
    socket_.Reset(::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    EXPECT_EQ(0, ::bind(socket_.get(), reinterpret_cast<const sockaddr*>(&own), length));
}

std::vector<std::string> NotifyReceiver::Received() {
    std::vector<std::string> messages;
    std::string buffer(65536, '\0');
    ssize_t size = 0;
    while ((size = ::recv(socket_.get(), buffer.data(), buffer.size(), MSG_DONTWAIT)) >= 0) {
        messages.push_back(buffer.substr(0, static_cast<std::size_t>(size)));
    }
    return messages;
}

}  // namespace bootweave
