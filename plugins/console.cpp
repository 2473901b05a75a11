// SPDX-License-Identifier: Apache-2.0
#include "plugins/console.h"

#include <array>
#include <cctype>
#include <csignal>
#include <ctime>
#include <optional>
#include <string_view>

#include <fcntl.h>
#include <linux/vt.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <termios.h>
#include <unistd.h>

#include "platform/log.h"
#include "plugins/troubleshooting_shell.h"
#include "util/retry.h"
#include "util/signals.h"
#include "util/unique_fd.h"

namespace bootweave {
namespace {

constexpr int kQuestionTerminal = 1;
constexpr int kBootTerminal = 11;

constexpr int kCyan = 6;
constexpr int kWhite = 7;

struct MenuItem {
    char key;
    int colour;
    const char* text;
};

constexpr std::array kMenu{
    MenuItem{'c', 5, "(c)ontinue"},
    MenuItem{'e', 2, "(e)xecute"},
    MenuItem{'t', 3, "(t)roubleshoot"},
    MenuItem{'s', 1, "(s)kip"},
};

void Print(std::string_view text) {
    while (!text.empty()) {
        const ssize_t written =
            RetryOnEintr([&] { return ::write(STDOUT_FILENO, text.data(), text.size()); });
        if (written < 0) {
            return;
        }
        text.remove_prefix(static_cast<std::size_t>(written));
    }
}

std::string Colour(int number) {
    return "\033[" + std::to_string(30 + number) + "m";
}

/// The four items in a line; with a key, all but the chosen one are white.
std::string MenuLine(std::optional<char> chosen) {
    constexpr const char* kResetColour = "\033[0m";
    std::string line;
    const char* separator = "";
    for (const MenuItem& item : kMenu) {
        const bool own_colour = !chosen.has_value() || item.key == *chosen;
        line += separator + Colour(own_colour ? item.colour : kWhite) + item.text + kResetColour;
        separator = "\t";
    }
    return line;
}

void SwitchToTerminal(int number) {
    const UniqueFd console(
        RetryOnEintr([] { return ::open("/dev/console", O_RDWR | O_NOCTTY | O_CLOEXEC); }));
    if (!console.valid()) {
        return;
    }
    if (::ioctl(console.get(), VT_ACTIVATE, number) != 0) {
        RetryOnEintr([&] { return ::ioctl(console.get(), VT_WAITACTIVE, number); });
    }
}

constexpr std::string_view kShowCursor = "\033[?25h";
constexpr tcflag_t kLineMode = ICANON | ECHO;

/// A signal that ends the program must not leave a terminal behind that shows neither keys nor cursor. Makes
/// async-signal-safe calls only.
extern "C" void RestoreTerminalAndEnd(int signal) {
    termios attributes{};
    if (::tcgetattr(STDIN_FILENO, &attributes) == 0) {
        attributes.c_lflag |= kLineMode;
        ::tcsetattr(STDIN_FILENO, TCSANOW, &attributes);
    }
    pollfd output{.fd = STDOUT_FILENO, .events = POLLOUT, .revents = 0};
    if (::poll(&output, 1, 0) == 1) {  // output that was stopped must not hold up the end
        Print(kShowCursor);
    }
    ::raise(signal);  // the default action by now, once this handler returns
}

/// While it lives, signals that would end the program restore the terminal first. Ignored ones stay ignored.
class RestoreOnSignal {
  public:
    RestoreOnSignal() {
        struct sigaction restore {};
        restore.sa_handler = RestoreTerminalAndEnd;
        restore.sa_flags = static_cast<int>(SA_RESETHAND | SA_RESTART);
        sigfillset(&restore.sa_mask);  // SIGTTOU too: it would stop a background process that sets modes
        for (std::size_t i = 0; i < kSignals.size(); ++i) {
            ::sigaction(kSignals[i], nullptr, &before_[i]);
            if (before_[i].sa_handler != SIG_IGN) {
                ChangeSignal(kSignals[i], restore);
            }
        }
    }
    ~RestoreOnSignal() {
        for (std::size_t i = 0; i < kSignals.size(); ++i) {
            ChangeSignal(kSignals[i], before_[i]);
        }
    }
    RestoreOnSignal(const RestoreOnSignal&) = delete;
    RestoreOnSignal& operator=(const RestoreOnSignal&) = delete;

