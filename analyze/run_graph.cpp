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

#include "analyze/field_text.h"
#include "driver/discovery.h"
#include "plugins/json_plugin_file.h"
#include "plugins/native_metadata.h"
#include "util/error_text.h"
#include "util/exception.h"

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
    bool operator==(const Needs&) const = default;
};

/// Where a boot finds a plugin: in its file, or in a line of the debug injections.
struct Source {
    std::string path{};   // of the file; empty for an injection
    Needs injected{};     // of the injection
    bool walked = false;  // met in the directory, whose order nobody has chosen
};

/// By the plugins' names as a log has them; those of one name in the order in which a boot collects them.
using Sources = std::map<std::string, std::vector<Source>>;

/// The names of a directory's files, in the order that a boot meets them in.
std::vector<std::string> FileNames(const std::filesystem::path& place, const std::string& directory) {
    std::vector<std::string> names;
    std::error_code error;
    for (std::filesystem::directory_iterator entry(place, error), end; !error && entry != end;
         entry.increment(error)) {
        names.push_back(entry->path().filename().string());
    }
    if (error) {
        throw Exception("cannot read " + directory + ": " + ErrorText(error.value()));
    }
    return names;
}

Source SourceOf(const DebugInjection& injection, bool walked) {
    return {.injected = {PluginKind::kDebug, injection.requires_names, injection.provides_names, 0},
            .walked = walked};
}

/// A boot walks the directory, where a file may name an injection, too; then come all injections.
Sources FindSources(const std::string& directory, const std::string& injections_path) {
    std::error_code error;
    // Absolute, since the loader looks for a name without a slash in other places.
    const std::filesystem::path place = std::filesystem::absolute(directory, error);
    DebugInjections injections(injections_path);
    const std::vector<DebugInjection>& injected = injections.Load();
    Sources sources;
    for (const std::string& file : FileNames(place, directory)) {
        if (file.ends_with(".json") || file.ends_with(".so")) {
            sources[FieldText(SplitPluginFileName(file).base)].push_back(
                {.path = (place / file).string(), .walked = true});
        } else if (file.ends_with(".debug")) {
            const std::string name = SplitPluginFileName(file).base;
            for (const DebugInjection& injection : injected) {
                if (injection.name == name) {
                    sources[FieldText(name)].push_back(SourceOf(injection, true));
                }
            }
        }
    }
    for (const DebugInjection& injection : injected) {
        sources[FieldText(injection.name)].push_back(SourceOf(injection, false));
    }
    return sources;
}

std::string GuessText(const std::string& name, std::size_t now, std::size_t then) {
    return name + ": " + std::to_string(now) + (now == 1 ? " plugin has" : " plugins have") +
           " this name now, and " + std::to_string(then) + " had it in the run: which is which is a guess";
}

/// The lines of a block by what they name.
using LinesByName = std::map<std::string, std::vector<std::size_t>>;

