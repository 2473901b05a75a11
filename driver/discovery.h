// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <list>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "plugins/debug_injections.h"
#include "plugins/native_metadata_reader.h"
#include "plugins/plugin.h"
#include "util/run_config.h"

namespace bootweave {

/// What a file's name says about its plugin.
struct PluginFileName {
    std::string base;       ///< before the last dot, without a leading "lib": the plugin's name
    std::string extension;  ///< behind the last dot
};

/// Splits a file name that holds a dot.
[[nodiscard]] PluginFileName SplitPluginFileName(const std::string& file_name);

/// The line that a boot logs about a file whose name is not that of a plugin; empty for one whose name is.
[[nodiscard]] std::string WhyNoPluginFile(const std::string& file_name);

/// The key under which a run-once plugin is looked for in the run-once set.
[[nodiscard]] std::string RunOnceKey(const std::string& name, const std::string& version);

/// The key as it is added to the run-once set: without all characters but letters, digits and "-._+".
[[nodiscard]] std::string RecordedRunOnceKey(std::string key);

/// Whether daemon runs leave out the init script of this name, because an init run starts it itself.
[[nodiscard]] bool IsEarlyService(const std::string& script_name);

/// Turns file names into plugins and decides which of them take part in this run. Owns the plugins.
///
/// Each candidate passes a type test, the denylist, two boot-flag tests and the run-once test, in this order;
/// one that is left out costs a line that says why.
class Discovery {
  public:
    /// \param boot_flags  of this boot
    /// \param run_once    keys of the run-once plugins that have run; those admitted now are added
    /// \param config      its plugin directory and denylist are read; outlives this object
    /// \param injections  of this host
    /// \param native      how the metadata of native plugins is read
    Discovery(const std::set<std::string>& boot_flags, std::set<std::string>& run_once,
              const RunConfig& config, DebugInjections& injections,
              const NativeMetadataReader::Options& native = {});

    /// Examines one file of the plugin directory.
    ///
    /// \param file_name  a single path component
    /// \throws std::exception  when the file cannot be loaded; nothing of it stays behind
    void Discover(const std::string& file_name);

    /// Adds one plugin for each of the debug injections, in their order.
    void CollectDebugPlugins(const std::vector<DebugInjection>& injections);

    /// Adds one plugin for each init script of the host, in ascending start priority. The two services that
    /// an init run starts itself are left out; a script that cannot be wrapped costs a line.
    ///
    /// \throws Exception  when the scripts cannot be listed
    void CollectDaemons();

    /// Ends the process that reads native plugins' metadata; it must not live on beside the plugins. A later
    /// Discover() starts another.
    void StopReading() { native_reader_.Stop(); }

    /// The plugins of the run, in the order in which they were collected.
    [[nodiscard]] const std::vector<Plugin*>& plugins() const { return collection_; }

  private:
    [[nodiscard]] std::unique_ptr<Plugin> LoadPlugin(const PluginFileName& name, const std::string& path);
    void Collect(std::unique_ptr<Plugin> plugin);
    void CollectDaemon(const std::string& script_path, int priority);
    [[nodiscard]] bool IsDenied(const std::string& base) const;
    [[nodiscard]] bool PassesBootFlags(const Plugin& plugin) const;
    void ApplyRunOnce(Plugin& plugin);

    const std::set<std::string>& boot_flags_;
    std::set<std::string>& run_once_;
    const RunConfig& config_;
    DebugInjections& injections_;
    NativeMetadataReader native_reader_;
    std::vector<std::unique_ptr<Plugin>> owned_;
    std::vector<Plugin*> collection_;
};

}  // namespace bootweave
