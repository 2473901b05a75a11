// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <chrono>
#include <cstdint>
#include <string_view>

#include <sys/types.h>

/// \file
/// The system log's client: one datagram to /dev/log for each message.
///
/// Not libc's syslog, which takes a lock and keeps one connection for the whole process. Each process sends
/// through a socket of its own, made with its first message: what a fork leaves behind in the child, closed
/// or reused numbers included, is never touched. The socket is not connected, so a daemon that was started
/// anew gets the very next message. Nobody listening loses the message; a daemon that reads slowly is waited
/// for within Patience.

namespace bootweave {

/// One message and who sends it when.
struct SyslogMessage {
    int severity;                 ///< 0 to 7
    std::string_view identifier;  ///< without control characters
    pid_t pid;                    ///< this process
    std::chrono::system_clock::time_point time;
    std::string_view text;  ///< as it is; newlines at its end are kept
};

/// Sends a message. Any thread, and the child of a fork; takes no lock, never raises.
///
/// When earlier messages were dropped because the daemon was slow, a line that says how many goes first.
/// \return how many that line reported; 0 when there was none to send
[[nodiscard]] std::int32_t SendToSyslog(const SyslogMessage& message);

/// What that line says, printf style with their number.
inline constexpr char kDroppedFormat[] =
    "Messages not sent to the system log, its daemon reads too slowly: %d";

/// Reads the local time zone for the time stamps to come, which are UTC before. Takes libc's time-zone lock.
void SetSyslogTimeZone();

/// Forgets the socket, what was dropped and what was waited, for tests.
void ResetSyslogForTest();

}  // namespace bootweave
