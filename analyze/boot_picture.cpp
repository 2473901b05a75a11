// SPDX-License-Identifier: Apache-2.0
#include "analyze/boot_picture.h"

#include <algorithm>
#include <functional>
#include <optional>
#include <queue>
#include <set>
#include <utility>

namespace bootweave {
namespace {

/// A zero-length end cannot lie before a start: the clock may have been set back.
Instant EndOf(const PluginTimes& plugin) {
    return plugin.start + plugin.taken();
}

void SetAxis(const ProfileBlock& block, BootPicture& picture) {
    Instant first = block.start.value_or(Instant::max());
    Instant last = block.end.value_or(Instant::min());
    for (const PluginTimes& plugin : block.plugins) {
        if (plugin.ran()) {
            first = std::min(first, plugin.start);
            last = std::max(last, EndOf(plugin));
        }
    }
    picture.origin = first;
    picture.span = std::max(last - first, Duration(1));
}

/// Hands out lanes, the lowest one that is free.
class Lanes {
  public:
    std::size_t Take(Instant start, Instant end) {
        while (!busy_.empty() && busy_.top().first <= start) {
            free_.insert(busy_.top().second);
            busy_.pop();
        }
        const std::size_t lane = free_.empty() ? count_++ : *free_.begin();
        free_.erase(lane);
        busy_.emplace(end, lane);
        return lane;
    }
    [[nodiscard]] std::size_t count() const { return count_; }

  private:
    using Busy = std::pair<Instant, std::size_t>;
    std::priority_queue<Busy, std::vector<Busy>, std::greater<>> busy_;
    std::set<std::size_t> free_;
    std::size_t count_ = 0;
};

void AddBars(const ProfileBlock& block, BootPicture& picture) {
    std::vector<bool> critical(block.plugins.size());
    for (const ChainLink& link : picture.chain) {
        critical[link.plugin] = true;
    }
    std::vector<std::size_t> order;
    for (std::size_t index = 0; index < block.plugins.size(); ++index) {
        if (block.plugins[index].ran()) {
            order.push_back(index);
        }
    }
    std::stable_sort(order.begin(), order.end(), [&](std::size_t one, std::size_t other) {
        return block.plugins[one].start < block.plugins[other].start;
    });
    Lanes lanes;
    for (const std::size_t index : order) {
        const PluginTimes& plugin = block.plugins[index];
        picture.bars.push_back({index, lanes.Take(plugin.start, EndOf(plugin)), plugin.start - picture.origin,
                                plugin.taken(), critical[index]});
    }
    picture.lanes = lanes.count();
    std::stable_sort(picture.bars.begin(), picture.bars.end(),
                     [](const PictureBar& one, const PictureBar& other) { return one.lane < other.lane; });
}

void AddTicks(const ProfileBlock& block, const RunGraph& graph, BootPicture& picture) {
    for (std::size_t index = 0; index < graph.barriers.size(); ++index) {
        std::optional<Instant> done;
        for (const std::size_t provider : graph.barriers[index].providers) {
            const PluginTimes& plugin = block.plugins[provider];
            if (plugin.ran()) {
                done = std::max(done.value_or(EndOf(plugin)), EndOf(plugin));
            }
        }
        if (done.has_value()) {
            picture.ticks.push_back({index, *done - picture.origin});
        }
    }
    std::stable_sort(picture.ticks.begin(), picture.ticks.end(),
                     [](const PictureTick& one, const PictureTick& other) { return one.at < other.at; });
}

}  // namespace

BootPicture LayOut(const ProfileBlock& block, const RunGraph& graph) {
    BootPicture picture{};
    picture.chain = CriticalChain(block, graph, std::nullopt);
    std::reverse(picture.chain.begin(), picture.chain.end());
    SetAxis(block, picture);
    AddBars(block, picture);
    AddTicks(block, graph, picture);
    return picture;
}

}  // namespace bootweave
