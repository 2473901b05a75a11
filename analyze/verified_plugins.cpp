// SPDX-License-Identifier: Apache-2.0
#include "analyze/verified_plugins.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <exception>
#include <filesystem>
#include <optional>
#include <system_error>
#include <utility>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "analyze/verify.h"
#include "analyze/verify_init_script.h"
#include "analyze/verify_json_keys.h"
#include "driver/discovery.h"
#include "plugins/json_plugin_file.h"
#include "plugins/native_metadata.h"
#include "util/error_text.h"

namespace bootweave {
namespace {

/// A file or directory, under the name that was given and the one that a boot would use.
struct Place {
    explicit Place(const std::filesystem::path& path)
        : shown(path.string()), absolute(std::filesystem::absolute(path).string()) {}

    std::string shown;
    std::string absolute;
};

class Loader {
  public:
    explicit Loader(const VerifySources& sources) : sources_(sources), reader_(sources.native) {}

    VerifiedPlugins Load() {
        if (sources_.paths.empty()) {
            LoadHost();
        }
        for (const std::string& path : sources_.paths) {
            LoadPath(path);
        }
        if (!loaded_.complete && !sources_.paths.empty()) {
            LoadSurroundings();
        }
        CheckMarkers();
        return std::move(loaded_);
    }

  private:
    /// Whether nobody has named it yet, by this way to it or by another one. What a link leads to is another
    /// plugin than the link: its name differs.
    bool IsNew(const Place& place, bool is_script) {
        std::error_code error;
        const std::filesystem::path path(place.absolute);
        const std::filesystem::path parent = std::filesystem::weakly_canonical(path.parent_path(), error);
        return seen_.emplace(error ? path : parent / path.filename(), is_script).second;
    }

    /// What this user may not look at is there: loading it says why it cannot be read.
    static bool IsThere(const std::string& path) {
        struct stat status {};
        return ::stat(path.c_str(), &status) == 0 || errno != ENOENT;
    }

    void Add(const Place& place, Severity severity, FindingKind kind, const std::string& plugin,
             std::string text) {
        if (reporting_) {
            loaded_.findings.push_back({place.shown, severity, kind, plugin, std::move(text)});
        } else if (kind == FindingKind::kUnreadable) {
            // What is verified may wait for it, or the other way round, and seems to miss somebody.
            loaded_.findings.push_back(
                {place.shown, Severity::kWarning, kind, plugin, text + ": what it holds is unknown"});
        }
    }

    void LoadHost() {
        LoadDirectory(Place(sources_.directory));
        if (IsThere(sources_.injections)) {
            CheckWriters(Place(std::filesystem::path(sources_.injections).parent_path()), "");
            LoadInjections(Place(sources_.injections));
        }
        // Commands are judged themselves; whoever may change their directory can put others in their place.
        for (const std::string& directory : sources_.command_directories) {
            CheckWriters(Place(directory), "");
        }
    }

    void LoadPath(const std::string& path) {
        const Place place{std::filesystem::path(path)};
        struct stat status {};
        if (::stat(path.c_str(), &status) != 0) {
            Add(place, Severity::kError, FindingKind::kUnreadable, "", "cannot read: " + LastErrorText());
        } else if (S_ISDIR(status.st_mode)) {
            LoadDirectory(place);
        } else if (path.ends_with(".conf")) {
            given_injections_ = true;
            LoadInjections(place);
        } else {
            const std::string name = std::filesystem::path(path).filename().string();
            given_.insert(name);
            LoadFile(place, name, true);
        }
    }

    /// The host's own, as if what was given had been added to them.
    void LoadSurroundings() {
        reporting_ = false;
        if (IsThere(sources_.directory)) {
            LoadDirectory(Place(sources_.directory));
        }
        if (!given_injections_ && IsThere(sources_.injections)) {
            LoadInjections(Place(sources_.injections));
        }
    }

