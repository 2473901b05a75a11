// SPDX-License-Identifier: Apache-2.0
#include "analyze/simulation.h"

#include <algorithm>
#include <cstdint>
#include <iterator>
#include <memory>
#include <set>
#include <unordered_map>

#include "analyze/named_plugins.h"
#include "analyze/timing.h"
#include "driver/worker_count.h"
#include "graph/barrier.h"
#include "graph/node.h"
#include "graph/virtual_run.h"
#include "util/exception.h"

namespace bootweave {
namespace {

constexpr std::uint32_t kOrderKey = 1;  // of all plugins but daemons
constexpr std::uint32_t kDaemonOrderKey = 3;

/// Sums with what a run took beside its plugins are far from an overflow.
constexpr Duration kMostWork = Duration::max() / 4;

/// What each plugin takes; empty for one that does not run.
using Times = std::vector<std::optional<Duration>>;

/// A plugin that nobody ever runs.
class ImaginedNode : public Node {
  public:
    using Node::Node;
    void Execute() override {}
    [[nodiscard]] std::string GetDotAttributes() const override { return {}; }
};

Times TimesOf(const ProfileBlock& block, const WhatIf& what_if) {
    Times times;
    for (const PluginTimes& plugin : block.plugins) {
        times.push_back(plugin.ran() ? std::optional(plugin.taken()) : std::nullopt);
    }
    std::set<std::string> given;
    for (const auto& [name, time] : what_if.times) {
        given.insert(name);
        for (const std::size_t index : PluginsNamed(block, name)) {
            times[index] = time;
        }
    }
    for (const std::string& name : what_if.without) {
        if (given.contains(name)) {
            throw Exception(name + " is left out, and has a time");
        }
        for (const std::size_t index : PluginsNamed(block, name)) {
            times[index].reset();
        }
    }
    return times;
}

/// The nodes of one imagined run.
class ImaginedRun {
  public:
    /// \param commands_wait  each for its turn, as host commands do
    ImaginedRun(const ProfileBlock& block, const RunGraph& graph, const Times& times, bool commands_wait)
        : graph_(graph), times_(times), commands_wait_(commands_wait) {
        const std::uint32_t key = block.kind == RunKind::kDaemon ? kDaemonOrderKey : kOrderKey;
        for (const RunBarrier& barrier : graph.barriers) {
            barriers_.push_back(std::make_unique<InitBarrier>(barrier.name));
        }
        for (std::size_t index = 0; index < graph.plugins.size(); ++index) {
            // As a boot links them: first what is required, then what is provided.
            nodes_.push_back(std::make_unique<ImaginedNode>(block.plugins[index].name, key));
            Node& node = *nodes_.back();
            all_.push_back(&node);
            index_of_.emplace(&node, index);
            for (const std::size_t barrier : graph.plugins[index].required) {
                node.AddDependency(*barriers_[barrier]);
            }
            for (const std::size_t barrier : graph.plugins[index].provided) {
                node.AddDependent(*barriers_[barrier]);
            }
            if (!times[index].has_value()) {
                node.MarkDone();
            }
        }
    }

    /// The plugins in the order in which they were taken.
    std::vector<SimulatedPlugin> Run(std::size_t threads, bool randomize) {
        const VirtualOutcome outcome =
            RunInVirtualTime(all_, threads, randomize, [this](const Node& node) { return WorkOf(node); });
        if (!outcome.circle.empty()) {
            throw Exception("plugins wait for each other: " + outcome.circle);
        }
        std::vector<SimulatedPlugin> plugins;
        for (const VirtualSpan& span : outcome.spans) {
            if (const auto found = index_of_.find(span.node); found != index_of_.end()) {
                const Duration taken = times_[found->second].value_or(Duration(0));
                plugins.push_back({found->second, span.start, taken, span.end - span.start - taken});
            }
        }
        return plugins;
    }

  private:
    /// A barrier takes no time.
    [[nodiscard]] VirtualWork WorkOf(const Node& node) const {
        const auto found = index_of_.find(&node);
        if (found == index_of_.end()) {
            return {};
        }
        return {.time = times_[found->second].value_or(Duration(0)),
                .shared_steps = commands_wait_ ? graph_.plugins[found->second].commands : 0};
    }

