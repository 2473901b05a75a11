// SPDX-License-Identifier: Apache-2.0
#include "analyze/plugin_needs.h"

#include <algorithm>
#include <filesystem>
#include <map>
#include <set>
#include <system_error>
#include <utility>

#include "driver/discovery.h"
#include "plugins/json_plugin_file.h"
#include "plugins/native_metadata.h"
#include "util/error_text.h"
#include "util/exception.h"

namespace bootweave {
namespace {

struct Barriers {
    std::vector<std::string> required;
    std::vector<std::string> provided;
};

/// The files of a directory that may hold plugins, by the plugins' names. Of two with one name it is the
/// first in byte order.
std::map<std::string, std::string> FilesByPlugin(const std::string& directory) {
    std::set<std::string> names;
    std::error_code error;
    // Absolute, since the loader looks for a name without a slash in other places.
    const std::filesystem::path place = std::filesystem::absolute(directory, error);
    for (std::filesystem::directory_iterator entry(place, error), end; !error && entry != end;
         entry.increment(error)) {
        names.insert(entry->path().filename().string());
    }
    if (error) {
        throw Exception("cannot read " + directory + ": " + ErrorText(error.value()));
    }
    std::map<std::string, std::string> files;
    for (const std::string& name : names) {
        if (name.ends_with(".json") || name.ends_with(".so")) {
            files.emplace(SplitPluginFileName(name).base, (place / name).string());
        }
    }
    return files;
}

Barriers ReadBarriers(const std::string& path, NativeMetadataReader& reader) {
    if (path.ends_with(".json")) {
        JSONPluginFile file = ReadJSONPluginFile(path);
        return {std::move(file.requires_names), std::move(file.provides_names)};
    }
    NativeMetadata metadata = reader.Read(path);
    return {std::move(metadata.requires_names), std::move(metadata.provides_names)};
}

std::map<std::string, Barriers> ReadInjections(const std::string& path) {
    std::map<std::string, Barriers> barriers;
    DebugInjections injections(path);
    for (const DebugInjection& injection : injections.Load()) {
        barriers.emplace(injection.name, Barriers{injection.requires_names, injection.provides_names});
    }
    return barriers;
}

std::vector<Barriers> ReadAll(const ProfileBlock& block, const NeedsSources& sources,
                              std::vector<std::string>& warnings) {
    const std::map<std::string, std::string> files = FilesByPlugin(sources.directory);
    const std::map<std::string, Barriers> injected = ReadInjections(sources.injections);
    NativeMetadataReader reader(sources.native);
    std::vector<Barriers> barriers(block.plugins.size());
    for (std::size_t index = 0; index < barriers.size(); ++index) {
        const PluginTimes& plugin = block.plugins[index];
        const auto file = files.find(plugin.name);
        if (!plugin.ran()) {
            continue;
        }
        try {
            if (file != files.end()) {
                barriers[index] = ReadBarriers(file->second, reader);
            } else if (const auto injection = injected.find(plugin.name); injection != injected.end()) {
                barriers[index] = injection->second;
            } else {
                warnings.push_back(plugin.name + " has no file in " + sources.directory +
                                   ": what it waited for is unknown");
            }
        } catch (const Exception& error) {
            warnings.push_back(plugin.name + ": what it waited for is unknown: " + error.what());
        }
    }
    return barriers;
}

}  // namespace

PluginNeeds ReadPluginNeeds(const ProfileBlock& block, const NeedsSources& sources) {
    PluginNeeds needs;
    const std::vector<Barriers> barriers = ReadAll(block, sources, needs.warnings);
    std::map<std::string, std::set<std::size_t>> providers_of;
    for (std::size_t index = 0; index < barriers.size(); ++index) {
        for (const std::string& barrier : barriers[index].provided) {
            providers_of[barrier].insert(index);
        }
    }
    for (const Barriers& own : barriers) {
        std::set<std::size_t> providers;
        for (const std::string& barrier : own.required) {
            providers.merge(std::set(providers_of[barrier]));
        }
        needs.providers.emplace_back(providers.begin(), providers.end());
    }
    return needs;
}

}  // namespace bootweave
