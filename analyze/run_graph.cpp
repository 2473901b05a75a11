// SPDX-License-Identifier: Apache-2.0
#include "analyze/run_graph.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <filesystem>
#include <map>
#include <set>
#include <system_error>
#include <utility>

#include <sys/stat.h>

#include "driver/discovery.h"
#include "plugins/json_plugin_file.h"
#include "plugins/native_metadata.h"
#include "util/error_text.h"
#include "util/exception.h"
#include "util/harmless_text.h"

namespace bootweave {
namespace {

constexpr std::array<const char*, 5> kKindTexts{"unknown", "json", "native", "debug", "daemon"};
static_assert(kKindTexts.size() == static_cast<std::size_t>(PluginKind::kDaemon) + 1);

/// What one plugin says of itself, in names.
struct Needs {
    PluginKind kind = PluginKind::kUnknown;
    std::vector<std::string> required;
    std::vector<std::string> provided;
    std::size_t commands = 0;
};

std::string Harmless(std::string_view text) {
    LineBuffer line;
    AppendHarmless(line, text);
    return std::string(line.view());
}

/// The files of a directory that may hold plugins, by the plugins' names as a log has them. Of two with one
/// name it is the first in byte order.
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
            files.emplace(Harmless(SplitPluginFileName(name).base), (place / name).string());
        }
    }
    return files;
}

std::map<std::string, Needs> ReadInjections(const std::string& path) {
    std::map<std::string, Needs> needs;
    DebugInjections injections(path);
    for (const DebugInjection& injection : injections.Load()) {
        needs.emplace(Harmless(injection.name),
                      Needs{PluginKind::kDebug, injection.requires_names, injection.provides_names, 0});
    }
    return needs;
}

/// The files that were written after a run.
class NewerFiles {
  public:
    explicit NewerFiles(const ProfileBlock& block) : run_(block.end.has_value() ? block.end : block.start) {}

    void Note(const std::string& path) {
        struct stat status {};
        if (!run_.has_value() || ::stat(path.c_str(), &status) != 0) {
            return;
        }
        const Instant written{std::chrono::seconds(status.st_mtim.tv_sec) +
                              Duration(status.st_mtim.tv_nsec / 1000)};
        if (written > *run_ && count_++ == 0) {
            first_ = path;
        }
    }

    void WarnOf(std::vector<std::string>& warnings) const {
        if (count_ == 1) {
            warnings.push_back(first_ + " is newer than the run: what waited for what may have changed");
        } else if (count_ > 1) {
            warnings.push_back(first_ + " and " + std::to_string(count_ - 1) +
                               " more are newer than the run: what waited for what may have changed");
        }
    }

  private:
    std::optional<Instant> run_;
    std::size_t count_ = 0;
    std::string first_;
};

/// Reads what the plugins of a boot say of themselves.
class BootReader {
  public:
    BootReader(const ProfileBlock& block, const GraphSources& sources, std::vector<std::string>& warnings)
        : block_(block),
          sources_(sources),
          files_(FilesByPlugin(sources.directory)),
          injected_(ReadInjections(sources.injections)),
          reader_(sources.native),
          newer_(block),
          warnings_(warnings) {}

    std::vector<Needs> Read() {
        std::vector<Needs> all;
        all.reserve(block_.plugins.size());
        for (const PluginTimes& plugin : block_.plugins) {
            all.push_back(ReadOne(plugin));
        }
        newer_.WarnOf(warnings_);
        return all;
    }

  private:
    Needs ReadOne(const PluginTimes& plugin) {
        try {
            if (const auto file = files_.find(plugin.name); file != files_.end()) {
                newer_.Note(file->second);
                return ReadFile(file->second);
            }
            if (const auto injection = injected_.find(plugin.name); injection != injected_.end()) {
                newer_.Note(sources_.injections);
                return injection->second;
            }
            Warn(plugin,
                 plugin.name + " has no file in " + sources_.directory + ": what it waited for is unknown");
        } catch (const Exception& error) {
            Warn(plugin, plugin.name + ": what it waited for is unknown: " + error.what());
        }
        return {};
    }

    Needs ReadFile(const std::string& path) {
        if (path.ends_with(".json")) {
            JSONPluginFile file = ReadJSONPluginFile(path);
            return {PluginKind::kJSON, std::move(file.requires_names), std::move(file.provides_names),
                    file.start.size()};
        }
        NativeMetadata metadata = reader_.Read(path);
        return {PluginKind::kNative, std::move(metadata.requires_names), std::move(metadata.provides_names),
                0};
    }

    /// Nothing waited for one that did not run.
    void Warn(const PluginTimes& plugin, std::string text) {
        if (plugin.ran()) {
            warnings_.push_back(std::move(text));
        }
    }

