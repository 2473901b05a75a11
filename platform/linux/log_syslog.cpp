// SPDX-License-Identifier: Apache-2.0
#include "platform/linux/log_syslog.h"

#include <atomic>
#include <cerrno>
#include <cstring>
#include <ctime>

#include <fcntl.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <syslog.h>
#include <unistd.h>

#include "platform/linux/log_internal.h"
#include "platform/linux/log_text.h"
#include "platform/linux/patience.h"
#include "platform/linux/per_process.h"
#include "util/harmless_text.h"
#include "util/retry.h"
#include "util/unique_fd.h"

namespace bootweave {

constinit LogPaths g_log_paths;

namespace {

constexpr std::int32_t kNoSocket = -1;
/// What is left of a message that is too large for a datagram; far more than the daemons keep of one.
constexpr std::size_t kMaxCutMessage = 8192;
constexpr std::string_view kCutMark = "...";

constinit PerProcess g_socket(kNoSocket);  // no static with a guard: a fork could leave it held
constinit PerProcess g_dropped(0);
constinit Patience::Budget g_patience;
constinit std::atomic<int> g_utc_offset{0};  // seconds

struct Address {
    Address() {
        unix_address.sun_family = AF_UNIX;
        std::strncpy(unix_address.sun_path, g_log_paths.syslog_socket, sizeof unix_address.sun_path - 1);
    }
    [[nodiscard]] const sockaddr* get() const { return reinterpret_cast<const sockaddr*>(&unix_address); }

