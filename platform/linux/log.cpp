// SPDX-License-Identifier: Apache-2.0
#include "platform/log.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstdarg>
#include <cstring>
#include <memory>
#include <new>
#include <optional>
#include <string_view>

#include <syslog.h>
#include <unistd.h>

#include "platform/linux/log_dictionary.h"
#include "platform/linux/log_internal.h"
#include "platform/linux/log_stream.h"
#include "platform/linux/log_syslog.h"
#include "platform/linux/log_text.h"
#include "platform/product_state.h"
#include "util/harmless_text.h"
#include "util/scope_guard.h"

namespace bootweave {
namespace {

constexpr int kErrorLevel = 2;
constexpr int kWarningLevel = 3;
constexpr int kNoticeLevel = 5;
constexpr int kNever = -1;

/// The name in front of messages, copied; its own memory, so that nothing is destroyed under a late thread.
class Identifier {
  public:
    /// \return false, changing nothing, for a name that is empty, too long or has control characters
    bool Set(std::string_view name) {
        LineBuffer harmless;
        AppendHarmless(harmless, name);
        if (name.empty() || name.size() > text_.size() || harmless.view() != name) {
            return false;
        }
        size_ = name.copy(text_.data(), text_.size());
        return true;
    }
    [[nodiscard]] std::string_view view() const { return {text_.data(), size_}; }

  private:
    std::array<char, 48> text_{};
    std::size_t size_ = 0;
};

/// The level up to which an output takes messages, by its name in a dictionary; nothing for an unknown name.
std::optional<int> LevelNamed(std::string_view name) {
    if (name == "error") {
        return kErrorLevel;
    }
    if (name == "warning") {
        return kWarningLevel;
    }
    if (name == "info") {
        return kNoticeLevel;
    }
    return std::nullopt;
}

int Severity(int level) {
    if (level <= kErrorLevel) {
        return LOG_ERR;
    }
    return level == kWarningLevel ? LOG_WARNING : LOG_NOTICE;
}

std::string_view OrEmpty(const char* text) {
    return text != nullptr ? text : "";
}

}  // namespace
}  // namespace bootweave

/// Writes lines to standard output.
struct LogOutput {
    bootweave::Identifier identifier;
    int level = bootweave::kNever;
    bool stamps = false;
    bool milliseconds = false;
};

namespace bootweave {
namespace {

struct SyslogOutput {
    Identifier identifier;
    int level = kNever;
};

// Set by one thread before others exist, then only read. Nothing here is ever destroyed.
constinit SyslogOutput g_syslog;
constinit LogOutput* g_stdio = nullptr;
constinit int g_stderr_level = kNever;

/// What the program is, for whoever looks into a core file.
[[gnu::used]] constinit std::array<char, 160> g_product{};

/// One message on its way to the outputs.
struct Message {
    int severity;
    pid_t pid;
    std::chrono::system_clock::time_point time;
    std::string_view text;
};

void WriteToStream(int stream, const LogOutput& output, const Message& message) {
    LineBuffer line;
    if (output.stamps) {
        AppendUtcStamp(line, message.time, output.milliseconds);
        line.Append(" ");
    }
    line.Append(output.identifier.view());
    line.Append("[");
    line.AppendNumber(static_cast<unsigned>(message.pid));
    line.Append("]: ");
    AppendHarmless(line, WithoutTrailingNewlines(message.text));
    line.End('\n');
    WriteLine(stream, line.view(), message.pid);
}

/// Writes to standard output and standard error, as far as the level goes there.
void WriteToStreams(int level, const Message& message) {
    if (g_stdio == nullptr) {
        return;
    }
    if (level <= g_stdio->level) {
        WriteToStream(STDOUT_FILENO, *g_stdio, message);
    }
    if (level <= g_stderr_level) {
        WriteToStream(STDERR_FILENO, *g_stdio, message);
    }
}

/// Sends to the system log and tells the other outputs, too, when that has lost messages.
void SendToSyslogAndReport(std::string_view identifier, const Message& message) {
    const std::int32_t dropped = SendToSyslog({.severity = message.severity,
                                               .identifier = identifier,
                                               .pid = message.pid,
                                               .time = message.time,
                                               .text = message.text});
    if (dropped > 0) {
        LineBuffer text;
        text.AppendFormatted(kDroppedFormat, dropped);
        WriteToStreams(kWarningLevel, {LOG_WARNING, message.pid, message.time, text.view()});
    }
}

Message MakeMessage(int severity, const LineBuffer& text) {
    return {severity, ::getpid(), std::chrono::system_clock::now(), text.view()};
}

__attribute__((format(printf, 2, 0))) void LogMessage(int level, const char* format, std::va_list arguments) {
    level = std::max(level, 0);  // below is never
    const bool to_syslog = level <= g_syslog.level;
    const bool to_stdio = g_stdio != nullptr && level <= std::max(g_stdio->level, g_stderr_level);
    if (!to_syslog && !to_stdio) {
        return;
    }
    LineBuffer text;
    text.AppendFormattedV(format, arguments);
    const Message message = MakeMessage(Severity(level), text);
    WriteToStreams(level, message);
    if (to_syslog) {
        SendToSyslogAndReport(g_syslog.identifier.view(), message);
    }
}

}  // namespace

std::string_view LogProductForTest() {
    return g_product.data();
}

void ResetLogForTest() {
    const std::unique_ptr<LogOutput> output(g_stdio);
    g_stdio = nullptr;
    g_syslog = {};
    g_stderr_level = kNever;
    g_product = {};
    ResetStreamsForTest();
    ResetSyslogForTest();
}

}  // namespace bootweave

