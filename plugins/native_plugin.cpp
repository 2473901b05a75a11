// SPDX-License-Identifier: Apache-2.0
#include "plugins/native_plugin.h"

#include <optional>
#include <utility>

#include <unistd.h>

#include "platform/spawn.h"
#include "util/child_process.h"
#include "util/exception.h"
#include "util/scope_guard.h"

namespace bootweave {
namespace {

constexpr std::int32_t kHostProfileVersion = 2;
constexpr int kStreams[] = {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO};

/// Starts a program with this process's streams and environment. \return its process id, or why not
std::optional<std::string> Spawn(char* const argv[], pid_t& pid) {
    MantleuserCompat_SpawnFileActions actions;
    int status = MantleuserCompat_SpawnFileActionsInit(&actions, std::size(kStreams));
    if (status != 0) {
        return std::string("failed to init file actions: ") + MantleuserStatus_CodeToString(status);
    }
    const ScopeGuard destroy([&actions] { MantleuserCompat_SpawnFileActionsDestroy(&actions); });
    for (const int stream : kStreams) {
        if (MantleuserCompat_SpawnFileActionsAddDup2(&actions, stream, stream) != 0) {
            return "failed to add dup2 file actions";
        }
    }
    status = MantleuserCompat_Spawn(&pid, argv[0], &actions, nullptr, argv, environ);
    if (status != 0) {
        return std::string("failed to spawn: ") + MantleuserStatus_CodeToString(status);
    }
    return std::nullopt;
}

/// Runs a program to its end. \return why it failed, or nothing
std::optional<std::string> RunProgram(char* const argv[]) {
    pid_t pid = -1;
    if (auto failure = Spawn(argv, pid); failure.has_value()) {
        return failure;
    }
    const std::optional<int> raw_status = ChildProcess::Adopt(pid).Wait();
    if (!raw_status.has_value()) {
        return "failed to read exit status";
    }
    return *raw_status == 0 ? std::nullopt : std::optional(DescribeNativeEnd(*raw_status));
}

}  // namespace

NativePlugin::NativePlugin(const std::string& name, const std::string& path, NativeMetadataReader& reader,
                           std::string executor)
    : Plugin(name), path_(path), executor_(std::move(executor)) {
    NativeMetadata metadata = reader.Read(path);
    has_apply_host_profile_ = metadata.has_apply_host_profile;
    interface_version_ = metadata.version;
    provides_ = std::move(metadata.provides_names);
    requires_ = std::move(metadata.requires_names);
    required_flags_.insert(metadata.required_flags.begin(), metadata.required_flags.end());
    disabling_flags_.insert(metadata.disabling_flags.begin(), metadata.disabling_flags.end());
    run_once_ = metadata.run_once;
    plugin_version_ = std::move(metadata.plugin_version);
}

void NativePlugin::Start() {
    Run(kStartMethod);
}

bool NativePlugin::SupportsHostProfile() const {
    return interface_version_ >= kHostProfileVersion && has_apply_host_profile_;
}

void NativePlugin::ApplyHostProfile() {
    if (!SupportsHostProfile()) {
        throw NotImplementedException("NativePlugin::ApplyHostProfile");
    }
    Run(kApplyHostProfileMethod);
}

void NativePlugin::Run(const char* method) const {
    std::string words[] = {executor_, path_, name(), method};
    char* argv[] = {words[0].data(), words[1].data(), words[2].data(), words[3].data(), nullptr};
    if (const auto failure = RunProgram(argv); failure.has_value()) {
        throw MethodFailedException(method, name(), *failure);
    }
}

}  // namespace bootweave
