// SPDX-License-Identifier: Apache-2.0
#include "analyze/verify_graph.h"

#include <algorithm>
#include <cstddef>
#include <limits>
#include <set>
#include <string>
#include <string_view>
#include <unordered_map>
#include <unordered_set>
#include <utility>

#include "analyze/did_you_mean.h"

namespace bootweave {
namespace {

using Index = std::size_t;
constexpr Index kNone = std::numeric_limits<Index>::max();

/// Who waits for whom. The plugins come first, then the barriers: edges from plugin to plugin would be as
/// many as pairs that meet at a barrier.
class WaitingGraph {
  public:
    explicit WaitingGraph(const std::vector<VerifiedPlugin>& plugins) : awaited_(plugins.size()) {
        for (Index plugin = 0; plugin < plugins.size(); ++plugin) {
            for (const std::string& barrier : plugins[plugin].requires_names) {
                const Index index = IndexOf(barrier);  // which may move the lists
                awaited_[plugin].push_back(index);
            }
            for (const std::string& barrier : plugins[plugin].provides_names) {
                const Index index = IndexOf(barrier);
                awaited_[index].push_back(plugin);
            }
        }
    }

    [[nodiscard]] std::size_t size() const { return awaited_.size(); }
    [[nodiscard]] const std::vector<Index>& awaited(Index node) const { return awaited_[node]; }

  private:
    Index IndexOf(const std::string& barrier) {
        const auto [known, is_new] = barriers_.emplace(barrier, awaited_.size());
        if (is_new) {
            awaited_.emplace_back();
        }
        return known->second;
    }

    std::vector<std::vector<Index>> awaited_;
    std::unordered_map<std::string_view, Index> barriers_;
};

/// Tarjan's algorithm, with a list of its own instead of recursion: a chain may be longer than a stack is
/// deep.
class Components {
  public:
    explicit Components(const WaitingGraph& graph)
        : graph_(graph),
          number_(graph.size(), kNone),
          lowest_(graph.size()),
          component_(graph.size(), kNone) {
        for (Index node = 0; node < graph.size(); ++node) {
            if (number_[node] == kNone) {
                Walk(node);
            }
        }
    }

    /// The nodes that wait for each other have the same one.
    [[nodiscard]] Index of(Index node) const { return component_[node]; }

  private:
    struct Step {
        Index node;
        std::size_t next = 0;  ///< of the nodes that it awaits
    };

    void Enter(Index node) {
        number_[node] = lowest_[node] = entered_++;
        open_.push_back(node);
        path_.push_back({node});
    }

    void Walk(Index start) {
        Enter(start);
        while (!path_.empty()) {
            Step& step = path_.back();
            const std::vector<Index>& awaited = graph_.awaited(step.node);
            if (step.next == awaited.size()) {
                Leave(step.node);
                continue;
            }
            const Index node = step.node;
            const Index next = awaited[step.next++];
            if (number_[next] == kNone) {
                Enter(next);
            } else if (component_[next] == kNone) {
                lowest_[node] = std::min(lowest_[node], number_[next]);
            }
        }
    }

    void Leave(Index node) {
        path_.pop_back();
        if (!path_.empty()) {
            Index& lowest = lowest_[path_.back().node];
            lowest = std::min(lowest, lowest_[node]);
        }
        if (lowest_[node] != number_[node]) {
            return;
        }
        Index member = kNone;
        while (member != node) {
            member = open_.back();
            open_.pop_back();
            component_[member] = node;
        }
    }