    const ProfileBlock& block_;
    const GraphSources& sources_;
    const std::map<std::string, std::string> files_;
    const std::map<std::string, Needs> injected_;
    NativeMetadataReader reader_;
    NewerFiles newer_;
    std::vector<std::string>& warnings_;
};

/// The start priorities of init scripts by name, as a run of daemons counts them.
std::map<std::string, std::uint32_t> PrioritiesOf(const InitScripts& scripts) {
    std::map<std::string, std::uint32_t> priorities;
    for (const auto& [priority, path] : scripts) {
        priorities.emplace(Harmless(path.substr(path.rfind('/') + 1)), static_cast<std::uint32_t>(priority));
    }
    return priorities;
}

/// The daemons of a block by start priority, lowest first.
using DaemonsByPriority = std::map<std::uint32_t, std::vector<std::size_t>>;

/// A run that stops daemons goes from the highest priority to the lowest. The log does not say that it was
/// one.
bool IsStop(const ProfileBlock& block, const DaemonsByPriority& daemons) {
    const auto first_start = [&](const std::vector<std::size_t>& indices) {
        Instant first = Instant::max();
        for (const std::size_t index : indices) {
            if (block.plugins[index].ran()) {
                first = std::min(first, block.plugins[index].start);
            }
        }
        return first;
    };
    return !daemons.empty() && first_start(daemons.rbegin()->second) < first_start(daemons.begin()->second);
}

/// A barrier stands for each priority; the scripts of one wait for that of the one before.
template <typename Iterator>
void ChainPriorities(Iterator first, Iterator last, std::vector<Needs>& all) {
    std::vector<std::string> before;
    for (; first != last; ++first) {
        const std::string name = "priority " + std::to_string(first->first);
        for (const std::size_t index : first->second) {
            all[index] = {PluginKind::kDaemon, before, {name}, 0};
        }
        before = {name};
    }
}

std::vector<Needs> ReadDaemons(const ProfileBlock& block, const GraphSources& sources,
                               std::vector<std::string>& warnings) {
    const InitScriptListing listing = RunInitScriptLister(sources.lister);
    if (!listing.failure.empty()) {
        warnings.push_back("cannot list the init scripts: " + listing.failure);
    }
    const std::map<std::string, std::uint32_t> priorities = PrioritiesOf(listing.scripts);
    DaemonsByPriority daemons;
    for (std::size_t index = 0; index < block.plugins.size(); ++index) {
        const std::string& name = block.plugins[index].name;
        if (const auto found = priorities.find(name); found != priorities.end()) {
            daemons[found->second].push_back(index);
        } else if (block.plugins[index].ran() && listing.failure.empty()) {
            warnings.push_back(name + " is no init script any more: what it waited for is unknown");
        }
    }
    std::vector<Needs> all(block.plugins.size());
    if (IsStop(block, daemons)) {
        ChainPriorities(daemons.rbegin(), daemons.rend(), all);
    } else {
        ChainPriorities(daemons.begin(), daemons.end(), all);
    }
    return all;
}

/// The indices of the barriers with these names, without the same one twice.
std::vector<std::size_t> IndicesOf(const std::vector<std::string>& names,
                                   const std::map<std::string, std::size_t>& known) {
    std::vector<std::size_t> indices;
    std::set<std::size_t> met;
    for (const std::string& name : names) {
        const std::size_t index = known.at(name);
        if (met.insert(index).second) {
            indices.push_back(index);
        }
    }
    return indices;
}

void Connect(const std::vector<Needs>& all, RunGraph& graph) {
    std::map<std::string, std::size_t> known;
    for (const Needs& needs : all) {
        for (const auto* names : {&needs.required, &needs.provided}) {
            for (const std::string& name : *names) {
                known.emplace(name, 0);
            }
        }
    }
    for (auto& [name, index] : known) {
        index = graph.barriers.size();
        graph.barriers.push_back({Harmless(name), {}, {}});
    }
    for (const Needs& needs : all) {
        const std::size_t index = graph.plugins.size();
        const RunPlugin& plugin = graph.plugins.emplace_back(RunPlugin{
            needs.kind, IndicesOf(needs.required, known), IndicesOf(needs.provided, known), needs.commands});
        for (const std::size_t barrier : plugin.required) {
            graph.barriers[barrier].requirers.push_back(index);
        }
        for (const std::size_t barrier : plugin.provided) {
            graph.barriers[barrier].providers.push_back(index);
        }
    }
}

}  // namespace

const char* PluginKindText(PluginKind kind) {
    return kKindTexts.at(static_cast<std::size_t>(kind));
}

RunGraph ReadRunGraph(const ProfileBlock& block, const GraphSources& sources) {
    RunGraph graph;
    if (block.kind == RunKind::kDaemon) {
        Connect(ReadDaemons(block, sources, graph.warnings), graph);
    } else {
        Connect(BootReader(block, sources, graph.warnings).Read(), graph);
    }
    return graph;
}

}  // namespace bootweave
