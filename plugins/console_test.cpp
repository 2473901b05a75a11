// SPDX-License-Identifier: Apache-2.0
#include "plugins/console.h"

#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdarg>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <thread>

#include <boost/algorithm/string/replace.hpp>

#include <fcntl.h>
#include <linux/vt.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <termios.h>
#include <unistd.h>

#include "gmock/gmock.h"
#include "platform/log.h"
#include "tests/support/fake_platform.h"
#include "tests/support/system_calls.h"
#include "tests/support/temp_dir.h"
#include "util/child_process.h"
#include "util/retry.h"
#include "util/unique_fd.h"

// The linker gives these names to the wrapped function.
// NOLINTBEGIN(bugprone-reserved-identifier)
extern "C" {
static std::string g_console;  ///< requests to this file succeed when they activate, and are logged
int __real_ioctl(int descriptor, unsigned long request, ...);
int __wrap_ioctl(int descriptor, unsigned long request, ...);
int __wrap_ioctl(int descriptor, unsigned long request, ...) {
    std::va_list arguments;
    va_start(arguments, request);
    void* const argument = va_arg(arguments, void*);
    va_end(arguments);
    std::error_code none;
    const auto file = std::filesystem::read_symlink("/proc/self/fd/" + std::to_string(descriptor), none);
    if (g_console.empty() || file != g_console) {
        return __real_ioctl(descriptor, request, argument);
    }
    const char* const name = request == VT_ACTIVATE ? "activate" : request == VT_WAITACTIVE ? "wait" : "?";
    Log_Level(5, "%s %d\n", name, static_cast<int>(reinterpret_cast<std::intptr_t>(argument)));
    errno = ENOTTY;
    return -1;
}
}
// NOLINTEND(bugprone-reserved-identifier)

// The thread sanitizer keeps a signal raised in a handler until the next call of the system returns.
#ifdef __SANITIZE_THREAD__
#define SKIP_WHERE_SIGNALS_ARE_HELD_BACK() GTEST_SKIP()
#else
#define SKIP_WHERE_SIGNALS_ARE_HELD_BACK() static_cast<void>(0)
#endif

namespace bootweave {
namespace {

using testing::HasSubstr;

constexpr const char* kMenuShown =
    "\033[35m(c)ontinue\033[0m\t\033[32m(e)xecute\033[0m\t\033[33m(t)roubleshoot\033[0m\t\033[31m(s)kip\033["
    "0m";

/// A pseudo-terminal; what the other side writes comes out here with plain newlines.
class Terminal {
  public:
    Terminal() : master_(::posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC)) {
        EXPECT_EQ(0, ::grantpt(master_.get()));
        EXPECT_EQ(0, ::unlockpt(master_.get()));
        name_ = ::ptsname(master_.get());
        slave_.Reset(::open(name_.c_str(), O_RDWR | O_NOCTTY | O_CLOEXEC));
        termios plain{};
        ::tcgetattr(slave_.get(), &plain);
        plain.c_oflag &= ~static_cast<tcflag_t>(OPOST);
        ::tcsetattr(slave_.get(), TCSANOW, &plain);
    }