    const RunGraph& graph_;
    const Times& times_;
    const bool commands_wait_;
    std::vector<std::unique_ptr<InitBarrier>> barriers_;
    std::vector<std::unique_ptr<ImaginedNode>> nodes_;
    std::vector<Node*> all_;
    std::unordered_map<const Node*, std::size_t> index_of_;
};

Duration EndOf(const std::vector<SimulatedPlugin>& plugins) {
    Duration end{0};
    for (const SimulatedPlugin& plugin : plugins) {
        end = std::max(end, plugin.at + plugin.taken + plugin.waited);
    }
    return end;
}

/// What the recorded run took, and what of it lies in front of the first plugin and behind the last. A boot
/// whose first line is missing may have begun with plugins that are missing, too.
void Measure(const ProfileBlock& block, Simulation& simulation) {
    simulation.recorded = Summarize(block).total;
    if (!simulation.recorded.has_value() || (block.kind == RunKind::kBoot && !block.kernel.has_value())) {
        return;
    }
    Instant first = Instant::max();
    Instant last = Instant::min();
    for (const PluginTimes& plugin : block.plugins) {
        if (plugin.ran()) {
            first = std::min(first, plugin.start);
            last = std::max(last, plugin.end);
        }
    }
    simulation.outside = *simulation.recorded - (first < last ? last - first : Duration(0));
}

/// How many plugins ran at a time, at most; those that took no time do not count.
std::size_t MostAtATime(const ProfileBlock& block) {
    std::vector<std::pair<Instant, int>> changes;
    for (const PluginTimes& plugin : block.plugins) {
        if (plugin.taken() > Duration(0)) {
            changes.emplace_back(plugin.start, 1);
            changes.emplace_back(plugin.end, -1);
        }
    }
    std::sort(changes.begin(), changes.end());  // at one instant those that end come first
    std::size_t running = 0;
    std::size_t most = 0;
    for (const auto& [instant, change] : changes) {
        running = change > 0 ? running + 1 : running - 1;
        most = std::max(most, running);
    }
    return most;
}

/// Says what settings were taken for, where the profile does not tell them.
void WarnOfSettings(const ProfileBlock& block, Simulation& simulation) {
    if (!block.settings.parallel.has_value()) {
        simulation.warnings.push_back(
            std::string("the profile does not tell whether the run was serial or parallel: taken for ") +
            (simulation.parallel ? "parallel, since plugins ran at the same time"
                                 : "serial, since no two plugins ran at a time"));
    }
    if (!block.settings.randomize.has_value()) {
        simulation.warnings.emplace_back(
            "the profile does not tell whether the run chose at random: taken for one that did not");
    }
}

/// Barriers that have lost the last of the providers that the run had.
std::vector<std::string> Orphans(const ProfileBlock& block, const RunGraph& graph, const Times& times) {
    std::vector<std::string> warnings;
    for (const RunBarrier& barrier : graph.barriers) {
        const auto count = [&](const auto& runs) {
            return std::count_if(barrier.providers.begin(), barrier.providers.end(), runs);
        };
        const bool had = count([&](std::size_t index) { return block.plugins[index].ran(); }) > 0;
        const bool has = count([&](std::size_t index) { return times[index].has_value(); }) > 0;
        if (had && !has && !barrier.requirers.empty()) {
            warnings.push_back("nobody provides " + barrier.name + " then: what requires it does not wait");
        }
    }
    return warnings;
}

}  // namespace

std::optional<Duration> Simulation::change() const {
    const std::optional<Duration> total = simulated();
    return total.has_value() && recorded.has_value() ? std::optional(*total - *recorded) : std::nullopt;
}

std::optional<Duration> Simulation::bound() const {
    const auto count = static_cast<Duration::rep>(threads);
    const Duration shared((work.count() + count - 1) / count);
    return std::max(bound_of_any(), WithOutside(shared));
}

bool WasParallel(const ProfileBlock& block) {
    return block.settings.parallel.value_or(MostAtATime(block) > 1);
}

std::size_t RecordedThreads(const ProfileBlock& block) {
    if (!WasParallel(block)) {
        return 1;
    }
    const std::size_t workers = ParallelWorkers(block.plugins.size());
    return std::max({workers, MostAtATime(block), std::size_t{1}});
}

Simulation Simulate(const ProfileBlock& block, const RunGraph& graph, const WhatIf& what_if) {
    Simulation simulation;
    const Times times = TimesOf(block, what_if);
    simulation.parallel = WasParallel(block);
    const bool was_serial = !simulation.parallel;
    for (std::size_t index = 0; index < times.size(); ++index) {
        const Duration time = times[index].value_or(Duration(0));
        if (time > kMostWork - simulation.work) {
            throw Exception("the plugins would take longer than can be added up");
        }
        simulation.work += time;
        simulation.commands += was_serial && graph.plugins[index].commands > 0 ? time : Duration(0);
    }
    simulation.threads = what_if.threads.value_or(RecordedThreads(block));
    WarnOfSettings(block, simulation);
    std::ranges::move(Orphans(block, graph, times), std::back_inserter(simulation.warnings));
    Measure(block, simulation);
    simulation.plugins = ImaginedRun(block, graph, times, was_serial)
                             .Run(simulation.threads, block.settings.randomize.value_or(false));
    if (simulation.plugins.empty()) {
        throw Exception("no plugin would run");
    }
    simulation.makespan = EndOf(simulation.plugins);
    // With a worker for everything each plugin starts when the last that it waits for has ended.
    const std::size_t enough = graph.plugins.size() + graph.barriers.size();
    simulation.longest_chain = EndOf(ImaginedRun(block, graph, times, false).Run(enough, false));
    return simulation;
}

}  // namespace bootweave
