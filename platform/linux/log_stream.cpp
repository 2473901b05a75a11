// SPDX-License-Identifier: Apache-2.0
#include "platform/linux/log_stream.h"

#include <cerrno>
#include <csignal>
#include <cstdint>

#include <poll.h>
#include <unistd.h>

#include "platform/linux/patience.h"
#include "util/retry.h"
#include "util/signals.h"

namespace bootweave {
namespace {

constinit Patience::Budget g_patience;

bool WaitUntilWritable(int stream, Patience& patience) {
    pollfd watched{.fd = stream, .events = POLLOUT, .revents = 0};
    const int ready = RetryOnEintr([&] {
        const std::int64_t left = patience.Left().count();
        const timespec limit{.tv_sec = left / 1'000'000, .tv_nsec = left % 1'000'000 * 1'000};
        return left > 0 ? ::ppoll(&watched, 1, &limit, nullptr) : 0;
    });
    return ready > 0;
}

}  // namespace

void WriteLine(int stream, std::string_view line, pid_t pid) {
    Patience patience(g_patience, pid);
    while (!line.empty()) {
        const ssize_t written = RetryOnEintr([&] { return ::write(stream, line.data(), line.size()); });
        if (written > 0) {
            line.remove_prefix(static_cast<std::size_t>(written));
        } else if (written == 0 || errno != EAGAIN || !WaitUntilWritable(stream, patience)) {
            return;
        }
    }
}

void IgnoreWriteSignals() {
    for (const int number : {SIGPIPE, SIGXFSZ}) {
        struct sigaction action {};
        if (::sigaction(number, nullptr, &action) == 0 && action.sa_handler == SIG_DFL) {
            action = {};
            action.sa_handler = SIG_IGN;
            ChangeSignal(number, action);
        }
    }
}

void ResetStreamsForTest() {
    g_patience.Reset();
}

}  // namespace bootweave
