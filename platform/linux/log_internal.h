// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string_view>

/// \file
/// What tests of the log put in the place of the host's own. The program never changes any of it.

namespace bootweave {

/// Where messages leave the process.
struct LogPaths {
    const char* syslog_socket = "/dev/log";
    const char* kernel_log = "/dev/kmsg";
};
/// Changed only while no other thread logs.
extern LogPaths g_log_paths;

/// What Log_SetProductInfo left: its texts with a blank between each two.
std::string_view LogProductForTest();

/// Puts the log back to what it is before it is set up, with nothing dropped and all patience left. Only
/// while no other thread logs.
void ResetLogForTest();

}  // namespace bootweave