    static constexpr socklen_t kSize = sizeof(sockaddr_un);
    sockaddr_un unix_address{};
};

UniqueFd MakeSocket(int type) {
    UniqueFd made(::socket(AF_UNIX, type | SOCK_CLOEXEC, 0));
    if (made.valid() && made.get() <= STDERR_FILENO) {
        // In a child that has closed everything: the standard numbers stay free for what belongs there.
        return UniqueFd(::fcntl(made.get(), F_DUPFD_CLOEXEC, STDERR_FILENO + 1));
    }
    return made;
}

/// The process's own socket, made when there is none; -1, with errno set, when it cannot be made.
int ProcessSocket(pid_t pid) {
    const int existing = g_socket.Get(pid);
    if (existing != kNoSocket) {
        return existing;
    }
    UniqueFd made = MakeSocket(SOCK_DGRAM);
    if (!made.valid()) {
        return kNoSocket;
    }
    const auto keep_first = [&](std::int32_t other) { return other == kNoSocket ? made.get() : other; };
    const int other = g_socket.Update(pid, keep_first);
    return other == kNoSocket ? made.Release() : other;
}

/// Whether an error says that the number is no longer that of our socket: the process closed it together with
/// everything else, and it may be somebody else's by now. Naming the address in every send makes any other
/// kind of socket refuse, so nothing is ever written into the wrong place.
bool MeansNotOurSocket(int error) {
    return error == EBADF || error == ENOTSOCK || error == EISCONN || error == ENOTCONN ||
           error == EOPNOTSUPP || error == EINVAL || error == EAFNOSUPPORT || error == EDESTADDRREQ;
}

bool MeansSlow(int error) {
    return error == EAGAIN || error == ENOBUFS;
}

int SendTo(int socket, std::string_view line, int flags) {
    const Address address;
    return static_cast<int>(
        ::sendto(socket, line.data(), line.size(), flags | MSG_NOSIGNAL, address.get(), Address::kSize));
}

/// Sends a datagram if that is possible without waiting. \return 0 or an error number
int SendAtOnce(pid_t pid, std::string_view line) {
    const auto send = [line](int socket) {
        return RetryOnEintr([&] { return SendTo(socket, line, MSG_DONTWAIT); }) < 0 ? errno : 0;
    };
    const int socket = ProcessSocket(pid);
    const int error = socket == kNoSocket ? errno : send(socket);
    if (socket == kNoSocket || !MeansNotOurSocket(error)) {
        return error;
    }
    // The number is forgotten, not closed, for the same reason.
    g_socket.Update(pid, [socket](std::int32_t now) { return now == socket ? kNoSocket : now; });
    const int fresh = ProcessSocket(pid);
    return fresh == kNoSocket ? errno : send(fresh);
}

/// Makes a call of a blocking socket wait while patience lasts; fails with EAGAIN when it is at its end. A
/// signal does not start the time anew, which is why the limit is set before each try.
template <typename Call>
int CallPatiently(int socket, Patience& patience, Call call) {
    return RetryOnEintr([&] {
        const std::int64_t left = patience.Left().count();
        const timeval limit{.tv_sec = left / 1'000'000, .tv_usec = left % 1'000'000};
        if (left <= 0 || ::setsockopt(socket, SOL_SOCKET, SO_SNDTIMEO, &limit, sizeof limit) != 0) {
            errno = EAGAIN;  // a limit of zero would be none
            return -1;
        }
        return static_cast<int>(call());
    });
}

/// Sends a datagram, waiting for a daemon that reads slowly. \return 0 or an error number
int SendPatiently(std::string_view line, Patience& patience) {
    if (patience.Left().count() <= 0) {
        return EAGAIN;
    }
    // A socket for this message alone: the time limit is the socket's, and other threads have theirs.
    const UniqueFd socket = MakeSocket(SOCK_DGRAM);
    if (!socket.valid()) {
        return errno;
    }
    const int sent = CallPatiently(socket.get(), patience, [&] { return SendTo(socket.get(), line, 0); });
    return sent < 0 ? errno : 0;
}

/// Makes a call of a non-blocking stream socket, and makes it again, waiting, when it says that it would have
/// to.
template <typename Call>
int CallStream(int socket, Patience& patience, Call call) {
    int result = RetryOnEintr([&] { return static_cast<int>(call()); });
    if (result == -1 && errno == EAGAIN) {
        ::fcntl(socket, F_SETFL, 0);
        result = CallPatiently(socket, patience, call);
        const int error = errno;
        ::fcntl(socket, F_SETFL, O_NONBLOCK);
        errno = error;
    }
    return result;
}

/// Sends a message to a daemon that listens on a stream socket, through a connection for this message alone
/// and ended by a null byte, as libc does it. \return 0 or an error number
int SendOverStream(LineBuffer& line, Patience& patience) {
    const UniqueFd stream = MakeSocket(SOCK_STREAM | SOCK_NONBLOCK);
    if (!stream.valid()) {
        return errno;
    }
    const Address address;
    const auto connect = [&] { return ::connect(stream.get(), address.get(), Address::kSize); };
    if (CallStream(stream.get(), patience, connect) != 0) {
        return errno;
    }
    line.End('\0');
    std::string_view rest = line.view();
    while (!rest.empty()) {
        const auto send = [&] { return ::send(stream.get(), rest.data(), rest.size(), MSG_NOSIGNAL); };
        const int sent = CallStream(stream.get(), patience, send);
        if (sent < 0) {
            return errno;
        }
        rest.remove_prefix(static_cast<std::size_t>(sent));
    }
    return 0;
}

int Deliver(pid_t pid, LineBuffer& line, Patience& patience) {
    int error = SendAtOnce(pid, line.view());
    if (error == EMSGSIZE) {
        line.Truncate(CutLength(line.view(), kMaxCutMessage - kCutMark.size()));
        line.Append(kCutMark);
        error = SendAtOnce(pid, line.view());
    }
    if (error == EPROTOTYPE) {
        return SendOverStream(line, patience);
    }
    return MeansSlow(error) ? SendPatiently(line.view(), patience) : error;
}

int SendMessage(const SyslogMessage& message, Patience& patience) {
    LineBuffer line;
    line.Append("<");
    line.AppendNumber(static_cast<unsigned>(LOG_DAEMON | message.severity));
    line.Append(">");
    AppendSyslogStamp(line, message.time, std::chrono::seconds(g_utc_offset.load(std::memory_order_relaxed)));
    line.Append(" ");
    line.Append(message.identifier);
    line.Append("[");
    line.AppendNumber(static_cast<unsigned>(message.pid));
    line.Append("]: ");
    const std::string_view body = WithoutTrailingNewlines(message.text);
    AppendHarmless(line, body);
    line.Append(message.text.substr(body.size()));
    return Deliver(message.pid, line, patience);
}

int SendDroppedNotice(const SyslogMessage& message, std::int32_t dropped, Patience& patience) {
    LineBuffer text;
    text.AppendFormatted(kDroppedFormat, dropped);
    SyslogMessage notice = message;
    notice.severity = LOG_WARNING;
    notice.text = text.view();
    return SendMessage(notice, patience);
}

void AddDropped(pid_t pid, std::int32_t count) {
    g_dropped.Update(pid, [count](std::int32_t before) { return before + count; });
}

}  // namespace

std::int32_t SendToSyslog(const SyslogMessage& message) {
    Patience patience(g_patience, message.pid);
    std::int32_t dropped = 0;
    if (g_dropped.Get(message.pid) > 0) {
        dropped = g_dropped.Update(message.pid, [](std::int32_t) { return 0; });
    }
    if (dropped > 0) {
        const int error = SendDroppedNotice(message, dropped, patience);
        if (error != 0) {
            AddDropped(message.pid, dropped + (MeansSlow(error) ? 1 : 0));
            return 0;
        }
    }
    if (MeansSlow(SendMessage(message, patience))) {
        AddDropped(message.pid, 1);
    }
    return dropped;
}

void SetSyslogTimeZone() {
    ::tzset();  // localtime_r alone may keep to an earlier zone
    const std::time_t now = std::time(nullptr);
    std::tm local{};
    if (::localtime_r(&now, &local) != nullptr) {
        g_utc_offset.store(static_cast<int>(local.tm_gmtoff), std::memory_order_relaxed);
    }
}

void ResetSyslogForTest() {
    const UniqueFd socket(g_socket.Get(::getpid()));
    g_socket.Reset();
    g_dropped.Reset();
    g_patience.Reset();
    g_utc_offset.store(0);
}

}  // namespace bootweave
