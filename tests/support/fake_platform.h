// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <ostream>
#include <string>
#include <vector>

/// \file
/// A platform that captures what the program says to its host and answers what a test wants. It implements
/// all of platform/include but the command framework, the poll loop and spawning, which the rooms above use
/// as they are.
///
/// Fork: a child may go on using it, also when other threads were logging at that moment.

namespace bootweave {

/// One captured message, formatted.
struct LogMessage {
    int level;
    std::string text;
    bool operator==(const LogMessage&) const = default;
};

/// How a failed comparison shows a message.
inline void PrintTo(const LogMessage& message, std::ostream* stream) {
    *stream << message.level << " \"" << message.text << "\"";
}

/// What the fake captures and answers, process-wide and safe from any thread. Reset() before each test.
class FakePlatform {
  public:
    static void Reset();

    /// Log_Level and Warning (level 3), in order.
    static std::vector<LogMessage> log();
    /// The records given to the kernel's log.
    static std::vector<std::string> kernel_log();
    /// Log_Syslog messages; `level` is the priority.
    static std::vector<LogMessage> syslog();
    /// System alerts.
    static std::vector<std::string> alerts();
    /// "progress: T", "status: T" and "step", in order.
    static std::vector<std::string> screen();
    /// Calls that set logging up, and those of the configuration store, by name with their arguments:
    /// "Dict_SetBool(key, true)", "Log_InitWithSyslogInt(bootweave, {key=value, key=value}, 0)" with the
    /// dictionary as it was then, "Log_AddOutput(stdio)", "Log_SetStderrLevel(null, -1)", "EndAutoConf()".
    /// Product information is "bootweave", "9.8.7", "build-6", "debug".
    static std::vector<std::string> calls();

    /// What the next write to the kernel's log raises: nothing, a host exception with `text`, or something
    /// that is no standard exception.
    enum class KernelLogFailure { kNone, kHostException, kOther };
    static void FailKernelLog(KernelLogFailure failure, const std::string& text);
    /// Which of the calls that set logging up fails, by name; empty is none.
    static void FailLogSetup(const std::string& call);
    static void SetProcessorCount(std::uint32_t count);
    /// Also writes every message to this descriptor as it comes, for a forked child; -1 is none. One write a
    /// line: "LEVEL text" for the log, and "syslog PRIORITY text", "kernel text", "alert text", "screen
    /// text".
    static void EchoTo(int descriptor);
};

}  // namespace bootweave
