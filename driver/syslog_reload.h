// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>

namespace bootweave {

/// Where the system-log daemon keeps what a reload needs.
struct SyslogPaths {
    std::string legacy_configuration = "/etc/syslog.conf";
    std::string upgrade_script = "/usr/lib/corvane/logrelay/bin/upgrade-syslog.conf.sh";
    std::string pid_file = "/var/run/corvane/logrelayd.pid";
};

/// Has the system-log daemon take over what the boot changed: upgrades a legacy configuration file where
/// there is one, then signals the daemon. Every failure is a line; none stops the boot.
void ReloadSystemLog(const SyslogPaths& paths = {});

}  // namespace bootweave