    const WaitingGraph& graph_;
    std::vector<Index> number_;  // in the order of entering
    std::vector<Index> lowest_;  // number that can be reached
    std::vector<Index> component_;
    std::vector<Index> open_;  // entered, and in no component yet
    std::vector<Step> path_;
    Index entered_ = 0;
};

/// The plugins on a shortest way from a plugin back to itself; empty when there is none.
std::vector<Index> ShortestCircle(const WaitingGraph& graph, const Components& components, Index start,
                                  std::size_t plugin_count) {
    std::unordered_map<Index, Index> reached_from;
    std::vector<Index> front{start};
    while (!front.empty() && !reached_from.contains(start)) {
        std::vector<Index> next_front;
        for (const Index node : front) {
            for (const Index next : graph.awaited(node)) {
                if (components.of(next) == components.of(start) && reached_from.emplace(next, node).second) {
                    next_front.push_back(next);
                }
            }
        }
        front = std::move(next_front);
    }
    std::vector<Index> circle;
    for (auto step = reached_from.find(start); step != reached_from.end();
         step = reached_from.find(step->second)) {
        if (step->second < plugin_count) {
            circle.push_back(step->second);
        }
        if (step->second == start) {
            break;
        }
    }
    std::reverse(circle.begin(), circle.end());
    return circle;
}

using Names = std::unordered_set<std::string_view>;

Names Collect(const std::vector<VerifiedPlugin>& plugins, std::vector<std::string> VerifiedPlugin::*list) {
    Names names;
    for (const VerifiedPlugin& plugin : plugins) {
        names.insert((plugin.*list).begin(), (plugin.*list).end());
    }
    return names;
}

/// Each name once, in the order of the list.
std::vector<std::string_view> Missing(const std::vector<std::string>& list, const Names& names) {
    std::vector<std::string_view> missing;
    std::set<std::string_view> seen;
    for (const std::string& name : list) {
        if (!names.contains(name) && seen.insert(name).second) {
            missing.emplace_back(name);
        }
    }
    return missing;
}

/// Offers barriers that are provided for those that are not, as long as it takes no time to notice.
class BarrierGuesser {
  public:
    explicit BarrierGuesser(const Names& provided) : provided_(provided.begin(), provided.end()) {
        std::sort(provided_.begin(), provided_.end());
    }

    std::string_view Guess(std::string_view barrier) {
        constexpr std::size_t kMostComparisons = 200000;
        if (compared_ + provided_.size() > kMostComparisons) {
            return {};
        }
        compared_ += provided_.size();
        return FindNearest(barrier, provided_);
    }

  private:
    std::vector<std::string_view> provided_;
    std::size_t compared_ = 0;
};

}  // namespace

void CheckCircles(const std::vector<VerifiedPlugin>& plugins, Findings& findings) {
    const WaitingGraph graph(plugins);
    const Components components(graph);
    std::unordered_set<Index> seen;
    for (Index plugin = 0; plugin < plugins.size(); ++plugin) {
        if (!plugins[plugin].reported || seen.contains(components.of(plugin))) {
            continue;
        }
        const std::vector<Index> circle = ShortestCircle(graph, components, plugin, plugins.size());
        if (circle.empty()) {
            continue;
        }
        seen.insert(components.of(plugin));
        std::string text = "plugins wait for each other: ";
        for (const Index member : circle) {
            text += plugins[member].name + " -> ";
        }
        AddFinding(findings, plugins[plugin], Severity::kError, FindingKind::kCircle,
                   text + plugins[plugin].name);
    }
}

void CheckBarriers(const std::vector<VerifiedPlugin>& plugins, Findings& findings) {
    const Names required = Collect(plugins, &VerifiedPlugin::requires_names);
    const Names provided = Collect(plugins, &VerifiedPlugin::provides_names);
    BarrierGuesser guesser(provided);
    for (const VerifiedPlugin& plugin : plugins) {
        if (!plugin.reported) {
            continue;
        }
        for (const std::string_view barrier : Missing(plugin.requires_names, provided)) {
            AddFinding(findings, plugin, Severity::kWarning, FindingKind::kNotProvided,
                       "nobody provides the barrier '" + std::string(barrier) + "' that it requires" +
                           DidYouMean(guesser.Guess(barrier)));
        }
        for (const std::string_view barrier : Missing(plugin.provides_names, required)) {
            AddFinding(findings, plugin, Severity::kWarning, FindingKind::kNotRequired,
                       "nobody requires the barrier '" + std::string(barrier) + "' that it provides");
        }
    }
}

}  // namespace bootweave
