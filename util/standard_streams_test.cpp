// SPDX-License-Identifier: Apache-2.0
#include "util/standard_streams.h"

#include <array>
#include <atomic>
#include <cerrno>
#include <functional>
#include <string>

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include "gtest/gtest.h"
#include "tests/support/fake_platform.h"
#include "tests/support/temp_dir.h"
#include "util/child_process.h"
#include "util/retry.h"
#include "util/unique_fd.h"

extern "C" int __real_dup2(int source, int target);
extern "C" int __wrap_dup2(int source, int target);

namespace {

/// The target whose duplication fails, or -1; only ever set in a forked child.
std::atomic<int> g_failing_target = -1;

}  // namespace

extern "C" int __wrap_dup2(int source, int target) {
    if (target == g_failing_target) {
        errno = EBUSY;
        return -1;
    }
    return __real_dup2(source, target);
}

namespace bootweave {
namespace {

class StandardStreamsTest : public testing::Test {
  protected:
    void SetUp() override { FakePlatform::Reset(); }

    /// Runs `body` in a child and returns what it logged and reported, a line each.
    std::string InChild(const std::function<void()>& body) {
        Pipe pipe = Pipe::Create();
        auto child = ChildProcess::Fork([&] {
            s_report_ = ::fcntl(pipe.write_end.get(), F_DUPFD_CLOEXEC, 50);
            pipe.write_end.Reset();
            pipe.read_end.Reset();
            FakePlatform::EchoTo(s_report_);
            body();
            return 0;
        });
        pipe.write_end.Reset();
        std::string all;
        char part[4096];
        ssize_t size = 0;
        while ((size = RetryOnEintr([&] { return ::read(pipe.read_end.get(), part, sizeof part); })) > 0) {
            all.append(part, static_cast<std::size_t>(size));
        }
        EXPECT_EQ(0, child->Wait());
        return all;
    }

    static void Say(const std::string& line) {
        EXPECT_LT(0, ::write(s_report_, (line + "\n").data(), line.size() + 1));
    }

    /// Says what descriptor `number` is: "NUMBER: PATH", with "close-on-exec" when it is.
    static void SayWhatIs(int number) {
        std::array<char, 4096> target{};
        const std::string link = "/proc/self/fd/" + std::to_string(number);
        if (::readlink(link.c_str(), target.data(), target.size() - 1) < 0) {
            Say(std::to_string(number) + ": closed");
            return;
        }
        const bool close_on_exec = ::fcntl(number, F_GETFD) == FD_CLOEXEC;
        Say(std::to_string(number) + ": " + target.data() + (close_on_exec ? " close-on-exec" : ""));
    }

    static void SayWhatTheStreamsAre() {
        for (const int number : {0, 1, 2, 3}) {
            SayWhatIs(number);
        }
    }

    TempDir dir_;
    std::string log_ = dir_.File("log");