using namespace bootweave;

void Log_SetProductInfo(const char* name, const char* version, const char* build_number,
                        const char* compilation_option) {
    LineBuffer text;
    for (const char* part : {name, version, build_number, compilation_option}) {
        text.Append(text.view().empty() ? "" : " ");
        text.Append(OrEmpty(part));
    }
    g_product = {};
    text.view().copy(g_product.data(), g_product.size() - 1);
}

bool Log_InitWithSyslogInt(const char* identifier, const Dictionary* dictionary, int flags) {
    if (dictionary == nullptr || dictionary->broken || flags != 0) {
        return false;
    }
    const auto name = dictionary->Text("log.syslogID", OrEmpty(identifier));
    const auto level = dictionary->Text("log.syslogLevel", "info");
    const auto number = level.has_value() ? LevelNamed(*level) : std::nullopt;
    SyslogOutput output;
    if (!name.has_value() || !output.identifier.Set(*name) || !number.has_value()) {
        return false;
    }
    output.level = *number;
    SetSyslogTimeZone();
    g_syslog = output;
    return true;
}

LogOutput* Log_NewStdioOutput(const char* identifier, const Dictionary* dictionary, int flags) {
    if (dictionary == nullptr || dictionary->broken || flags != 0) {
        return nullptr;
    }
    const auto level = dictionary->Text("log.stdoutLevel", "info");
    const auto stamps = dictionary->Flag("log.useTimeStamps.stdio", false);
    const auto milliseconds = dictionary->Flag("log.useMilliseconds.stdio", false);
    const auto number = level.has_value() ? LevelNamed(*level) : std::nullopt;
    std::unique_ptr<LogOutput> output(new (std::nothrow) LogOutput);
    if (output == nullptr || !output->identifier.Set(OrEmpty(identifier)) || !number.has_value() ||
        !stamps.has_value() || !milliseconds.has_value()) {
        return nullptr;
    }
    output->level = *number;
    output->stamps = *stamps;
    output->milliseconds = *milliseconds;
    IgnoreWriteSignals();
    return output.release();
}

bool Log_AddOutput(LogOutput* output) {
    if (output == nullptr || output == g_stdio) {
        return false;
    }
    if (g_stdio != nullptr) {
        const std::unique_ptr<LogOutput> refused(output);
        return false;
    }
    g_stdio = output;
    return true;
}

void Log_SetStderrLevel(LogOutput* /*output*/, int level) {
    g_stderr_level = level;
}

void Log_Level(int level, const char* format, ...) {
    const ScopeGuard keep_errno([saved = errno] { errno = saved; });
    std::va_list arguments;
    va_start(arguments, format);
    LogMessage(level, format, arguments);
    va_end(arguments);
}

void Warning(const char* format, ...) {
    const ScopeGuard keep_errno([saved = errno] { errno = saved; });
    std::va_list arguments;
    va_start(arguments, format);
    LogMessage(kWarningLevel, format, arguments);
    va_end(arguments);
}

void Log_Syslog(int priority, const char* format, ...) {
    const ScopeGuard keep_errno([saved = errno] { errno = saved; });
    LineBuffer text;
    std::va_list arguments;
    va_start(arguments, format);
    text.AppendFormattedV(format, arguments);
    va_end(arguments);
    const std::string_view identifier = g_syslog.identifier.view();
    SendToSyslogAndReport(identifier.empty() ? ProductState_GetName() : identifier,
                          MakeMessage(LOG_PRI(priority), text));
}
