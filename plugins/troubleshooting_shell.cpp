// SPDX-License-Identifier: Apache-2.0
#include "plugins/troubleshooting_shell.h"

#include <optional>

#include <sys/ioctl.h>
#include <unistd.h>

#include "platform/log.h"
#include "util/child_process.h"
#include "util/error_text.h"
#include "util/signals.h"
#include "util/standard_streams.h"

namespace bootweave {
namespace {

constexpr const char* kShell = "/bin/sh";

/// In the child. Returns its exit status when there is no shell.
int BecomeShell() {
    if (::setsid() < 0) {
        Log_Level(2, "unable to create new session: %s\n", LastErrorText().c_str());
        return 1;
    }
    CloseDescriptorsFrom(STDERR_FILENO + 1);
    constexpr int kStealFromOtherSession = 1;
    ::ioctl(STDIN_FILENO, TIOCSCTTY, kStealFromOtherSession);
    ResetSignals();
    ::execl(kShell, kShell, static_cast<char*>(nullptr));
    Log_Level(2, "unable to exec shell: %s\n", LastErrorText().c_str());
    return 1;
}

}  // namespace

void RunTroubleshootingShell() {
    std::optional<ChildProcess> child = ChildProcess::Fork(BecomeShell);
    if (!child.has_value()) {
        Log_Level(2, "failed to fork - unable to launch troubleshooting shell: %s\n",
                  LastErrorText().c_str());
        return;
    }
    static_cast<void>(child->Wait());
    ReopenHungUpStreams();  // the end of a session hangs up the console that it had for a terminal
}

}  // namespace bootweave