  private:
    static inline int s_report_ = -1;
};

TEST_F(StandardStreamsTest, MissingDescriptorsAreOpenedOnTheNullDevice) {
    const std::string file = dir_.WriteFile("file", "");
    for (int missing = 0; missing < 8; ++missing) {  // a bit for each
        std::string expected;
        for (int number = 0; number < 3; ++number) {
            expected +=
                std::to_string(number) + ": " + ((missing >> number & 1) != 0 ? "/dev/null" : file) + "\n";
        }
        EXPECT_EQ(expected + "3: closed\n", InChild([&] {
                      CloseDescriptorsFrom(51);
                      ::close(3);
                      const UniqueFd open_file(::open(file.c_str(), O_RDWR | O_CLOEXEC));
                      for (int number = 0; number < 3; ++number) {
                          ::close(number);
                          if ((missing >> number & 1) == 0) {
                              __real_dup2(open_file.get(), number);
                          }
                      }
                      ::close(3);
                      EnsureStandardDescriptors();
                      SayWhatTheStreamsAre();
                  }));
    }
}

TEST_F(StandardStreamsTest, RedirectionTakesInputFromNullAndAppendsOutputAndErrors) {
    dir_.WriteFile("log", "before\n");
    EXPECT_EQ("0: /dev/null\n1: " + log_ + "\n2: " + log_ + "\n", InChild([&] {
                  RedirectStandardStreams(log_);
                  for (const int number : {0, 1, 2}) {
                      SayWhatIs(number);
                  }
                  EXPECT_EQ(4, ::write(1, "out\n", 4));
                  EXPECT_EQ(4, ::write(2, "err\n", 4));
              }));
    EXPECT_EQ("before\nout\nerr\n", ReadFile(log_));
}

TEST_F(StandardStreamsTest, RedirectionMakesTheFileForItsOwnerToWrite) {
    EXPECT_EQ("", InChild([&] {
                  ::umask(0);
                  RedirectStandardStreams(log_);
              }));
    struct stat status {};
    ASSERT_EQ(0, ::stat(log_.c_str(), &status));
    EXPECT_EQ(0100644U, status.st_mode);
}

TEST_F(StandardStreamsTest, RedirectionLeavesNoOtherDescriptorOpen) {
    EXPECT_EQ("3: closed\n4: closed\n", InChild([&] {
                  ::close(3);
                  ::close(4);
                  RedirectStandardStreams(log_);
                  SayWhatIs(3);
                  SayWhatIs(4);
              }));
}

TEST_F(StandardStreamsTest, RedirectionWithoutAnyStreamOpenGivesThemAllAndKeepsThemForExec) {
    EXPECT_EQ("0: /dev/null\n1: " + log_ + "\n2: " + log_ + "\n3: closed\n", InChild([&] {
                  for (const int number : {0, 1, 2, 3}) {
                      ::close(number);
                  }
                  RedirectStandardStreams(log_);
                  SayWhatTheStreamsAre();
              }));
}

TEST_F(StandardStreamsTest, RedirectionWithoutOutputAndErrorsOpenKeepsInputApart) {
    EXPECT_EQ("0: /dev/null\n1: " + log_ + "\n2: " + log_ + "\n3: closed\n", InChild([&] {
                  for (const int number : {1, 2, 3}) {
                      ::close(number);
                  }
                  RedirectStandardStreams(log_);
                  SayWhatTheStreamsAre();
              }));
}

TEST_F(StandardStreamsTest, AFileThatCannotBeOpenedLeavesOutputAndErrorsAsTheyWere) {
    const std::string missing = dir_.File("missing/log");
    const std::string file = dir_.WriteFile("file", "");
    EXPECT_EQ("3 Failed opening log file " + missing + "\n0: /dev/null\n1: " + file + "\n2: " + file + "\n",
              InChild([&] {
                  const UniqueFd open_file(::open(file.c_str(), O_RDWR | O_CLOEXEC));
                  __real_dup2(open_file.get(), 1);
                  __real_dup2(open_file.get(), 2);
                  RedirectStandardStreams(missing);
                  for (const int number : {0, 1, 2}) {
                      SayWhatIs(number);
                  }
              }));
}

TEST_F(StandardStreamsTest, AFifoThatNobodyReadsCannotBeOpened) {
    ASSERT_EQ(0, ::mkfifo(log_.c_str(), 0600));
    EXPECT_EQ("3 Failed opening log file " + log_ + "\n", InChild([&] {
                  ::alarm(10);
                  RedirectStandardStreams(log_);
              }));
}

TEST_F(StandardStreamsTest, WritesToARedirectedStreamWaitAsUsual) {
    EXPECT_EQ("appends and waits\n", InChild([&] {
                  RedirectStandardStreams(log_);
                  const int flags = ::fcntl(1, F_GETFL) & (O_NONBLOCK | O_APPEND);
                  Say(flags == O_APPEND ? "appends and waits" : "other flags");
              }));
}

TEST_F(StandardStreamsTest, AClosedOutputStaysClosedWhenTheFileCannotBeOpened) {
    const std::string missing = dir_.File("missing/log");
    EXPECT_EQ("3 Failed opening log file " + missing + "\n0: /dev/null\n1: closed\n", InChild([&] {
                  ::close(1);
                  RedirectStandardStreams(missing);
                  SayWhatIs(0);
                  SayWhatIs(1);
              }));
}

TEST_F(StandardStreamsTest, WithoutTheNullDeviceTheOtherStepsAreStillTried) {
    EXPECT_EQ("3 Failed opening /dev/null\n3 Failed opening log file " + log_ + "\n", InChild([&] {
                  const rlimit none{.rlim_cur = 0, .rlim_max = 0};
                  ::setrlimit(RLIMIT_NOFILE, &none);
                  RedirectStandardStreams(log_);
              }));
}

TEST_F(StandardStreamsTest, AStreamThatCannotBeRedirectedIsAWarningAndTheOthersAre) {
    const std::string file = dir_.WriteFile("file", "");
    const std::string warnings[] = {"3 Failed redirecting stdin to /dev/null\n",
                                    "3 Failed redirecting stdout to " + log_ + "\n",
                                    "3 Failed redirecting stderr to " + log_ + "\n"};
    for (int failing = 0; failing < 3; ++failing) {
        std::string expected = warnings[failing];
        for (int number = 0; number < 3; ++number) {
            const std::string redirected = number == 0 ? "/dev/null" : log_;
            expected += std::to_string(number) + ": " + (number == failing ? file : redirected) + "\n";
        }
        EXPECT_EQ(expected, InChild([&] {
                      const UniqueFd open_file(::open(file.c_str(), O_RDWR | O_CLOEXEC));
                      for (const int number : {0, 1, 2}) {
                          __real_dup2(open_file.get(), number);
                      }
                      g_failing_target = failing;
                      RedirectStandardStreams(log_);
                      for (const int number : {0, 1, 2}) {
                          SayWhatIs(number);
                      }
                  }));
    }
}

TEST_F(StandardStreamsTest, ClosingFromANumberClosesItAndAllAbove) {
    EXPECT_EQ("60: /dev/null\n61: closed\n62: closed\n500: closed\n", InChild([&] {
                  const UniqueFd null_device(::open("/dev/null", O_RDWR));
                  for (const int number : {60, 61, 500}) {
                      __real_dup2(null_device.get(), number);
                  }
                  CloseDescriptorsFrom(61);
                  for (const int number : {60, 61, 62, 500}) {
                      SayWhatIs(number);
                  }
              }));
}

}  // namespace
}  // namespace bootweave
