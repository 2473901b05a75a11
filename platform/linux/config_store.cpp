// SPDX-License-Identifier: Apache-2.0
#include "platform/config_store.h"

#include <cerrno>
#include <optional>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "platform/linux/config_store_program.h"
#include "platform/log.h"
#include "util/child_process.h"
#include "util/error_text.h"
#include "util/retry.h"
#include "util/unique_fd.h"

namespace bootweave {
namespace {

/// Not what exec says: a script whose interpreter is missing fails with the same error, and is a broken
/// store.
bool IsMissing(const std::string& path) {
    struct stat status {};
    return ::stat(path.c_str(), &status) != 0 && (errno == ENOENT || errno == ENOTDIR);
}

std::optional<ChildProcess> Start(const std::string& path) {
    const UniqueFd null_device(RetryOnEintr([] { return ::open("/dev/null", O_RDONLY | O_CLOEXEC); }));
    if (!null_device.valid()) {
        return std::nullopt;
    }
    SpawnOptions options;
    options.path = path;
    options.argv = {path};
    options.inherit_environment = true;
    options.descriptors = {
        {null_device.get(), STDIN_FILENO}, {STDOUT_FILENO, STDOUT_FILENO}, {STDERR_FILENO, STDERR_FILENO}};
    return ChildProcess::Spawn(options);
}

}  // namespace

void RunConfigStoreProgram(const std::string& path) {
    if (IsMissing(path)) {
        return;
    }
    std::optional<ChildProcess> child = Start(path);
    if (!child.has_value()) {
        Warning("%s could not be started: %s\n", path.c_str(), LastErrorText().c_str());
        return;
    }
    const std::optional<int> raw = child->Wait();
    if (!raw.has_value()) {
        Warning("%s could not be waited for: %s\n", path.c_str(), LastErrorText().c_str());
        return;
    }
    const ExitStatus status = ExitStatus::FromRaw(*raw);
    if (!status.success()) {
        Warning("%s %s\n", path.c_str(), status.Describe().c_str());
    }
}

}  // namespace bootweave

void StrataConfigStore::EndAutoConf() {
    bootweave::RunConfigStoreProgram("/usr/lib/corvane/configstore/end-auto-conf");
}

void StrataConfigStore::CleanupBootState() {
    bootweave::RunConfigStoreProgram("/usr/lib/corvane/configstore/cleanup-boot-state");
}
