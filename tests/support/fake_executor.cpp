// SPDX-License-Identifier: Apache-2.0
#include "tests/support/fake_executor.h"

#include <array>
#include <cstdlib>
#include <cstring>
#include <utility>

#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include "util/retry.h"

namespace bootweave {
namespace {

constexpr int kPatience =
    30'000;  // milliseconds; a sender that is still silent then never shuts its side down

std::string ReadToEnd(const UniqueFd& connection) {
    std::string request;
    std::array<char, 4096> buffer;
    for (;;) {
        pollfd readable{connection.get(), POLLIN, 0};
        if (RetryOnEintr([&] { return ::poll(&readable, 1, kPatience); }) <= 0) {
            return request + "<no end>";
        }
        const ssize_t count =
            RetryOnEintr([&] { return ::read(connection.get(), buffer.data(), buffer.size()); });
        if (count <= 0) {
            return request;
        }
        request.append(buffer.data(), static_cast<std::size_t>(count));
    }
}

}  // namespace

FakeExecutor::FakeExecutor(const std::string& path, Answer answer)
    : answer_(std::move(answer)), listener_(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::strncpy(address.sun_path, path.c_str(), sizeof address.sun_path - 1);
    if (::bind(listener_.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0 ||
        ::listen(listener_.get(), 16) != 0) {
        std::abort();
    }
    thread_ = std::thread([this] { Serve(); });
}

FakeExecutor::~FakeExecutor() {
    static_cast<void>(Finish());
}

std::vector<std::string> FakeExecutor::Finish() {
    ::shutdown(listener_.get(), SHUT_RDWR);  // connections that wait are accepted all the same
    if (thread_.joinable()) {
        thread_.join();
    }
    return Requests();
}

std::vector<std::string> FakeExecutor::Requests() const {
    const std::lock_guard lock(mutex_);
    return requests_;
}

std::string FakeExecutor::Status(std::int32_t status) {
    std::string bytes(sizeof status, '\0');
    std::memcpy(bytes.data(), &status, sizeof status);
    return bytes;
}

void FakeExecutor::Serve() {
    for (;;) {
        const UniqueFd connection(RetryOnEintr([&] { return ::accept(listener_.get(), nullptr, nullptr); }));
        if (!connection.valid()) {
            return;
        }
        const std::string request = ReadToEnd(connection);
        {
            const std::lock_guard lock(mutex_);
            requests_.push_back(request);
        }
        const std::string answer = answer_(request);
        static_cast<void>(::sendto(connection.get(), answer.data(), answer.size(), MSG_NOSIGNAL, nullptr, 0));
    }
}

}  // namespace bootweave
