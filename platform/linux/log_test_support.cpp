// SPDX-License-Identifier: Apache-2.0
#include "platform/linux/log_test_support.h"

#include <chrono>
#include <cstring>
#include <fstream>
#include <sstream>
#include <string_view>
#include <thread>
#include <utility>

#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include "platform/linux/log_internal.h"
#include "platform/log.h"
#include "util/retry.h"

namespace bootweave {
namespace {

constexpr int kMinuteMs = 60'000;
constexpr unsigned kMinute = 60;
constexpr char kFiller[] = "<29>Jan  1 00:00:00 filler";

sockaddr_un AddressOf(const std::string& path) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    path.copy(address.sun_path, sizeof address.sun_path - 1);
    return address;
}

/// Whether `text` has at `start` what `form` shows: 0 a digit, A and a letters, _ a digit or blank, else
/// itself.
bool HasForm(std::string_view text, std::size_t start, std::string_view form) {
    if (start > text.size() || text.size() - start < form.size()) {
        return false;
    }
    for (std::size_t index = 0; index < form.size(); ++index) {
        const char is = text[start + index];
        const char shown = form[index];
        const bool digit = is >= '0' && is <= '9';
        const bool fits = shown == '0'   ? digit
                          : shown == 'A' ? is >= 'A' && is <= 'Z'
                          : shown == 'a' ? is >= 'a' && is <= 'z'
                          : shown == '_' ? digit || is == ' '
                                         : is == shown;
        if (!fits) {
            return false;
        }
    }
    return true;
}

}  // namespace

LogDaemon::LogDaemon(std::string path, int type) : path_(std::move(path)) {
    ::unlink(path_.c_str());
    socket_.Reset(::socket(AF_UNIX, type | SOCK_CLOEXEC, 0));
    const sockaddr_un address = AddressOf(path_);
    EXPECT_EQ(0, ::bind(socket_.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address));
    if (type == SOCK_STREAM) {
        EXPECT_EQ(0, ::listen(socket_.get(), 0));
    }
}

std::string LogDaemon::ReceiveRaw() {
    pollfd watched{.fd = socket_.get(), .events = POLLIN, .revents = 0};
    if (RetryOnEintr([&] { return ::poll(&watched, 1, kMinuteMs); }) != 1) {
        ADD_FAILURE() << "no message came";
        return "";
    }
    std::string message(1 << 20, '\0');
    const ssize_t size = ::recv(socket_.get(), message.data(), message.size(), 0);
    message.resize(size < 0 ? 0 : static_cast<std::size_t>(size));
    return message;
}

std::string LogDaemon::Receive() {
    return WithoutSyslogStamp(ReceiveRaw());
}

std::vector<std::string> LogDaemon::Drain() {
    std::vector<std::string> messages;
    std::string message(1 << 16, '\0');
    ssize_t size = 0;
    while ((size = ::recv(socket_.get(), message.data(), message.size(), MSG_DONTWAIT)) >= 0) {
        const std::string text = message.substr(0, static_cast<std::size_t>(size));
        if (text != kFiller) {
            messages.push_back(WithoutSyslogStamp(text));
        }
    }
    return messages;
}

void LogDaemon::Fill() {
    const sockaddr_un address = AddressOf(path_);
    ssize_t sent = 0;
    do {
        // Each from a socket of its own: only the daemon's queue shall set the limit, not a sender's buffer.
        const UniqueFd sender(::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0));
        sent = ::sendto(sender.get(), kFiller, sizeof kFiller - 1, MSG_DONTWAIT,
                        reinterpret_cast<const sockaddr*>(&address), sizeof address);
    } while (sent >= 0);
    EXPECT_EQ(EAGAIN, errno);
}

StdoutToFile::StdoutToFile(const std::string& path) : saved_(::fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, 100)) {
    std::fflush(stdout);
    const UniqueFd file(::open(path.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0644));
    ::dup2(file.get(), STDOUT_FILENO);
}

StdoutToFile::~StdoutToFile() {
    std::fflush(stdout);
    ::dup2(saved_.get(), STDOUT_FILENO);
}

std::string WithoutSyslogStamp(const std::string& message) {
    const std::size_t start = message.find('>') + 1;
    const std::string_view form = "Aaa _0 00:00:00 ";
    return HasForm(message, start, form) ? message.substr(0, start) + message.substr(start + form.size())
                                         : message;
}

std::vector<std::string> LinesWithoutStamp(const std::string& text) {
    const std::string_view form = "0000-00-00T00:00:00.000Z ";
    std::vector<std::string> lines;
    std::istringstream input(text);
    for (std::string line; std::getline(input, line);) {
        lines.push_back(HasForm(line, 0, form) ? line.substr(form.size()) : line);
    }
    return lines;
}

int RunInChild(const std::function<int()>& body, pid_t* pid) {
    std::fflush(stdout);
    const pid_t child = ::fork();
    if (child == 0) {
        ::alarm(kMinute);
        ::_exit(body());
    }
    if (pid != nullptr) {
        *pid = child;
    }
    int status = -1;
    RetryOnEintr([&] { return ::waitpid(child, &status, 0); });
    return status;
}

void WaitUntilSleeping(pid_t tid) {
    const auto limit = std::chrono::steady_clock::now() + std::chrono::minutes(1);
    while (std::chrono::steady_clock::now() < limit) {
        std::ifstream file("/proc/self/task/" + std::to_string(tid) + "/stat");
        std::string stat;
        std::getline(file, stat);
        const std::size_t name_end = stat.rfind(") ");
        if (name_end == std::string::npos || stat.substr(name_end + 2, 1) == "S") {
            return;
        }
        std::this_thread::yield();
    }
}

LogFixture::LogFixture() {
    ResetLogForTest();
    g_log_paths = {.syslog_socket = socket_path_.c_str(), .kernel_log = kernel_log_path_.c_str()};
}

LogFixture::~LogFixture() {
    ResetLogForTest();
    g_log_paths = {};
}

void LogFixture::SetUpLog() {
    Dictionary* const dictionary = Dictionary_Create();
    Dict_SetString(dictionary, "log.syslogID", "bootweave");
    Dict_SetString(dictionary, "log.syslogLevel", "info");
    ASSERT_TRUE(Log_InitWithSyslogInt("bootweave", dictionary, 0));
    Dictionary_Clear(dictionary);
    Dict_SetString(dictionary, "log.stdoutLevel", "info");
    Dict_SetBool(dictionary, "log.useTimeStamps.stdio", true);
    Dict_SetBool(dictionary, "log.useMilliseconds.stdio", true);
    LogOutput* const output = Log_NewStdioOutput("bootweave", dictionary, 0);
    ASSERT_NE(nullptr, output);
    ASSERT_TRUE(Log_AddOutput(output));
    Log_SetStderrLevel(nullptr, -1);
    Dictionary_Free(dictionary);
}

std::string LogFixture::Origin(pid_t pid) {
    return "bootweave[" + std::to_string(pid) + "]: ";
}

}  // namespace bootweave