    void LoadDirectory(const Place& place) {
        std::vector<std::string> names;
        std::error_code error;
        const std::filesystem::path real = std::filesystem::canonical(place.absolute, error);
        if (!error && !directories_.insert(real).second) {
            return;
        }
        error.clear();
        for (std::filesystem::directory_iterator entry(place.absolute, error), end; !error && entry != end;
             entry.increment(error)) {
            names.push_back(entry->path().filename().string());
        }
        if (error) {
            Add(place, Severity::kError, FindingKind::kUnreadable, "",
                "cannot read: " + ErrorText(error.value()));
            return;
        }
        loaded_.complete = true;
        CheckWriters(place, "");
        std::sort(names.begin(), names.end());
        for (const std::string& name : names) {
            if (reporting_ || !given_.contains(name)) {
                LoadFile(Place(std::filesystem::path(place.shown) / name), name, false);
            }
        }
    }

    /// \param is_given  by itself, and not with its directory
    void LoadFile(const Place& place, const std::string& file_name, bool is_given) {
        const std::string reason = WhyNoPluginFile(file_name);
        const bool is_script = !reason.empty() && is_given && IsScript(place.absolute);
        if (!IsNew(place, is_script)) {
            return;
        }
        if (is_script) {
            LoadInitScript(place, file_name);
            return;
        }
        if (!reason.empty()) {
            Add(place, Severity::kWarning, FindingKind::kIgnored, "", reason);
            return;
        }
        const PluginFileName name = SplitPluginFileName(file_name);
        if (name.extension == "debug") {
            if (reporting_) {
                markers_.emplace_back(place, name.base);
            }
            return;
        }
        CheckWriters(place, name.base);
        if (IsReadable(place, name.base)) {
            LoadPlugin(place, name);
        }
    }

    void LoadPlugin(const Place& place, const PluginFileName& name) {
        VerifiedPlugin plugin{.name = name.base, .file = place.shown, .reported = reporting_};
        const bool is_json = name.extension == "json";
        std::optional<std::int32_t> version;
        try {
            version = is_json ? ReadJSON(place, plugin) : ReadNative(place, plugin);
            loaded_.plugins.push_back(plugin);
        } catch (const std::exception& error) {
            Add(place, Severity::kError, FindingKind::kNotLoaded, plugin.name, error.what());
        }
        if (is_json && reporting_) {
            CheckJSONKeys(ReadJSONPluginRemarks(place.absolute), version, plugin, loaded_.findings);
        }
    }

    static std::int32_t ReadJSON(const Place& place, VerifiedPlugin& plugin) {
        JSONPluginFile file = ReadJSONPluginFile(place.absolute);
        plugin.requires_names = std::move(file.requires_names);
        plugin.provides_names = std::move(file.provides_names);
        plugin.required_flags = std::move(file.required_flags);
        plugin.disabling_flags = std::move(file.disabling_flags);
        plugin.run_once = file.run_once;
        plugin.version = std::move(file.plugin_version);
        plugin.commands = std::move(file.start);
        if (file.apply_host_profile.has_value()) {
            plugin.commands.insert(plugin.commands.end(), file.apply_host_profile->begin(),
                                   file.apply_host_profile->end());
        }
        return file.version;
    }

    std::int32_t ReadNative(const Place& place, VerifiedPlugin& plugin) {
        NativeMetadata metadata = reader_.Read(place.absolute);
        plugin.requires_names = std::move(metadata.requires_names);
        plugin.provides_names = std::move(metadata.provides_names);
        plugin.required_flags = {metadata.required_flags.begin(), metadata.required_flags.end()};
        plugin.disabling_flags = {metadata.disabling_flags.begin(), metadata.disabling_flags.end()};
        plugin.run_once = metadata.run_once;
        plugin.version = std::move(metadata.plugin_version);
        if (!metadata.has_start) {
            Add(place, Severity::kError, FindingKind::kNoOperation, plugin.name,
                NoOperationText(place.absolute, "start"));
        }
        return metadata.version;
    }

