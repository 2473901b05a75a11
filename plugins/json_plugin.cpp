// SPDX-License-Identifier: Apache-2.0
#include "plugins/json_plugin.h"

#include <exception>
#include <utility>

#include "hostcli/executor_client.h"
#include "platform/log.h"
#include "plugins/json_plugin_file.h"
#include "util/exception.h"

namespace bootweave {
namespace {

constexpr std::int32_t kHostProfileVersion = 2;

bool RunOne(HostcliExecutor& executor, const std::string& command) {
    try {
        executor.RunCommand(command);
        return true;
    } catch (const std::exception& error) {
        Log_Level(2, "%s\n", error.what());
    } catch (...) {  // counted by the caller, without a line of its own
    }
    return false;
}

}  // namespace

JSONPlugin::JSONPlugin(const std::string& name, const std::string& path) : Plugin(name) {
    JSONPluginFile file = ReadJSONPluginFile(path);
    interface_version_ = file.version;
    requires_ = std::move(file.requires_names);
    provides_ = std::move(file.provides_names);
    required_flags_ = std::move(file.required_flags);
    disabling_flags_ = std::move(file.disabling_flags);
    run_once_ = file.run_once;
    plugin_version_ = std::move(file.plugin_version);
    start_commands_ = std::move(file.start);
    has_apply_host_profile_ = file.apply_host_profile.has_value();
    apply_host_profile_commands_ = std::move(file.apply_host_profile).value_or(std::vector<std::string>());
}

void JSONPlugin::Start() {
    RunCommands(kStartMethod, start_commands_);
}

bool JSONPlugin::SupportsHostProfile() const {
    return interface_version_ >= kHostProfileVersion && has_apply_host_profile_;
}

void JSONPlugin::ApplyHostProfile() {
    if (interface_version_ < kHostProfileVersion) {
        throw NotImplementedException("json_plugin::ApplyHostProfile");
    }
    RunCommands(kApplyHostProfileMethod, apply_host_profile_commands_);
}

/// A command that fails never keeps the ones behind it from running.
void JSONPlugin::RunCommands(const char* method, const std::vector<std::string>& commands) const {
    if (commands.empty()) {
        return;
    }
    const auto executor = HostcliExecutor::Instance();
    int failures = 0;
    for (const std::string& command : commands) {
        failures += RunOne(*executor, command) ? 0 : 1;
    }
    if (failures > 0) {
        throw MethodFailedException(method, name(), "error while executing the cli");
    }
}

}  // namespace bootweave
