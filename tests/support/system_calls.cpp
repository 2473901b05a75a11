// SPDX-License-Identifier: Apache-2.0
#include "tests/support/system_calls.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdarg>
#include <cstdlib>
#include <cstring>
#include <string>
#include <string_view>

#include <fcntl.h>
#include <pthread.h>
#include <sched.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include "tests/support/fake_platform.h"
#include "util/process_lock.h"

namespace bootweave {
namespace {

struct Countdown {
    std::atomic<int> skip;
    std::atomic<int> times;
    int error;
    bool in_child;
};

/// Something that is no relation of any exception class.
struct Raised {};

std::array<Countdown, kSystemCalls> g_faults;
std::string g_directory;
bool g_foreign_peer = false;
bool g_hold_dying_executor = false;
std::size_t g_send_limit = 0;
std::int64_t g_shutdown_delay = 0;
pid_t g_adopter = 0;
bool g_in_child = false;

/// Shared with all children, which may outlive the test: never unmapped.
std::atomic<std::int64_t>* SeenCells() {
    constexpr std::size_t kSize = sizeof(SeenCalls);
    static void* const memory =
        ::mmap(nullptr, kSize, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    if (memory == MAP_FAILED) {
        std::abort();
    }
    return static_cast<std::atomic<std::int64_t>*>(memory);
}

enum SeenCell {
    kAddressLength,
    kSocketType,
    kListenBacklog,
    kReceiveTimeout,
    kDaemonArguments,
    kForks,
    kForksUnderLock,
    kWaitStatus,
};

void Note(SeenCell cell, std::int64_t value) {
    SeenCells()[cell] = value;
}

/// Whether this call has to fail; errno is set then.
bool Fails(SystemCall call) {
    Countdown& fault = g_faults[static_cast<std::size_t>(call)];
    if (fault.times == 0 || (fault.in_child && !g_in_child)) {
        return false;
    }
    if (fault.skip > 0) {
        --fault.skip;
        return false;
    }
    if (fault.times > 0) {
        --fault.times;
    }
    if (fault.error == SystemFault::kRaise) {
        throw Raised();
    }
    errno = fault.error;
    return true;
}

/// Where a path of the product leads in this test.
std::string Redirected(const char* path) {
    constexpr std::string_view kCommands = "/usr/lib/corvane/hostcli";
    const std::string_view asked(path);
    if (g_directory.empty()) {
        return path;
    }
    if (asked == "/var/run/corvane/bootweaveExecutor.sock") {
        return g_directory + "/executor.sock";
    }
    if (asked == "/var/log/bootweave-hostcli-stdout.log") {
        return g_directory + "/executor.log";
    }
    if (asked == "/dev/console") {
        return g_directory + "/console";
    }
    if (asked.starts_with(kCommands)) {
        return g_directory + "/hostcli" + std::string(asked.substr(kCommands.size()));
    }
    return path;
}

sockaddr_un Redirected(const sockaddr* address, socklen_t length) {
    sockaddr_un redirected{};
    if (length != sizeof redirected || address->sa_family != AF_UNIX) {
        std::abort();
    }
    std::memcpy(&redirected, address, length);
    const std::string path = Redirected(redirected.sun_path);
    std::strncpy(redirected.sun_path, path.c_str(), sizeof redirected.sun_path - 1);
    Note(kAddressLength, length);
    return redirected;
}

}  // namespace

void SystemCalls::Reset() {
    for (Countdown& fault : g_faults) {
        fault.times = 0;
    }
    g_directory.clear();
    g_foreign_peer = false;
    g_hold_dying_executor = false;
    g_send_limit = 0;
    g_shutdown_delay = 0;
    g_adopter = 0;
    for (int cell = kAddressLength; cell < kForks; ++cell) {
        Note(static_cast<SeenCell>(cell), -1);
    }
    Note(kForks, 0);
    Note(kForksUnderLock, 0);
    Note(kWaitStatus, -1);
}

void SystemCalls::Redirect(const char* directory) {
    g_directory = directory;
}

void SystemCalls::Fail(SystemCall call, const SystemFault& fault) {
    Countdown& countdown = g_faults[static_cast<std::size_t>(call)];
    countdown.error = fault.error;
    countdown.in_child = fault.in_child;
    countdown.skip = fault.skip;
    countdown.times = fault.times;
}

void SystemCalls::PretendForeignPeer() {
    g_foreign_peer = true;
}
void SystemCalls::HoldDyingExecutor() {
    g_hold_dying_executor = true;
}
void SystemCalls::LimitSend(std::size_t bytes) {
    g_send_limit = bytes;
}
void SystemCalls::DelayShutdown(std::int64_t microseconds) {
    g_shutdown_delay = microseconds;
}
void SystemCalls::AdoptExecutors(pid_t by) {
    g_adopter = by;
}

SeenCalls SystemCalls::Seen() {
    const auto* cells = SeenCells();
    return {cells[kAddressLength],   cells[kSocketType], cells[kListenBacklog],  cells[kReceiveTimeout],
            cells[kDaemonArguments], cells[kForks],      cells[kForksUnderLock], cells[kWaitStatus]};
}

}  // namespace bootweave

using bootweave::Fails;
using bootweave::Note;
using bootweave::Redirected;
using bootweave::SystemCall;

// The linker gives these names to the wrapped functions.
// NOLINTBEGIN(bugprone-reserved-identifier,readability-identifier-naming)
extern "C" {

int __real_accept4(int socket, sockaddr* address, socklen_t* length, int flags);
int __wrap_accept4(int socket, sockaddr* address, socklen_t* length, int flags);
int __wrap_accept4(int socket, sockaddr* address, socklen_t* length, int flags) {
    return Fails(SystemCall::kAccept) ? -1 : __real_accept4(socket, address, length, flags);
}

int __real_bind(int socket, const sockaddr* address, socklen_t length);
int __wrap_bind(int socket, const sockaddr* address, socklen_t length);
int __wrap_bind(int socket, const sockaddr* address, socklen_t length) {
    const sockaddr_un redirected = Redirected(address, length);
    return Fails(SystemCall::kBind)
               ? -1
               : __real_bind(socket, reinterpret_cast<const sockaddr*>(&redirected), length);
}

int __real_connect(int socket, const sockaddr* address, socklen_t length);
int __wrap_connect(int socket, const sockaddr* address, socklen_t length);
int __wrap_connect(int socket, const sockaddr* address, socklen_t length) {
    const sockaddr_un redirected = Redirected(address, length);
    return Fails(SystemCall::kConnect)
               ? -1
               : __real_connect(socket, reinterpret_cast<const sockaddr*>(&redirected), length);
}

int __real_daemon(int keep_directory, int keep_streams);
int __wrap_daemon(int keep_directory, int keep_streams);
int __wrap_daemon(int keep_directory, int keep_streams) {
    using bootweave::g_adopter;
    Note(bootweave::kDaemonArguments, 10 * keep_directory + keep_streams);
    if (Fails(SystemCall::kDaemon)) {
        return -1;
    }
    const int result = __real_daemon(keep_directory, keep_streams);
    if (result == 0 && g_adopter > 0) {
        // The process between must have gone, or its end would be taken for the test's.
        while (::getppid() != g_adopter) {
            if (::kill(g_adopter, 0) != 0) {
                ::_exit(1);
            }
            ::sched_yield();
        }
        ::prctl(PR_SET_PDEATHSIG, SIGKILL);
    }
    return result;
}

int __real_eventfd(unsigned value, int flags);
int __wrap_eventfd(unsigned value, int flags);
int __wrap_eventfd(unsigned value, int flags) {
    return Fails(SystemCall::kEventFd) ? -1 : __real_eventfd(value, flags);
}

pid_t __real_fork();
pid_t __wrap_fork();
pid_t __wrap_fork() {
    ++bootweave::SeenCells()[bootweave::kForks];
    if (bootweave::g_process_lock.HeldByThisThread()) {
        ++bootweave::SeenCells()[bootweave::kForksUnderLock];
    }
    if (Fails(SystemCall::kFork)) {
        return -1;
    }
    const pid_t pid = __real_fork();
    if (pid == 0 && !bootweave::g_directory.empty()) {
        bootweave::g_in_child = true;
        bootweave::FakePlatform::EchoTo(STDERR_FILENO);  // the executor's is its output log
    }
    return pid;
}

int __real_getsockopt(int socket, int level, int name, void* value, socklen_t* length);
int __wrap_getsockopt(int socket, int level, int name, void* value, socklen_t* length);
int __wrap_getsockopt(int socket, int level, int name, void* value, socklen_t* length) {
    if (Fails(SystemCall::kGetSockOpt)) {
        return -1;
    }
    const int result = __real_getsockopt(socket, level, name, value, length);
    if (result == 0 && name == SO_PEERCRED && bootweave::g_foreign_peer) {
        static_cast<ucred*>(value)->uid += 4242;
    }
    return result;
}

int __real_listen(int socket, int backlog);
int __wrap_listen(int socket, int backlog);
int __wrap_listen(int socket, int backlog) {
    Note(bootweave::kListenBacklog, backlog);
    return Fails(SystemCall::kListen) ? -1 : __real_listen(socket, backlog);
}

int __real_open64(const char* path, int flags, ...);
int __wrap_open64(const char* path, int flags, ...);
int __wrap_open64(const char* path, int flags, ...) {
    std::va_list arguments;
    va_start(arguments, flags);
    const mode_t mode = (flags & O_CREAT) != 0 ? va_arg(arguments, mode_t) : 0;
    va_end(arguments);
    const std::string redirected = Redirected(path);
    return redirected != path && Fails(SystemCall::kOpen) ? -1
                                                          : __real_open64(redirected.c_str(), flags, mode);
}

int __real_openat64(int directory, const char* path, int flags, ...);
int __wrap_openat64(int directory, const char* path, int flags, ...);
int __wrap_openat64(int directory, const char* path, int flags, ...) {
    std::va_list arguments;
    va_start(arguments, flags);
    const mode_t mode = (flags & O_CREAT) != 0 ? va_arg(arguments, mode_t) : 0;
    va_end(arguments);
    return __real_openat64(directory, Redirected(path).c_str(), flags, mode);
}

// What an optimised and fortified build calls instead, where the flags are no constant.
int __wrap___open64_2(const char* path, int flags);
int __wrap___open64_2(const char* path, int flags) {
    return __wrap_open64(path, flags);
}

int __wrap___openat64_2(int directory, const char* path, int flags);
int __wrap___openat64_2(int directory, const char* path, int flags) {
    return __wrap_openat64(directory, path, flags);
}

int __real_pthread_create(pthread_t* thread, const pthread_attr_t* attributes, void* (*body)(void*),
                          void* argument);
int __wrap_pthread_create(pthread_t* thread, const pthread_attr_t* attributes, void* (*body)(void*),
                          void* argument);
int __wrap_pthread_create(pthread_t* thread, const pthread_attr_t* attributes, void* (*body)(void*),
                          void* argument) {
    return Fails(SystemCall::kPthreadCreate) ? errno
                                             : __real_pthread_create(thread, attributes, body, argument);
}

int __real_pthread_join(pthread_t thread, void** result);
int __wrap_pthread_join(pthread_t thread, void** result);
int __wrap_pthread_join(pthread_t thread, void** result) {
    const int joined = __real_pthread_join(thread, result);
    while (bootweave::g_hold_dying_executor && bootweave::g_in_child) {
        ::pause();
    }
    return joined;
}

ssize_t __real_recv(int socket, void* data, std::size_t size, int flags);
ssize_t __wrap_recv(int socket, void* data, std::size_t size, int flags);
ssize_t __wrap_recv(int socket, void* data, std::size_t size, int flags) {
    return Fails(SystemCall::kRecv) ? -1 : __real_recv(socket, data, size, flags);
}

ssize_t __real_send(int socket, const void* data, std::size_t size, int flags);
ssize_t __wrap_send(int socket, const void* data, std::size_t size, int flags);
ssize_t __wrap_send(int socket, const void* data, std::size_t size, int flags) {
    using bootweave::g_send_limit;
    const std::size_t part = g_send_limit > 0 ? std::min(size, g_send_limit) : size;
    return Fails(SystemCall::kSend) ? -1 : __real_send(socket, data, part, flags);
}

int __real_setsockopt(int socket, int level, int name, const void* value, socklen_t length);
int __wrap_setsockopt(int socket, int level, int name, const void* value, socklen_t length);
int __wrap_setsockopt(int socket, int level, int name, const void* value, socklen_t length) {
    if (name == SO_RCVTIMEO) {
        const auto* timeout = static_cast<const timeval*>(value);
        Note(bootweave::kReceiveTimeout, timeout->tv_sec * 1'000'000 + timeout->tv_usec);
    }
    return __real_setsockopt(socket, level, name, value, length);
}

int __real_shutdown(int socket, int how);
int __wrap_shutdown(int socket, int how);
int __wrap_shutdown(int socket, int how) {
    if (bootweave::g_in_child && bootweave::g_shutdown_delay > 0) {
        ::usleep(static_cast<useconds_t>(bootweave::g_shutdown_delay));
    }
    return __real_shutdown(socket, how);
}

int __real_sigaction(int number, const struct sigaction* action, struct sigaction* before);
int __wrap_sigaction(int number, const struct sigaction* action, struct sigaction* before);
int __wrap_sigaction(int number, const struct sigaction* action, struct sigaction* before) {
    return Fails(SystemCall::kSigaction) ? -1 : __real_sigaction(number, action, before);
}

int __real_socket(int domain, int type, int protocol);
int __wrap_socket(int domain, int type, int protocol);
int __wrap_socket(int domain, int type, int protocol) {
    Note(bootweave::kSocketType, type);
    return Fails(SystemCall::kSocket) ? -1 : __real_socket(domain, type, protocol);
}

pid_t __real_waitpid(pid_t pid, int* status, int options);
pid_t __wrap_waitpid(pid_t pid, int* status, int options);
pid_t __wrap_waitpid(pid_t pid, int* status, int options) {
    if (Fails(SystemCall::kWaitPid)) {
        return -1;
    }
    const pid_t child = __real_waitpid(pid, status, options);
    if (child > 0 && status != nullptr) {
        Note(bootweave::kWaitStatus, *status);
    }
    return child;
}

#if defined(__SANITIZE_THREAD__)
/// The executor starts its event loop in a process that was forked while other threads ran.
const char* __tsan_default_options();
const char* __tsan_default_options() {
    return "die_after_fork=0";
}
#endif

}  // extern "C"
// NOLINTEND(bugprone-reserved-identifier,readability-identifier-naming)
