// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <functional>
#include <string>
#include <vector>

#include <sys/socket.h>
#include <sys/types.h>

#include "gtest/gtest.h"
#include "tests/support/temp_dir.h"
#include "util/unique_fd.h"

/// \file
/// What the tests of the log share: a log daemon, captured streams, children, and a log that starts anew.

namespace bootweave {

/// A log daemon's socket, datagram or stream, at a path of the test's.
class LogDaemon {
  public:
    /// Listens at `path`, removing what is there; `type` is SOCK_DGRAM or SOCK_STREAM.
    explicit LogDaemon(std::string path, int type = SOCK_DGRAM);
    /// Stops listening. The path stays, as it does when a daemon dies.
    ~LogDaemon() = default;
    LogDaemon(const LogDaemon&) = delete;
    LogDaemon& operator=(const LogDaemon&) = delete;

    /// The next message without its time stamp: "<29>bootweave[1]: text". Waits up to a minute; fails the
    /// test and returns "" when none comes.
    std::string Receive();
    /// The next message as it came.
    std::string ReceiveRaw();
    /// All messages that have come so far, without time stamps and without those of Fill().
    std::vector<std::string> Drain();
    /// Sends to itself until there is no room for one more message.
    void Fill();
    [[nodiscard]] int descriptor() const { return socket_.get(); }

  private:
    std::string path_;
    UniqueFd socket_;
};

/// Takes standard output to a file for as long as it lives. Nothing may be asserted meanwhile.
class StdoutToFile {
  public:
    explicit StdoutToFile(const std::string& path);
    ~StdoutToFile();
    StdoutToFile(const StdoutToFile&) = delete;
    StdoutToFile& operator=(const StdoutToFile&) = delete;

  private:
    UniqueFd saved_;
};

/// "<29>Nov 15 15:04:56 x" without the time stamp; the whole text when there is none.
std::string WithoutSyslogStamp(const std::string& message);

/// The lines of `text`, each without its "2026-11-15T15:04:56.123Z " in front and its newline.
std::vector<std::string> LinesWithoutStamp(const std::string& text);

/// Runs `body` in a forked child of its own pid and returns its raw wait status; a child that hangs for a
/// minute is ended by SIGALRM.
int RunInChild(const std::function<int()>& body, pid_t* pid = nullptr);

/// Returns once thread `tid` of this process sleeps in the kernel or has ended, or after a minute.
void WaitUntilSleeping(pid_t tid);

/// A log in a directory of the test's, with nothing set up.
class LogFixture : public testing::Test {
  protected:
    LogFixture();
    ~LogFixture() override;

    /// Sets up both outputs as the program does.
    void SetUpLog();
    /// "bootweave[PID]: ", PID being this process's.
    [[nodiscard]] static std::string Origin(pid_t pid);
    [[nodiscard]] std::string socket_path() const { return socket_path_; }
    [[nodiscard]] std::string kernel_log_path() const { return kernel_log_path_; }

    TempDir dir_;

  private:
    std::string socket_path_ = dir_.File("log");
    std::string kernel_log_path_ = dir_.File("kmsg");
};

}  // namespace bootweave
