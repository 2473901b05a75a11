// SPDX-License-Identifier: Apache-2.0
#include "driver/discovery.h"

#include <algorithm>
#include <exception>
#include <iterator>
#include <string_view>
#include <utility>

#include "platform/log.h"
#include "plugins/daemon_plugin.h"
#include "plugins/debug_plugin.h"
#include "plugins/init_scripts.h"
#include "plugins/json_plugin.h"
#include "plugins/native_plugin.h"

namespace bootweave {
namespace {

using Flags = std::set<std::string>;

/// Each flag followed by a blank, the last one too.
std::string List(const Flags& flags) {
    std::string text;
    for (const std::string& flag : flags) {
        text += flag + " ";
    }
    return text;
}

Flags Common(const Flags& left, const Flags& right) {
    Flags common;
    std::set_intersection(left.begin(), left.end(), right.begin(), right.end(),
                          std::inserter(common, common.end()));
    return common;
}

Flags Missing(const Flags& wanted, const Flags& given) {
    Flags missing;
    std::set_difference(wanted.begin(), wanted.end(), given.begin(), given.end(),
                        std::inserter(missing, missing.end()));
    return missing;
}

bool BelongsInKey(char character) {
    constexpr std::string_view kOthers = "-._+";
    return (character >= 'a' && character <= 'z') || (character >= 'A' && character <= 'Z') ||
           (character >= '0' && character <= '9') || kOthers.find(character) != std::string_view::npos;
}

}  // namespace

std::string WhyNoPluginFile(const std::string& file_name) {
    if (file_name.find('.') == std::string::npos) {
        return "ignoring plugin '" + file_name + "' of unspecified type...";
    }
    const std::string extension = SplitPluginFileName(file_name).extension;
    if (extension == "so" || extension == "json" || extension == "debug") {
        return {};
    }
    return "ignoring plugin '" + file_name + "' of unknown type (" + extension + ")...";
}

std::string RunOnceKey(const std::string& name, const std::string& version) {
    return name + version;
}

std::string RecordedRunOnceKey(std::string key) {
    std::erase_if(key, [](char character) { return !BelongsInKey(character); });
    return key;
}

bool IsEarlyService(const std::string& script_name) {
    return script_name == "logrelayd" || script_name == "obsvd";
}

PluginFileName SplitPluginFileName(const std::string& file_name) {
    constexpr std::string_view kLibraryPrefix = "lib";
    const std::size_t dot = file_name.rfind('.');
    PluginFileName name{file_name.substr(0, dot), file_name.substr(dot + 1)};
    if (name.base.starts_with(kLibraryPrefix)) {
        name.base.erase(0, kLibraryPrefix.size());
    }
    return name;
}

Discovery::Discovery(const Flags& boot_flags, Flags& run_once, const RunConfig& config,
                     DebugInjections& injections, const NativeMetadataReader::Options& native)
    : boot_flags_(boot_flags),
      run_once_(run_once),
      config_(config),
      injections_(injections),
      native_reader_(native) {}

/// Builds the plugin that a file holds, by its extension; null for a type that nobody knows.
std::unique_ptr<Plugin> Discovery::LoadPlugin(const PluginFileName& name, const std::string& path) {
    if (name.extension == "so") {
        return std::make_unique<NativePlugin>(name.base, path, native_reader_);
    }
    if (name.extension == "json") {
        return std::make_unique<JSONPlugin>(name.base, path);
    }
    return nullptr;
}

void Discovery::Collect(std::unique_ptr<Plugin> plugin) {
    owned_.push_back(std::move(plugin));
    collection_.push_back(owned_.back().get());
}

void Discovery::Discover(const std::string& file_name) {
    const std::string refusal = WhyNoPluginFile(file_name);
    if (file_name.find('.') == std::string::npos) {
        Log_Level(3, "%s\n", refusal.c_str());
        return;
    }
    const PluginFileName name = SplitPluginFileName(file_name);
    // Each time: a boot may still edit the file.
    const std::vector<DebugInjection>& injections = injections_.Load();
    if (name.extension == "debug") {
        for (const DebugInjection& injection : injections) {
            if (injection.name == name.base) {
                Collect(std::make_unique<DebugPlugin>(injection));
            }
        }
        return;
    }
    std::unique_ptr<Plugin> plugin = LoadPlugin(name, config_.plugin_directory + "/" + file_name);
    if (plugin == nullptr) {
        Log_Level(3, "%s\n", refusal.c_str());
        return;
    }
    if (IsDenied(name.base)) {
        Log_Level(5, "ignoring plugin '%s' due to denylist.\n", name.base.c_str());
        return;
    }
    if (!PassesBootFlags(*plugin)) {
        return;
    }
    Collect(std::move(plugin));
    ApplyRunOnce(*collection_.back());
}

void Discovery::CollectDebugPlugins(const std::vector<DebugInjection>& injections) {
    for (const DebugInjection& injection : injections) {
        Collect(std::make_unique<DebugPlugin>(injection));
    }
}

void Discovery::CollectDaemons() {
    for (const auto& [priority, script_path] : ListInitScripts()) {
        CollectDaemon(script_path, priority);
    }
}

void Discovery::CollectDaemon(const std::string& script_path, int priority) {
    const std::string name = script_path.substr(script_path.rfind('/') + 1);
    if (IsEarlyService(name)) {
        return;
    }
    try {
        Collect(std::make_unique<LegacyDaemonPlugin>(name, script_path, priority));
    } catch (const std::exception& error) {
        Log_Level(3, "Failed to create init.d daemon plugin: %s because: %s\n", name.c_str(), error.what());
    }
}

bool Discovery::IsDenied(const std::string& base) const {
    const std::list<std::string>& denylist = config_.disabled_plugins;
    return std::find(denylist.begin(), denylist.end(), base) != denylist.end();
}

/// Both tests are made, so that a plugin that fails both says both.
bool Discovery::PassesBootFlags(const Plugin& plugin) const {
    const Flags disabling = Common(plugin.disabling_flags(), boot_flags_);
    if (!disabling.empty()) {
        Log_Level(3, "ignoring plugin '%s', disabled due to boot flags: %s.\n", plugin.name().c_str(),
                  List(disabling).c_str());
    }
    const Flags missing = Missing(plugin.required_flags(), boot_flags_);
    if (!missing.empty()) {
        Log_Level(3, "ignoring plugin '%s', disabled due to missing required boot flags: %s.\n",
                  plugin.name().c_str(), List(missing).c_str());
    }
    return disabling.empty() && missing.empty();
}

/// A version that has run stays in the graph as done, so that what depends on it is not held up.
///
/// The key is looked up as it is and kept with foreign characters removed: a name or version that has some is
/// never found again, and such a plugin runs on every boot. Hosts rely on it.
void Discovery::ApplyRunOnce(Plugin& plugin) {
    if (!plugin.run_once()) {
        return;
    }
    std::string key = RunOnceKey(plugin.name(), plugin.plugin_version());
    if (run_once_.contains(key)) {
        Log_Level(5, "ignoring plugin '%s' because version '%s'  has already been run.\n",
                  plugin.name().c_str(), plugin.plugin_version().c_str());
        plugin.MarkDone();
        return;
    }
    run_once_.insert(RecordedRunOnceKey(std::move(key)));
}

}  // namespace bootweave
