// SPDX-License-Identifier: Apache-2.0
#include "driver/service_launcher.h"

#include <optional>

#include <unistd.h>

#include "platform/log.h"
#include "util/child_process.h"
#include "util/error_text.h"
#include "util/signals.h"
#include "util/standard_streams.h"

namespace bootweave {
namespace {

void LogNotStarted(const std::string& path) {
    Log_Level(2, "execve(%s) failure: %s\n", path.c_str(), LastErrorText().c_str());
}

/// In the child. Returns the child's exit status when the program cannot be executed.
int BecomeService(const std::string& path, const std::vector<std::string>& arguments) {
    CloseDescriptorsFrom(STDERR_FILENO + 1);
    RedirectStandardStreams("/dev/null");
    std::vector<char*> argv{const_cast<char*>(path.c_str())};
    for (const std::string& argument : arguments) {
        argv.push_back(const_cast<char*>(argument.c_str()));
    }
    argv.push_back(nullptr);
    ResetSignals();
    ::execve(path.c_str(), argv.data(), environ);
    LogNotStarted(path);
    return 1;
}

}  // namespace

bool RunService(const std::string& path, const std::vector<std::string>& arguments) {
    std::optional<ChildProcess> child = ChildProcess::Fork([&] { return BecomeService(path, arguments); });
    if (!child.has_value()) {
        LogNotStarted(path);
        return false;
    }
    const std::optional<int> raw = child->Wait();
    return raw.has_value() && ExitStatus::FromRaw(*raw).success();
}

}  // namespace bootweave
