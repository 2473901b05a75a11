// SPDX-License-Identifier: Apache-2.0
#include "hostcli/executor_server.h"

#include <array>
#include <cerrno>
#include <exception>
#include <optional>
#include <string>

#include <fcntl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include "hostcli/command_runner.h"
#include "hostcli/control_socket.h"
#include "hostcli/dispatcher.h"
#include "platform/log.h"
#include "platform/poll.h"
#include "util/error_text.h"
#include "util/exception.h"
#include "util/retry.h"
#include "util/standard_streams.h"
#include "util/thread.h"

namespace bootweave {
namespace {

constexpr const char* kOutputLog = "/var/log/bootweave-hostcli-stdout.log";
constexpr int kFailedStart = 255;

// The host's poll loop knows these by number only.
constexpr int kPollClass = 1;
constexpr int kPollReadPeriodic = 0x15;
constexpr int kPollDescriptor = 2;

/// A client that connects and then says nothing may hold up the others for so long, not for ever.
constexpr timeval kRequestTimeout{.tv_sec = 10, .tv_usec = 0};

/// What the event loop works on. One per executor process.
struct Service {
    UniqueFd listener;
    UniqueFd spare;  ///< gives its number to a connection that there is none left for
    bool stop = false;
};

/// Opens the socket to nobody but this user from the first instant: the umask makes its mode, no chmod after
/// it.
UniqueFd OpenControlSocket() {
    UniqueFd socket = CreateControlSocket();
    if (!socket.valid()) {
        throw Exception("Error opening control socket for executor: " + LastErrorText());
    }
    const sockaddr_un address = ControlSocketAddress();
    const mode_t umask_before = ::umask(0177);
    const int bound = ::bind(socket.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address);
    const int error = errno;
    ::umask(umask_before);
    if (bound != 0) {
        throw Exception("Failed to bind to executor control socket: " + ErrorText(error));
    }
    if (::listen(socket.get(), kListenBacklog) != 0) {
        throw Exception("Failed to listen on executor control socket: " + LastErrorText());
    }
    return socket;
}

/// Whether the peer is the user that runs the executor.
bool IsTrusted(const UniqueFd& connection) {
    ucred peer{};
    socklen_t size = sizeof peer;
    const int told = RepeatWhenExhausted(
        [&] { return ::getsockopt(connection.get(), SOL_SOCKET, SO_PEERCRED, &peer, &size); });
    if (told != 0) {
        Log_Level(3, "refusing a connection on the control socket: %s\n", LastErrorText().c_str());
        return false;
    }
    if (peer.uid != ::geteuid()) {
        Log_Level(3, "refusing a connection on the control socket from user %u (process %d)\n", peer.uid,
                  peer.pid);
        return false;
    }
    return true;
}

CommandStatus RunRequest(const std::string& command) {
    try {
        RunCommandLine(command, HostcliDispatcher::Instance);
        return kCommandSucceeded;
    } catch (const std::exception& error) {
        Log_Level(2, "%s\n", error.what());
    } catch (...) {
        Log_Level(2, "unknown exception whilst executing '%s'\n", command.c_str());
    }
    return kCommandFailed;
}

void HandleConnection(void* client_data);

/// The listener is shut down before the caller closes the connection, so that a client that sees the end of
/// its stream can be sure that a new connection never reaches this executor.
void StopService(Service& service) {
    Log_Level(5, "Bootweave executor signalled to stop\n");
    service.stop = true;
    Poll_NotifyChange(kPollClass);
    Poll_CallbackRemove(kPollClass, kPollReadPeriodic, HandleConnection, &service, kPollDescriptor);
    ::shutdown(service.listener.get(), SHUT_RDWR);
}

UniqueFd OpenSpare() {
    return UniqueFd(RetryOnEintr([] { return ::open("/dev/null", O_RDONLY | O_CLOEXEC); }));
}

UniqueFd Accept(const Service& service) {
    return UniqueFd(
        RetryOnEintr([&] { return ::accept4(service.listener.get(), nullptr, nullptr, SOCK_CLOEXEC); }));
}

/// What a trusted peer asks for, up to the first NUL; nothing for another one, and for one that cannot be
/// heard. A stop that went unheard would leave this process behind: to its client, the end of the stream is
/// success.
std::optional<std::string> ReceiveRequest(const UniqueFd& connection) {
    if (!IsTrusted(connection)) {
        return std::nullopt;
    }
    ::setsockopt(connection.get(), SOL_SOCKET, SO_RCVTIMEO, &kRequestTimeout, sizeof kRequestTimeout);
    std::array<char, kLargestRequest + 1> buffer{};
    if (RepeatWhenExhausted([&] { return ReceiveOnce(connection, buffer.data(), kLargestRequest); }) < 0) {
        Log_Level(3, "Failed to read message from socket - %s\n\n", LastErrorText().c_str());
        return std::nullopt;
    }
    return ReceivedRequest(buffer.data());
}

/// Closes a connection that there was no descriptor left for, so that its client fails instead of waiting for
/// ever. A stop needs no more descriptors and is heeded; a command would.
void TurnAway(Service& service) {
    service.spare.Reset();
    const UniqueFd connection = Accept(service);
    if (!connection.valid()) {
        PauseWhenExhausted(errno);  // as below
        return;
    }
    const std::optional<std::string> request = ReceiveRequest(connection);
    if (request.has_value() && IsStopRequest(*request)) {
        StopService(service);
    }
}

void ServeConnection(Service& service) {
    const UniqueFd connection = Accept(service);
    if (!connection.valid()) {
        const int error = errno;
        // Text and doubled newline are what log scanners match.
        Log_Level(3, "Error accepting connection on contol socket - %s\n\n", ErrorText(error).c_str());
        if (error == EMFILE || error == ENFILE) {
            TurnAway(service);
        } else {
            // The connection stays there, and the loop comes back at once: it would fill the log meanwhile.
            PauseWhenExhausted(error);
        }
        return;
    }
    const std::optional<std::string> request = ReceiveRequest(connection);
    if (!request.has_value()) {
        return;
    }
    if (IsStopRequest(*request)) {
        StopService(service);
        return;
    }
    const CommandStatus status = RunRequest(*request);
    if (!SendAll(connection, &status, sizeof status)) {
        Log_Level(3, "Sending command status to bootweave failed\n");
    }
}

void HandleConnection(void* client_data) {
    Service& service = *static_cast<Service*>(client_data);
    ServeConnection(service);
    if (!service.spare.valid()) {
        service.spare = OpenSpare();
    }
}

/// The event-loop thread.
void Serve(Service& service) {
    Poll_InitDefault();
    if (!Poll_Callback(kPollClass, kPollReadPeriodic, HandleConnection, &service, kPollDescriptor,
                       service.listener.get(), nullptr)) {
        Log_Level(2, "Failed setting up Poll Loop for executor\n");
        return;
    }
    Poll_Loop(kPollClass, &service.stop, 0);
}

Thread StartEventLoop(Service& service) {
    try {
        return Thread([&service] { Serve(service); });
    } catch (const std::exception&) {
        throw Exception("Failed creating Executor Event Loop thread");
    }
}

void StartAndServe() {
    // This process never execs, so close-on-exec does not help: a pipe's end kept here would keep others
    // waiting.
    CloseDescriptorsFrom(STDERR_FILENO + 1);
    RedirectStandardStreams(kOutputLog);
    Service service;
    service.listener = OpenControlSocket();
    service.spare = OpenSpare();
    if (::daemon(0, 1) != 0) {
        throw Exception("Failed to daemonize");
    }
    Thread event_loop = StartEventLoop(service);
    Log_Level(5, "Executor Reset - polling for commands\n");
    event_loop.Join();
}

}  // namespace

int RunExecutorProcess() {
    try {
        StartAndServe();
        ::_exit(0);
    } catch (const std::exception& error) {
        Log_Level(2, "Unable to start executor: %s\n", error.what());
    } catch (...) {
        Log_Level(2, "Unable to start executor\n");
    }
    ::_exit(kFailedStart);
}

}  // namespace bootweave
