// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cerrno>
#include <utility>

#include <fcntl.h>
#include <unistd.h>

/// \file
/// Ownership of file descriptors.

namespace bootweave {

/// Owns one descriptor, or none, and closes it at the end. Not converted to int on purpose: a raw number
/// lives for the line that hands it to a system call.
class UniqueFd {
  public:
    UniqueFd() = default;
    /// Takes over `fd`; a negative number is no descriptor.
    explicit UniqueFd(int fd) : fd_(fd) {}
    UniqueFd(UniqueFd&& other) noexcept : fd_(std::exchange(other.fd_, -1)) {}
    UniqueFd& operator=(UniqueFd&& other) noexcept {
        Reset(std::exchange(other.fd_, -1));
        return *this;
    }
    UniqueFd(const UniqueFd&) = delete;
    UniqueFd& operator=(const UniqueFd&) = delete;
    ~UniqueFd() { Reset(); }

    /// The descriptor, or -1. It stays owned here.
    [[nodiscard]] int get() const { return fd_; }
    [[nodiscard]] bool valid() const { return fd_ >= 0; }

    /// Gives the descriptor to the caller.
    [[nodiscard]] int Release() { return std::exchange(fd_, -1); }

    /// Closes what is owned and takes over `fd`. Linux frees the number even when close is interrupted or
    /// fails, so it is never repeated. Keeps errno, so that an error can be reported after the clean-up.
    void Reset(int fd = -1) {
        if (fd_ >= 0 && fd_ != fd) {
            const int saved = errno;
            ::close(fd_);
            errno = saved;
        }
        fd_ = fd;
    }

  private:
    int fd_ = -1;
};

/// The two ends of a pipe, close-on-exec both.
struct Pipe {
    UniqueFd read_end;
    UniqueFd write_end;

    /// Makes a pipe; both ends are invalid, with errno set, when the system has none to give.
    [[nodiscard]] static Pipe Create() {
        int ends[2];
        if (::pipe2(ends, O_CLOEXEC) != 0) {
            return {};
        }
        return {UniqueFd(ends[0]), UniqueFd(ends[1])};
    }
};

}  // namespace bootweave