    void LoadInitScript(const Place& place, const std::string& name) {
        CheckWriters(place, name);
        loaded_.plugins.push_back({.name = name, .file = place.shown, .is_script = true});
        CheckInitScript(place.absolute, loaded_.plugins.back(), loaded_.findings);
    }

    void LoadInjections(const Place& place) {
        if (!IsNew(place, false)) {
            return;
        }
        CheckWriters(place, "");
        if (!IsReadable(place, "")) {
            return;
        }
        DebugInjections injections(place.absolute);
        for (const DebugInjection& injection : injections.LoadQuietly()) {
            loaded_.plugins.push_back({.name = injection.name,
                                       .file = place.shown,
                                       .reported = reporting_,
                                       .injected = true,
                                       .requires_names = injection.requires_names,
                                       .provides_names = injection.provides_names});
        }
        for (const std::string& complaint : injections.complaints()) {
            Add(place, Severity::kError, FindingKind::kDebugLine, "", complaint);
        }
    }

    /// The loader cannot tell a file that is missing from one that this user must not read; a boot may read
    /// all.
    bool IsReadable(const Place& place, const std::string& plugin) {
        if (::faccessat(AT_FDCWD, place.absolute.c_str(), R_OK, AT_EACCESS) == 0 || errno != EACCES) {
            return true;
        }
        Add(place, Severity::kError, FindingKind::kUnreadable, plugin, "cannot read: " + LastErrorText());
        return false;
    }

    /// What others may change is run with all privileges. Who verifies files that are not yet on the host
    /// owns them, perhaps.
    void CheckWriters(const Place& place, const std::string& plugin) {
        struct stat status {};
        if (::stat(place.absolute.c_str(), &status) != 0) {
            return;
        }
        const bool is_own = !sources_.paths.empty() && status.st_uid == ::geteuid();
        if (status.st_uid != 0 && status.st_uid != sources_.user && !is_own) {
            Add(place, Severity::kWarning, FindingKind::kWritable, plugin,
                "user " + std::to_string(status.st_uid) + " may change it, who owns it");
        }
        if ((status.st_mode & (S_IWGRP | S_IWOTH)) != 0) {
            std::array<char, 8> mode{};
            static_cast<void>(std::snprintf(mode.data(), mode.size(), "%04o", status.st_mode & 07777U));
            Add(place, Severity::kWarning, FindingKind::kWritable, plugin,
                std::string("others may change it (mode ") + mode.data() + ")");
        }
    }

    /// Files that name an injection. Each line of the injections runs once without them.
    void CheckMarkers() {
        reporting_ = true;
        for (const auto& [place, name] : markers_) {
            const bool is_known = std::any_of(loaded_.plugins.begin(), loaded_.plugins.end(),
                                              [&name = name](const VerifiedPlugin& plugin) {
                                                  return plugin.injected && plugin.name == name;
                                              });
            Add(place, Severity::kWarning, FindingKind::kDebugFile, name,
                is_known ? "makes the debug injection '" + name + "' run twice"
                         : "there is no debug injection '" + name + "'");
        }
    }

    const VerifySources& sources_;
    NativeMetadataReader reader_;
    VerifiedPlugins loaded_;
    bool reporting_ = true;
    bool given_injections_ = false;
    std::set<std::filesystem::path> directories_;            // that were walked
    std::set<std::pair<std::filesystem::path, bool>> seen_;  // files, and whether as an init script
    std::set<std::string> given_;  // names of files that take the place of the host's own
    std::vector<std::pair<Place, std::string>> markers_;
};

}  // namespace

void AddFinding(Findings& findings, const VerifiedPlugin& plugin, Severity severity, FindingKind kind,
                const std::string& text) {
    if (plugin.reported) {
        findings.push_back({plugin.file, severity, kind, plugin.name,
                            plugin.injected ? "injection '" + plugin.name + "': " + text : text});
    }
}

VerifiedPlugins LoadVerifiedPlugins(const VerifySources& sources) {
    return Loader(sources).Load();
}

}  // namespace bootweave