  private:
    static constexpr std::array kSignals{SIGHUP, SIGINT, SIGQUIT, SIGTERM};

    std::array<struct sigaction, kSignals.size()> before_{};
};

/// Takes keys one by one and unseen, for a scope, and hides the cursor meanwhile.
class KeyByKey {
  public:
    KeyByKey() {
        Print("\033[?25l");
        if (::tcgetattr(STDIN_FILENO, &attributes_) != 0) {
            Log_Level(2, "unable to get terminal io state.\n");
        }
        attributes_.c_lflag &= ~kLineMode;
        if (::tcsetattr(STDIN_FILENO, TCSANOW, &attributes_) != 0) {
            Log_Level(2, "unable to set terminal io state.\n");
        }
    }
    /// The two modes are switched on, whatever they were before: a console is left fit for a shell.
    ~KeyByKey() {
        attributes_.c_lflag |= kLineMode;
        if (::tcsetattr(STDIN_FILENO, TCSANOW, &attributes_) != 0) {
            Log_Level(2, "unable to restore terminal io state.\n");
        }
        Print(kShowCursor);
    }
    KeyByKey(const KeyByKey&) = delete;
    KeyByKey& operator=(const KeyByKey&) = delete;

  private:
    RestoreOnSignal restore_on_signal_;  // first: there before the terminal changes, and until it is restored
    termios attributes_{};
};

/// The end of input is no answer, and nothing tells when there is more behind it, from another writer or for
/// a process that is in the foreground again: look now and then.
void Idle() {
    const timespec pause{.tv_sec = 1, .tv_nsec = 0};
    ::nanosleep(&pause, nullptr);
}

/// Blocks until one of the menu's keys comes; ignores everything else.
char ReadKey() {
    for (;;) {
        char character = 0;
        if (RetryOnEintr([&] { return ::read(STDIN_FILENO, &character, 1); }) != 1) {
            Idle();
            continue;
        }
        const char key = static_cast<char>(std::tolower(static_cast<unsigned char>(character)));
        for (const MenuItem& item : kMenu) {
            if (key == item.key) {
                return key;
            }
        }
    }
}

char AskForKey(const std::string& plugin) {
    Print("current plugin: " + Colour(kCyan) + plugin + "\n");
    Print(MenuLine(std::nullopt));
    const KeyByKey mode;
    return ReadKey();
}

/// Whether it is time to ask: questions start with the plugin after the last one that had to be reached.
bool HasReachedRequired(const std::string& plugin, RunConfig& config) {
    if (!config.interactive_mode_requires.empty()) {
        config.interactive_mode_requires.remove(plugin);
        if (config.interactive_mode_requires.empty()) {
            SwitchToTerminal(kQuestionTerminal);
        }
        return false;
    }
    SwitchToTerminal(kQuestionTerminal);
    return true;
}

}  // namespace

ConsoleAnswer AskBeforePlugin(const std::string& plugin, RunConfig& config) {
    if (!HasReachedRequired(plugin, config)) {
        return ConsoleAnswer::kProceed;
    }
    const char key = AskForKey(plugin);
    if (key == 's') {
        Log_Level(5, "skipping plugin %s (interactive mode request)\n", plugin.c_str());
    }
    Print("\r" + MenuLine(key) + "\n");
    switch (key) {
        case 's':
            return ConsoleAnswer::kSkip;
        case 't':
            RunTroubleshootingShell();
            Print("\033[2K");
            break;
        case 'c':
            config.interactive = false;
            SwitchToTerminal(kBootTerminal);
            break;
        default:
            break;
    }
    return ConsoleAnswer::kProceed;
}

}  // namespace bootweave