LinesByName LinesOf(const ProfileBlock& block) {
    LinesByName lines;
    for (std::size_t index = 0; index < block.plugins.size(); ++index) {
        lines[block.plugins[index].name].push_back(index);
    }
    return lines;
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
          lines_(LinesOf(block)),
          found_(FindSources(sources.directory, sources.injections)),
          reader_(sources.native),
          newer_(block),
          warnings_(warnings) {}

    std::vector<Needs> Read() {
        std::vector<Needs> all(block_.plugins.size());
        for (std::size_t index = 0; index < all.size(); ++index) {
            const std::vector<std::size_t>& lines = lines_.at(block_.plugins[index].name);
            if (lines.front() == index) {
                ReadName(block_.plugins[index].name, lines, all);
            }
        }
        newer_.WarnOf(warnings_);
        return all;
    }

  private:
    /// What a source says now, or why it cannot be loaded.
    struct Candidate {
        std::string path;
        bool walked;
        Needs needs{};
        std::string error{};
    };

    /// The lines of one name. Injections come last, and a run leaves none of them out; so what is there more
    /// on one side than on the other is in front.
    void ReadName(const std::string& name, const std::vector<std::size_t>& lines, std::vector<Needs>& all) {
        const std::vector<Candidate> candidates = Load(name, lines.size());
        if (candidates.empty()) {
            for (const std::size_t line : lines) {
                Warn(block_.plugins[line],
                     name + " has no file in " + sources_.directory + ": what it waited for is unknown");
            }
            return;
        }
        const std::size_t shared = std::min(lines.size(), candidates.size());
        for (std::size_t place = 1; place <= shared; ++place) {
            const std::size_t line = lines[lines.size() - shared + place - 1];
            const Candidate& candidate = candidates[candidates.size() - shared + place - 1];
            newer_.Note(candidate.path.empty() ? sources_.injections : candidate.path);
            all[line] = candidate.needs;
            if (!candidate.error.empty()) {
                Warn(block_.plugins[line], name + ": what it waited for is unknown: " + candidate.error);
            }
        }
        const bool any_ran = std::any_of(lines.begin(), lines.end(),
                                         [&](std::size_t line) { return block_.plugins[line].ran(); });
        if (any_ran && IsGuess(candidates, lines.size())) {
            warnings_.push_back(GuessText(name, candidates.size(), lines.size()));
        }
    }

    /// \param lines  how many the run has; of more files those that cannot be loaded had none
    std::vector<Candidate> Load(const std::string& name, std::size_t lines) {
        std::vector<Candidate> all;
        if (const auto found = found_.find(name); found != found_.end()) {
            for (const Source& source : found->second) {
                all.push_back(Load(source));
            }
        }
        const auto is_broken = [](const Candidate& candidate) { return !candidate.error.empty(); };
        const auto broken = static_cast<std::size_t>(std::count_if(all.begin(), all.end(), is_broken));
        if (all.size() > lines && all.size() - broken >= lines) {
            std::erase_if(all, is_broken);
        }
        return all;
    }

    Candidate Load(const Source& source) {
        Candidate candidate{source.path, source.walked, source.injected};
        try {
            if (!source.path.empty()) {
                candidate.needs = ReadFile(source.path);
            }
        } catch (const Exception& error) {
            candidate.error = error.what();
        }
        return candidate;
    }

    /// Whether a line may have been matched with what says something else.
    static bool IsGuess(const std::vector<Candidate>& candidates, std::size_t lines) {
        const bool counts_match = candidates.size() == lines;
        const Candidate* first = nullptr;
        for (const Candidate& candidate : candidates) {
            if (counts_match && !candidate.walked) {
                continue;
            }
            if (first != nullptr && !(first->needs == candidate.needs)) {
                return true;
            }
            first = &candidate;
        }
        return candidates.size() < lines;
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
    const LinesByName lines_;
    const Sources found_;
    NativeMetadataReader reader_;
    NewerFiles newer_;
    std::vector<std::string>& warnings_;
};

/// The start priorities of init scripts by name, as a run of daemons counts them; those of one name in the
/// order in which a run collects them.
std::map<std::string, std::vector<std::uint32_t>> PrioritiesOf(const InitScripts& scripts) {
    std::map<std::string, std::vector<std::uint32_t>> priorities;
    for (const auto& [priority, path] : scripts) {
        priorities[FieldText(path.substr(path.rfind('/') + 1))].push_back(
            static_cast<std::uint32_t>(priority));
    }
    return priorities;
}

/// Whether a line may have been matched with another script's priority.
bool IsGuess(const std::vector<std::uint32_t>& priorities, std::size_t lines) {
    const bool all_same = std::count(priorities.begin(), priorities.end(), priorities.front()) ==
                          static_cast<std::ptrdiff_t>(priorities.size());
    return lines > priorities.size() || (lines < priorities.size() && !all_same);
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

/// Those daemons of a block whose priority is known.
DaemonsByPriority SortDaemons(const ProfileBlock& block, const InitScriptListing& listing,
                              std::vector<std::string>& warnings) {
    const std::map<std::string, std::vector<std::uint32_t>> priorities = PrioritiesOf(listing.scripts);
    const LinesByName all_lines = LinesOf(block);
    const bool is_whole = listing.failure.empty();
    DaemonsByPriority daemons;
    for (std::size_t index = 0; index < block.plugins.size(); ++index) {
        const PluginTimes& daemon = block.plugins[index];
        const auto found = priorities.find(daemon.name);
        if (found == priorities.end()) {
            if (daemon.ran() && is_whole) {
                warnings.push_back(daemon.name +
                                   " is no init script any more: what it waited for is unknown");
            }
            continue;
        }
        const std::vector<std::size_t>& lines = all_lines.at(daemon.name);
        const auto place =
            static_cast<std::size_t>(std::lower_bound(lines.begin(), lines.end(), index) - lines.begin());
        if (place < found->second.size()) {
            daemons[found->second[place]].push_back(index);
        }
        if (place == 0 && is_whole && IsGuess(found->second, lines.size())) {
            warnings.push_back(GuessText(daemon.name, found->second.size(), lines.size()));
        }
    }
    return daemons;
}

std::vector<Needs> ReadDaemons(const ProfileBlock& block, const GraphSources& sources,
                               std::vector<std::string>& warnings) {
    const InitScriptListing listing = RunInitScriptLister(sources.lister);
    if (!listing.failure.empty()) {
        warnings.push_back("cannot list the init scripts: " + listing.failure);
    }
    const DaemonsByPriority daemons = SortDaemons(block, listing, warnings);
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
        graph.barriers.push_back({FieldText(name), {}, {}});
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
