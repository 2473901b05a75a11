// SPDX-License-Identifier: Apache-2.0
#include "driver/syslog_reload.h"

#include <cerrno>
#include <csignal>
#include <optional>
#include <sstream>

#include <sys/stat.h>

#include "platform/log.h"
#include "util/error_text.h"
#include "util/read_file.h"
#include "util/shell.h"

namespace bootweave {
namespace {

bool IsMissing(const std::string& path) {
    struct stat status {};
    return ::stat(path.c_str(), &status) != 0 && (errno == ENOENT || errno == ENOTDIR);
}

/// The script says itself what is wrong with the file, also when it cannot be looked at; its exit status is
/// not ours.
void UpgradeLegacyConfiguration(const SyslogPaths& paths) {
    if (!IsMissing(paths.legacy_configuration) && RunShellCommand(paths.upgrade_script) == -1) {
        Log_Level(2, "failed to call %s\n", paths.upgrade_script.c_str());
    }
}

/// 0 and negative numbers would signal whole groups of processes, and 1 is not ours to signal.
bool Signal(const std::string& pid_file) {
    long long pid = 0;
    std::istringstream text(pid_file);
    if (!(text >> pid) || pid <= 1 || static_cast<pid_t>(pid) != pid) {
        errno = ESRCH;
        return false;
    }
    return ::kill(static_cast<pid_t>(pid), SIGUSR1) == 0;
}

}  // namespace

void ReloadSystemLog(const SyslogPaths& paths) {
    UpgradeLegacyConfiguration(paths);
    const std::optional<std::string> pid_file = ReadRegularFile(paths.pid_file);
    if (!pid_file.has_value()) {
        Log_Level(
            3, "unable to open mantlesyslogd pid file.\n");  // another name than below; log scanners match it
        return;
    }
    if (!Signal(*pid_file)) {
        Log_Level(3, "failed to reload logrelayd: %s.\n", LastErrorText().c_str());
    }
}

}  // namespace bootweave
