// SPDX-License-Identifier: Apache-2.0
#include "platform/linux/command_process.h"

#include <algorithm>
#include <array>
#include <optional>
#include <utility>

#include <fcntl.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include "util/error_text.h"
#include "util/exception.h"
#include "util/retry.h"
#include "util/thread.h"
#include "util/unique_fd.h"

namespace bootweave {
namespace {

constexpr std::size_t kReadSize = 16384;

/// Tells through a descriptor that a child has ended, without reaping it.
class EndOfChild {
  public:
    explicit EndOfChild(const ChildProcess& child) : read_end_(child.OpenEndFd()) {
        if (!read_end_.valid()) {
            WatchWithThread(child.pid());
        }
    }

    /// Polls as ready from the child's end on.
    [[nodiscard]] int descriptor() const { return read_end_.get(); }

  private:
    /// A kernel that has no descriptor for a process, or a sandbox that forbids it: a thread sleeps instead
    /// and closes its end of a pipe.
    void WatchWithThread(pid_t pid) {
        Pipe pipe = Pipe::Create();
        if (!pipe.read_end.valid()) {
            throw Exception(LastErrorText());
        }
        read_end_ = std::move(pipe.read_end);
        write_end_ = std::move(pipe.write_end);
        thread_.emplace([this, pid] {
            siginfo_t ignored;
            const auto id = static_cast<id_t>(pid);
            static_cast<void>(RetryOnEintr([&] { return ::waitid(P_PID, id, &ignored, WEXITED | WNOWAIT); }));
            write_end_.Reset();
        });
    }

    UniqueFd read_end_;
    UniqueFd write_end_;
    std::optional<Thread> thread_;  ///< last: it ends before what it uses
};

/// The reading end of a program's standard error.
class ErrorReader {
  public:
    ErrorReader(UniqueFd pipe, std::size_t bound) : pipe_(std::move(pipe)), bound_(bound) {}

    [[nodiscard]] int descriptor() const { return pipe_.get(); }

    /// Reads once, `limit` bytes at most; waits where there is nothing yet. \return how many there were; 0
    /// when there is nothing more to come
    std::size_t Read(std::size_t limit = kReadSize) {
        std::array<char, kReadSize> buffer;
        const std::size_t size = std::min(limit, buffer.size());
        const ssize_t count = RetryOnEintr([&] { return ::read(pipe_.get(), buffer.data(), size); });
        if (count <= 0) {
            return 0;
        }
        const auto read = static_cast<std::size_t>(count);
        text_.append(buffer.data(), std::min(read, bound_ - text_.size()));
        return read;
    }

    /// Reads what is in the pipe now and not what is still being written: a process that was left behind may
    /// write faster than this one reads.
    void ReadWhatIsThere() {
        int there = 0;
        if (::ioctl(pipe_.get(), FIONREAD, &there) != 0 || there <= 0) {
            return;
        }
        auto left = static_cast<std::size_t>(there);
        while (left > 0 && text_.size() < bound_) {
            const std::size_t read = Read(left);
            if (read == 0) {
                return;
            }
            left -= read;
        }
    }

    [[nodiscard]] std::string Take() { return std::move(text_); }

  private:
    UniqueFd pipe_;
    std::size_t bound_;
    std::string text_;
};

/// Reads until the child has ended.
void ReadUntilEnd(const EndOfChild& end, ErrorReader& errors) {
    std::array<pollfd, 2> descriptors{{{end.descriptor(), POLLIN, 0}, {errors.descriptor(), POLLIN, 0}}};
    while (true) {
        if (RetryOnEintr([&] { return ::poll(descriptors.data(), descriptors.size(), -1); }) < 0) {
            throw Exception(LastErrorText());
        }
        if (descriptors[0].revents != 0) {
            break;
        }
        if (errors.Read() == 0) {
            descriptors[1].fd = -1;  // the program has closed its standard error and goes on
        }
    }
    if ((descriptors[1].revents & POLLIN) != 0) {
        errors.ReadWhatIsThere();
    }
}

}  // namespace

CapturedRun RunCapturingErrors(SpawnOptions options, std::size_t error_bound) {
    Pipe pipe = Pipe::Create();
    if (!pipe.read_end.valid()) {
        throw Exception(LastErrorText());
    }
    ErrorReader errors(std::move(pipe.read_end), error_bound);
    options.descriptors.emplace_back(pipe.write_end.get(), STDERR_FILENO);
    // Declared in this order so that a failure below first kills the child, for whose end the watch may wait.
    std::optional<EndOfChild> end;
    std::optional<ChildProcess> child = ChildProcess::Spawn(options);
    if (!child.has_value()) {
        throw Exception(LastErrorText());
    }
    pipe.write_end.Reset();
    end.emplace(*child);
    ReadUntilEnd(*end, errors);
    const std::optional<int> raw = child->Wait();
    if (!raw.has_value()) {
        throw Exception(LastErrorText());
    }
    return {ExitStatus::FromRaw(*raw), errors.Take()};
}

}  // namespace bootweave
