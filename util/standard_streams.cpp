// SPDX-License-Identifier: Apache-2.0
#include "util/standard_streams.h"

#include <array>
#include <cerrno>
#include <climits>

#include <fcntl.h>
#include <termios.h>
#include <unistd.h>

#include "platform/log.h"
#include "util/retry.h"
#include "util/unique_fd.h"

namespace bootweave {
namespace {

constexpr const char* kNullDevice = "/dev/null";

int Open(const char* path, int flags, mode_t mode = 0) {
    return RetryOnEintr([&] { return ::open(path, flags | O_CLOEXEC | O_NOCTTY, mode); });
}

/// Opens a log for appending. A FIFO that nobody reads fails: waiting for its reader would hold up the boot.
UniqueFd OpenLog(const char* path) {
    UniqueFd file(Open(path, O_WRONLY | O_CREAT | O_APPEND | O_NONBLOCK, 0644));
    if (file.valid()) {
        ::fcntl(file.get(), F_SETFL, O_APPEND);  // it is for programs that expect to write as usual
    }
    return file;
}

/// Gives `source` the number `target` as well, kept across exec; false when it did not get it.
bool Duplicate(int source, int target) {
    if (source == target) {
        return ::fcntl(source, F_SETFD, 0) == 0;  // duplicating would leave it close-on-exec
    }
    return RetryOnEintr([&] { return ::dup2(source, target); }) == target;
}

/// Closes a descriptor, unless it was opened with a number from `first` to `last`, where it belongs.
void CloseUnlessBetween(int first, int last, UniqueFd fd) {
    if (fd.get() >= first && fd.get() <= last) {
        static_cast<void>(fd.Release());
    }
}

}  // namespace

void EnsureStandardDescriptors() {
    for (int number = STDIN_FILENO; number <= STDERR_FILENO; ++number) {
        if (::fcntl(number, F_GETFD) == -1) {
            // The lowest free number is the missing one: all before it are open by now.
            static_cast<void>(RetryOnEintr([&] { return ::open(kNullDevice, O_RDWR); }));
        }
    }
}

void RedirectStandardStreams(const std::string& path) {
    UniqueFd null_device(Open(kNullDevice, O_RDWR));
    if (!null_device.valid()) {
        Warning("Failed opening /dev/null");
    } else {
        if (!Duplicate(null_device.get(), STDIN_FILENO)) {
            Warning("Failed redirecting stdin to /dev/null");
        }
        CloseUnlessBetween(STDIN_FILENO, STDIN_FILENO, std::move(null_device));
    }
    UniqueFd file = OpenLog(path.c_str());
    if (!file.valid()) {
        Warning("Failed opening log file %s", path.c_str());
        return;
    }
    if (!Duplicate(file.get(), STDOUT_FILENO)) {
        Warning("Failed redirecting stdout to %s", path.c_str());
    }
    if (!Duplicate(file.get(), STDERR_FILENO)) {
        Warning("Failed redirecting stderr to %s", path.c_str());
    }
    CloseUnlessBetween(STDOUT_FILENO, STDERR_FILENO, std::move(file));
}

void ReopenHungUpStreams() {
    constexpr std::array kOwnFiles{"/proc/self/fd/0", "/proc/self/fd/1", "/proc/self/fd/2"};
    for (int number = STDIN_FILENO; number <= STDERR_FILENO; ++number) {
        termios attributes{};
        if (::tcgetattr(number, &attributes) == 0 || errno != EIO) {
            continue;
        }
        const int flags = ::fcntl(number, F_GETFL);
        const UniqueFd terminal(
            Open(kOwnFiles.at(static_cast<std::size_t>(number)), (flags & O_ACCMODE) | O_NONBLOCK));
        if (terminal.valid() && Duplicate(terminal.get(), number)) {
            ::fcntl(number, F_SETFL, flags);
        }
    }
}

void CloseDescriptorsFrom(int first) {
    if (::close_range(static_cast<unsigned>(first), UINT_MAX, 0) == 0) {
        return;
    }
    const long limit = ::sysconf(_SC_OPEN_MAX);  // kernels before 5.9 have no close_range
    for (int fd = first; fd < limit; ++fd) {
        ::close(fd);
    }
}

}  // namespace bootweave
