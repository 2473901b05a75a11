// SPDX-License-Identifier: Apache-2.0
#include "analyze/critical_chain.h"

#include <chrono>

#include "gmock/gmock.h"
#include "util/exception.h"

namespace bootweave {
namespace {

using testing::ElementsAre;

constexpr Instant kBegin{std::chrono::hours(24)};
using Providers = std::vector<std::vector<std::size_t>>;

PluginTimes Ran(const char* name, int from, int to) {
    return {name, kBegin + Duration(from), kBegin + Duration(to)};
}

/// 0 a, 1 b, 2 c that waited for both, 3 d that did not run, 4 e that waited for none.
ProfileBlock Block() {
    ProfileBlock block;
    block.start = kBegin;
    block.plugins = {Ran("a", 5, 10), Ran("b", 6, 50), Ran("c", 57, 60), {"d", {}, {}}, Ran("e", 0, 20)};
    return block;
}
const Providers kProviders{{}, {0}, {0, 1, 3}, {0}, {3}};

std::string Shown(const std::optional<Duration>& duration) {
    return duration.has_value() ? std::to_string(duration->count()) : "-";
}

/// A graph with a barrier for each edge.
RunGraph GraphOf(const Providers& providers) {
    RunGraph graph;
    graph.plugins.resize(providers.size());
    for (std::size_t index = 0; index < providers.size(); ++index) {
        for (const std::size_t provider : providers[index]) {
            graph.plugins[index].required.push_back(graph.barriers.size());
            graph.plugins[provider].provided.push_back(graph.barriers.size());
            graph.barriers.push_back(
                {std::to_string(provider) + ">" + std::to_string(index), {provider}, {index}});
        }
    }
    return graph;
}

/// Each link as "NAME AT IDLE".
std::vector<std::string> Chain(const ProfileBlock& block, const Providers& providers,
                               const std::optional<std::string>& name = {}) {
    std::vector<std::string> links;
    for (const ChainLink& link : CriticalChain(block, GraphOf(providers), name)) {
        links.push_back(block.plugins[link.plugin].name + " " + Shown(link.at) + " " + Shown(link.idle));
    }
    return links;
}

std::string ErrorOf(const ProfileBlock& block, const std::optional<std::string>& name) {
    try {
        static_cast<void>(CriticalChain(block, GraphOf(Providers(block.plugins.size())), name));
    } catch (const Exception& exception) {
        return exception.what();
    }
    return "";
}

TEST(CriticalChainTest, ItGoesFromTheLastToEndOverTheProvidersThatEndedLast) {
    EXPECT_THAT(Chain(Block(), kProviders), ElementsAre("c 57 7", "b 6 -", "a 5 5"));
}

TEST(CriticalChainTest, APluginThatBeganBeforeItsProviderHadEndedIsNamedAndItsWaitUnknown) {
    const auto early = [](const Providers& providers) {
        const RunGraph graph = GraphOf(providers);
        return EarlyStarts(Block(), CriticalChain(Block(), graph, {}));
    };
    EXPECT_THAT(early(kProviders), ElementsAre("b began before a had ended: what it waited for is unknown"));
    EXPECT_THAT(early({{}, {}, {0, 1}, {}, {}}), ElementsAre());
    EXPECT_THAT(early({{}, {}, {2}, {}, {}}), ElementsAre());  // that is a circle
    EXPECT_THAT(EarlyStarts(Block(), {}), ElementsAre());
}

TEST(CriticalChainTest, APluginThatBeganWhenItsProviderEndedWasNotIdle) {
    ProfileBlock block = Block();
    block.plugins[1] = Ran("b", 10, 50);
    EXPECT_THAT(Chain(block, kProviders), ElementsAre("c 57 7", "b 10 0", "a 5 5"));
}

TEST(CriticalChainTest, ItMayBeginWithAnyPluginThatRan) {
    EXPECT_THAT(Chain(Block(), kProviders, "b"), ElementsAre("b 6 -", "a 5 5"));
    EXPECT_THAT(Chain(Block(), kProviders, "e"), ElementsAre("e 0 0"));
}

TEST(CriticalChainTest, ALinkNamesTheBarrierThatItWaitedAt) {
    const RunGraph graph = GraphOf(kProviders);
    const std::vector<ChainLink> chain = CriticalChain(Block(), graph, {});
    ASSERT_EQ(3U, chain.size());
    EXPECT_EQ("1>2", graph.barriers[chain[0].barrier.value()].name);
    EXPECT_EQ("0>1", graph.barriers[chain[1].barrier.value()].name);
    EXPECT_EQ(std::nullopt, chain[2].barrier);
}

TEST(CriticalChainTest, OfSeveralProvidersOfABarrierTheLastToEndCounts) {
    RunGraph graph;
    graph.plugins.resize(5);
    graph.plugins[2].required = {0};
    graph.barriers = {{"x", {0, 1, 3, 4}, {2}}};
    const std::vector<ChainLink> chain = CriticalChain(Block(), graph, {});
    ASSERT_EQ(2U, chain.size());
    EXPECT_EQ(1U, chain[1].plugin);
}

TEST(CriticalChainTest, ACircleEndsIt) {
    EXPECT_THAT(Chain(Block(), {{1}, {0}, {1}, {}, {}}), ElementsAre("c 57 7", "b 6 -", "a 5 -"));
    EXPECT_THAT(Chain(Block(), {{}, {}, {2}, {}, {}}), ElementsAre("c 57 -"));
}

TEST(CriticalChainTest, ACircleHasItsName) {
    const auto circle = [](const Providers& providers) {
        const RunGraph graph = GraphOf(providers);
        return CircleOf(Block(), graph, CriticalChain(Block(), graph, {}));
    };
    EXPECT_EQ("b -> a -> b", circle({{1}, {0}, {1}, {}, {}}));
    EXPECT_EQ("c -> c", circle({{}, {}, {2}, {}, {}}));
    EXPECT_EQ("", circle(kProviders));
    EXPECT_EQ("", CircleOf(Block(), GraphOf(kProviders), {}));
}

TEST(CriticalChainTest, WithoutTheRunsStartTheFirstWaitIsUnknown) {
    ProfileBlock block = Block();
    block.start.reset();
    EXPECT_THAT(Chain(block, kProviders), ElementsAre("c - 7", "b - -", "a - -"));
}

TEST(CriticalChainTest, APluginThatBeganBeforeTheRunDidSoAtAnUnknownTime) {
    ProfileBlock block = Block();
    block.start = kBegin + Duration(6);
    EXPECT_THAT(Chain(block, kProviders), ElementsAre("c 51 7", "b 0 -", "a - -"));
}

TEST(CriticalChainTest, APluginThatIsNotThereOrDidNotRunIsAnError) {
    EXPECT_EQ("the profile has no plugin x", ErrorOf(Block(), "x"));
    EXPECT_EQ("d did not run", ErrorOf(Block(), "d"));
    EXPECT_EQ("no plugin ran", ErrorOf(ProfileBlock(), {}));
}

}  // namespace
}  // namespace bootweave
