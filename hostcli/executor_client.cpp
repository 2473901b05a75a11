// SPDX-License-Identifier: Apache-2.0
#include "hostcli/executor_client.h"

#include <cerrno>
#include <csignal>
#include <cstring>
#include <exception>

#include <sys/socket.h>

#include "hostcli/control_socket.h"
#include "hostcli/executor_server.h"
#include "platform/log.h"
#include "util/child_process.h"
#include "util/error_text.h"
#include "util/exception.h"
#include "util/process_lock.h"
#include "util/retry.h"
#include "util/signals.h"

namespace bootweave {
namespace {

constexpr int kResetsPerCommand = 10;

constinit std::shared_ptr<HostcliExecutor> g_instance GUARDED_BY(g_process_lock);

/// Standard input's number is no connection: something went wrong before the program closed over it.
bool IsConnection(const UniqueFd& fd) {
    return fd.get() >= 1;
}

/// Repeated when a signal interrupts it while the backlog is full: in the Unix domain, nothing has been begun
/// then.
int ConnectSocket(const UniqueFd& fd) {
    const sockaddr_un address = ControlSocketAddress();
    return RetryOnEintr([&] {
        // The platform's struct sockaddr is the one way to hand over an address of a family.
        return ::connect(fd.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address);
    });
}

/// The server reads until it has the request; an empty one it can only tell by the end of the stream.
bool SendRequest(const UniqueFd& connection, const char* request) {
    if (!SendAll(connection, request, std::strlen(request))) {
        return false;
    }
    ::shutdown(connection.get(), SHUT_WR);
    return true;
}

void ResetUnderLock(HostcliExecutor& executor) {
    const ProcessLockGuard lock;
    try {
        executor.Reset();
    } catch (const std::exception& error) {
        Log_Level(2, "Resetting Executor failed, retrying: %s\n", error.what());
    } catch (...) {
        Log_Level(2, "Resetting Executor failed, retrying\n");
    }
}

}  // namespace

HostcliExecutor::HostcliExecutor() {
    struct sigaction ignore {};
    ignore.sa_handler = SIG_IGN;
    if (!ChangeSignal(SIGPIPE, ignore)) {
        Log_Level(3, "Bootweave cannot ignore SIGPIPE\n");
    }
}

std::shared_ptr<HostcliExecutor> HostcliExecutor::Instance() {
    const ProcessLockGuard lock;
    if (g_instance == nullptr) {
        g_instance = std::make_shared<HostcliExecutor>();
    }
    return g_instance;
}

UniqueFd HostcliExecutor::Connect(bool log_errors) {
    UniqueFd connection = CreateControlSocket();
    if (!connection.valid()) {
        const int error = errno;
        Log_Level(2, "Failed creating bootweave client socket %s\n", ErrorText(error).c_str());
        errno = error;
        return {};
    }
    if (ConnectSocket(connection) != 0) {
        const int error = errno;
        if (log_errors) {
            Log_Level(2, "Failed connecting to executor %s\n", ErrorText(error).c_str());
        }
        connection.Reset();
        errno = error;
        return {};
    }
    return connection;
}

void HostcliExecutor::Reset() {
    if (IsConnection(Connect(false))) {
        return;
    }
    Log_Level(5, "Setting up Executor - Reset Requested\n");
    std::optional<ChildProcess> child = ChildProcess::Fork(RunExecutorProcess);
    if (!child.has_value()) {
        throw Exception("Failed to fork" + LastErrorText());
    }
    const std::optional<int> status = child->Wait();
    if (!status.has_value()) {
        throw Exception("Failed collecting executor's exit status");
    }
    if (*status != 0) {
        throw Exception("Bootweave executor failed to start");
    }
}

UniqueFd HostcliExecutor::ConnectOrReset() {
    int error = 0;
    for (int budget = kResetsPerCommand; budget > 0; --budget) {
        UniqueFd connection = Connect(true);
        if (IsConnection(connection)) {
            return connection;
        }
        error = errno;
        ResetUnderLock(*this);
    }
    throw Exception("Could not connect to Executor:" + ErrorText(error));
}

void HostcliExecutor::RunCommand(const std::string& command) {
    const UniqueFd connection = ConnectOrReset();
    if (!SendRequest(connection, command.c_str())) {
        throw Exception("Failed sending command to executor: " + LastErrorText());
    }
    CommandStatus status = kCommandFailed;
    const ssize_t received = ReceiveOnce(connection, &status, sizeof status);
    if (received < 0) {
        throw Exception("Failed to recieve command status from Executor: " + LastErrorText());
    }
    if (received < static_cast<ssize_t>(sizeof status)) {  // part of a status is not one that says success
        throw Exception("Failed to recieve command status from Executor: " + ErrorText(ECONNRESET));
    }
    if (status != kCommandSucceeded) {
        throw Exception("Executor failed executing hostcli command: " + command);
    }
}

/// An executor that is not told to stop for a moment's want of a descriptor would be left behind.
UniqueFd HostcliExecutor::ConnectToStop() {
    UniqueFd connection;
    RepeatWhenExhausted([&] {
        connection = Connect(false);
        return connection.get();
    });
    return connection;
}

void HostcliExecutor::Stop() {
    const UniqueFd connection = ConnectToStop();
    if (!IsConnection(connection)) {
        Log_Level(5, "Executor already gone.\n");
        return;
    }
    if (!SendRequest(connection, kStopRequest)) {
        throw Exception("Failed sending STOP to executor" + LastErrorText());
    }
    CommandStatus ignored = 0;
    if (ReceiveOnce(connection, &ignored, sizeof ignored) <= 0) {
        Log_Level(5, "Executor has been Successfully Stopped\n");
    }
}

}  // namespace bootweave