    [[nodiscard]] const UniqueFd& slave() const { return slave_; }
    void Type(const std::string& keys) const {
        EXPECT_EQ(static_cast<ssize_t>(keys.size()), ::write(master_.get(), keys.data(), keys.size()));
    }
    /// Waits until keys are read one by one and without an echo: the question is there a moment earlier.
    void AwaitKeyMode() const {
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(20);
        while (LocalModes() != 0 && std::chrono::steady_clock::now() < deadline) {
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
    }
    void Answer(const std::string& keys) const {
        AwaitKeyMode();
        Type(keys);
    }
    /// What all others have opened of it is dead then. \return false without the right to do it
    [[nodiscard]] bool HangUp() {
        if (::ioctl(slave_.get(), TIOCVHANGUP) != 0) {
            return false;
        }
        slave_.Reset(::open(name_.c_str(), O_RDWR | O_NOCTTY | O_CLOEXEC));
        return true;
    }
    /// As its operator does with a key.
    void StopOutput() const { EXPECT_EQ(0, ::tcflow(slave_.get(), TCOOFF)); }
    /// Reads until `end` has come, or for 20 seconds.
    std::string ReadUntil(const std::string& end) {
        while (!text_.ends_with(end)) {
            pollfd readable{.fd = master_.get(), .events = POLLIN, .revents = 0};
            char buffer[1024];
            if (::poll(&readable, 1, 20'000) <= 0) {
                break;
            }
            const ssize_t count = ::read(master_.get(), buffer, sizeof buffer);
            if (count <= 0) {
                break;
            }
            text_.append(buffer, static_cast<std::size_t>(count));
            boost::algorithm::replace_all(text_, "\r\n", "\n");  // it has its default modes after a hang-up
        }
        return std::exchange(text_, {});
    }
    [[nodiscard]] bool EchoesLines() const { return LocalModes() == (ICANON | ECHO); }

  private:
    /// Opened anew each time: a session's end hangs up what is open.
    [[nodiscard]] tcflag_t LocalModes() const {
        const UniqueFd terminal(::open(name_.c_str(), O_RDWR | O_NOCTTY | O_CLOEXEC));
        termios now{};
        EXPECT_EQ(0, ::tcgetattr(terminal.get(), &now));
        return now.c_lflag & (ICANON | ECHO);
    }

    UniqueFd master_;
    std::string name_;
    UniqueFd slave_;
    std::string text_;
};

/// What a child answers: the exit status of AskIn.
enum Outcome { kProceeds = 10, kSkips = 11, kProceedsUnasked = 12 };

class ConsoleTest : public testing::Test {
  protected:
    void SetUp() override { FakePlatform::Reset(); }

    /// Asks about plugin "net" in a child on the terminal, the last of several times for the outcome; log
    /// lines come out on the terminal as well.
    ChildProcess Ask(const std::list<std::string>& required = {}, int times = 1) {
        auto child = ChildProcess::Fork([&] {
            ::dup2(terminal_.slave().get(), STDIN_FILENO);
            ::dup2(terminal_.slave().get(), STDOUT_FILENO);
            ::dup2(terminal_.slave().get(), STDERR_FILENO);
            ::setenv("PS1", "prompt>", 1);
            FakePlatform::EchoTo(STDOUT_FILENO);
            RunConfig config;
            config.interactive = true;
            config.interactive_mode_requires = required;
            ConsoleAnswer answer = AskBeforePlugin("net", config);
            while (--times > 0) {
                answer = AskBeforePlugin("net", config);
            }
            if (answer == ConsoleAnswer::kSkip) {
                return int{kSkips};
            }
            return config.interactive ? int{kProceeds} : int{kProceedsUnasked};
        });
        return std::move(*child);
    }
    static int StatusOf(ChildProcess& child) { return ExitStatus::FromRaw(*child.Wait()).code.value_or(-1); }

    const std::string question_ = std::string("current plugin: \033[36mnet\n") + kMenuShown + "\033[?25l";
    Terminal terminal_;
};

TEST_F(ConsoleTest, ExecuteRunsThePluginAndShowsTheChoice) {
    ChildProcess child = Ask();
    EXPECT_EQ(question_, terminal_.ReadUntil(question_));
    terminal_.Answer("e");
    EXPECT_EQ(
        "\033[?25h\r\033[37m(c)ontinue\033[0m\t\033[32m(e)xecute\033[0m\t\033[37m(t)roubleshoot\033[0m\t"
        "\033[37m(s)kip\033[0m\n",
        terminal_.ReadUntil("\n"));
    EXPECT_EQ(kProceeds, StatusOf(child));
    EXPECT_TRUE(terminal_.EchoesLines());
}

TEST_F(ConsoleTest, SkipSaysSoBeforeTheMenuIsDrawnAgain) {
    ChildProcess child = Ask();
    terminal_.ReadUntil(question_);
    terminal_.Answer("S");
    EXPECT_EQ(
        "\033[?25h5 skipping plugin net (interactive mode request)\n"
        "\r\033[37m(c)ontinue\033[0m\t\033[37m(e)xecute\033[0m\t\033[37m(t)roubleshoot\033[0m\t\033[31m(s)"
        "kip\033[0m"
        "\n",
        terminal_.ReadUntil("(s)kip\033[0m\n"));
    EXPECT_EQ(kSkips, StatusOf(child));
}

TEST_F(ConsoleTest, ContinueAsksNoMore) {
    ChildProcess child = Ask();
    terminal_.ReadUntil(question_);
    terminal_.Answer("c");
    EXPECT_EQ(
        "\033[?25h\r\033[35m(c)ontinue\033[0m\t\033[37m(e)xecute\033[0m\t\033[37m(t)roubleshoot\033[0m\t"
        "\033[37m(s)kip\033[0m\n",
        terminal_.ReadUntil("\n"));
    EXPECT_EQ(kProceedsUnasked, StatusOf(child));
}

TEST_F(ConsoleTest, QuestionsAreOnTheFirstTerminalAndTheBootGoesOnOnTheEleventh) {
    const TempDir dir;
    g_console = dir.WriteFile("console", "");
    SystemCalls::Redirect(dir.path().c_str());
    ChildProcess child = Ask();
    EXPECT_EQ("5 activate 1\n5 wait 1\n" + question_, terminal_.ReadUntil(question_));
    terminal_.Answer("c");
    EXPECT_THAT(terminal_.ReadUntil("5 wait 11\n"),
                testing::EndsWith("(s)kip\033[0m\n5 activate 11\n5 wait 11\n"));
    EXPECT_EQ(kProceedsUnasked, StatusOf(child));
    SystemCalls::Reset();
    g_console.clear();
}

TEST_F(ConsoleTest, OtherKeysDoNothingAndAreNotEchoed) {
    ChildProcess child = Ask();
    terminal_.ReadUntil(question_);
    terminal_.Answer("x\n1\033[A e");
    EXPECT_THAT(terminal_.ReadUntil("\n"), testing::StartsWith("\033[?25h\r"));
    EXPECT_EQ(kProceeds, StatusOf(child));
}

TEST_F(ConsoleTest, TroubleshootOpensAShellAndThenProceedsWithoutANewQuestion) {
    ChildProcess child = Ask();
    terminal_.ReadUntil(question_);
    terminal_.Answer("t");
    EXPECT_THAT(terminal_.ReadUntil("(s)kip\033[0m\n"), HasSubstr("\033[33m(t)roubleshoot"));
    terminal_.Type("echo $0-$(ls /proc/self/fd | wc -l); tty; exit\n");
    const std::string shell = terminal_.ReadUntil("\033[2K");
    EXPECT_THAT(shell, HasSubstr("/bin/sh-4\n"));  // three, and the directory that ls reads
    EXPECT_THAT(shell, HasSubstr("/dev/pts/"));
    EXPECT_THAT(shell, testing::EndsWith("\033[2K"));
    EXPECT_EQ(kProceeds, StatusOf(child));
}

TEST_F(ConsoleTest, BehindATroubleshootingShellTheNextPluginIsAskedAbout) {
    ChildProcess child = Ask({}, 2);
    terminal_.ReadUntil(question_);
    terminal_.Answer("t");
    terminal_.ReadUntil("(s)kip\033[0m\n");
    terminal_.Type("stty -echo; exit\n");
    EXPECT_THAT(terminal_.ReadUntil(question_), testing::EndsWith("\033[2K" + question_));
    terminal_.Answer("s");
    EXPECT_THAT(terminal_.ReadUntil("(s)kip\033[0m\n"),
                testing::StartsWith("\033[?25h5 skipping plugin net (interactive mode request)\n\r"));
    EXPECT_EQ(kSkips, StatusOf(child));
    EXPECT_TRUE(terminal_.EchoesLines());
}

// The end of a session hangs up a console for everybody who has it open, and a pseudo-terminal only on
// request.
TEST_F(ConsoleTest, ATerminalThatTheShellsEndHasHungUpIsOpenedAnew) {
    ChildProcess child = Ask({}, 2);
    terminal_.ReadUntil(question_);
    terminal_.Answer("t");
    terminal_.ReadUntil("(s)kip\033[0m\n");
    terminal_.Type("echo r''eady\n");
    terminal_.ReadUntil("ready\nprompt>");
    if (!terminal_.HangUp()) {
        terminal_.Type("exit\n");
        terminal_.ReadUntil(question_);
        terminal_.Answer("e");
        StatusOf(child);
        GTEST_SKIP() << "only root may hang a terminal up";
    }
    EXPECT_THAT(terminal_.ReadUntil(question_), testing::EndsWith("\033[2K" + question_));
    terminal_.Answer("s");
    EXPECT_THAT(terminal_.ReadUntil("(s)kip\033[0m\n"), testing::StartsWith("\033[?25h"));
    EXPECT_EQ(kSkips, StatusOf(child));
    EXPECT_TRUE(terminal_.EchoesLines());
}

TEST_F(ConsoleTest, ASignalThatEndsTheProgramLeavesTheTerminalFitForUse) {
    SKIP_WHERE_SIGNALS_ARE_HELD_BACK();
    for (const int signal : {SIGHUP, SIGINT, SIGQUIT, SIGTERM}) {
        ChildProcess child = Ask();
        terminal_.ReadUntil(question_);
        terminal_.AwaitKeyMode();
        EXPECT_EQ(0, ::kill(child.pid(), signal));
        EXPECT_EQ("\033[?25h", terminal_.ReadUntil("\033[?25h")) << signal;
        EXPECT_EQ(signal, ExitStatus::FromRaw(*child.Wait()).signal);
        EXPECT_TRUE(terminal_.EchoesLines()) << signal;
    }
}

TEST_F(ConsoleTest, ASignalEndsTheProgramWhoseOutputIsStopped) {
    SKIP_WHERE_SIGNALS_ARE_HELD_BACK();
    ChildProcess child = Ask();
    terminal_.ReadUntil(question_);
    terminal_.AwaitKeyMode();
    terminal_.StopOutput();
    EXPECT_EQ(0, ::kill(child.pid(), SIGTERM));
    EXPECT_EQ(SIGTERM, ExitStatus::FromRaw(*child.Wait()).signal);
    EXPECT_TRUE(terminal_.EchoesLines());
}

TEST_F(ConsoleTest, ASignalThatIsIgnoredStaysIgnored) {
    const auto before = std::signal(SIGHUP, SIG_IGN);
    ChildProcess child = Ask();
    std::signal(SIGHUP, before);
    terminal_.ReadUntil(question_);
    EXPECT_EQ(0, ::kill(child.pid(), SIGHUP));
    terminal_.Answer("e");
    EXPECT_THAT(terminal_.ReadUntil("\n"), testing::StartsWith("\033[?25h\r"));
    EXPECT_EQ(kProceeds, StatusOf(child));
}

TEST_F(ConsoleTest, BehindAnAnswerSignalsDoWhatTheyDidBefore) {
    auto child = ChildProcess::Fork([&] {
        ::dup2(terminal_.slave().get(), STDIN_FILENO);
        ::dup2(terminal_.slave().get(), STDOUT_FILENO);
        static constexpr int kEndedByHandler = 42;
        std::signal(SIGTERM, [](int) { ::_exit(kEndedByHandler); });
        RunConfig config;
        static_cast<void>(AskBeforePlugin("net", config));
        ::raise(SIGTERM);
        return 0;
    });
    terminal_.ReadUntil(question_);
    terminal_.Answer("e");
    EXPECT_EQ(42, StatusOf(*child));
}

TEST_F(ConsoleTest, NoQuestionComesBeforeTheRequiredPluginsAreReached) {
    ChildProcess one_missing = Ask({"net", "disk", "net"});
    EXPECT_EQ(kProceeds, StatusOf(one_missing));
    ChildProcess last = Ask({"net", "net"});
    EXPECT_EQ(kProceeds, StatusOf(last));
    terminal_.Type("\n");
    EXPECT_EQ("\n", terminal_.ReadUntil("\n"));  // nothing but this echo has come out
}

TEST_F(ConsoleTest, InputThatIsNoTerminalIsSaidThreeTimesAndReadAllTheSame) {
    Pipe input = Pipe::Create();
    Pipe output = Pipe::Create();
    auto child = ChildProcess::Fork([&] {
        ::dup2(input.read_end.get(), STDIN_FILENO);
        ::dup2(output.write_end.get(), STDOUT_FILENO);
        FakePlatform::EchoTo(STDOUT_FILENO);
        RunConfig config;
        return static_cast<int>(AskBeforePlugin("net", config));
    });
    EXPECT_EQ(1, ::write(input.write_end.get(), "e", 1));
    output.write_end.Reset();
    std::string text;
    char buffer[1024];
    for (ssize_t count = 0; (count = ::read(output.read_end.get(), buffer, sizeof buffer)) > 0;) {
        text.append(buffer, static_cast<std::size_t>(count));
    }
    EXPECT_THAT(text, HasSubstr("2 unable to get terminal io state.\n2 unable to set terminal io state.\n"
                                "2 unable to restore terminal io state.\n\033[?25h"));
    EXPECT_EQ(0, child->Wait());
}

}  // namespace
}  // namespace bootweave
