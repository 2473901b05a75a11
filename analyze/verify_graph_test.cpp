// SPDX-License-Identifier: Apache-2.0
#include "analyze/verify_graph.h"

#include <map>
#include <random>
#include <set>
#include <string>
#include <vector>

#include "gmock/gmock.h"

#include "analyze/verify_test_support.h"

namespace bootweave {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using Names = std::vector<std::string>;

VerifiedPlugin Plugin(const std::string& name, const Names& needed, const Names& given) {
    return {.name = name, .file = name + ".json", .requires_names = needed, .provides_names = given};
}

VerifiedPlugin Around(VerifiedPlugin plugin) {
    plugin.reported = false;
    return plugin;
}

Findings CircleFindings(const std::vector<VerifiedPlugin>& plugins) {
    Findings findings;
    CheckCircles(plugins, findings);
    return findings;
}

Findings BarrierFindings(const std::vector<VerifiedPlugin>& plugins) {
    Findings findings;
    CheckBarriers(plugins, findings);
    return findings;
}

Finding Circle(const std::string& plugin, const std::string& path) {
    return {plugin + ".json", Severity::kError, FindingKind::kCircle, plugin,
            "plugins wait for each other: " + path};
}

Finding Barrier(const std::string& plugin, FindingKind kind, const std::string& text) {
    return {plugin + ".json", Severity::kWarning, kind, plugin, text};
}

TEST(VerifyCirclesTest, AChainAndADiamondAreFine) {
    EXPECT_THAT(
        CircleFindings({Plugin("a", {}, {"x"}), Plugin("b", {"x"}, {"y", "z"}), Plugin("c", {"y"}, {"e"}),
                        Plugin("d", {"y", "z"}, {"e"}), Plugin("e", {"e", "x", "nowhere"}, {})}),
        IsEmpty());
}

TEST(VerifyCirclesTest, ACircleIsAPathFromWhoWaitsToWhomItWaitsFor) {
    EXPECT_THAT(CircleFindings({Plugin("a", {"x"}, {"y"}), Plugin("b", {"y"}, {"x"})}),
                ElementsAre(Circle("a", "a -> b -> a")));
    EXPECT_THAT(
        CircleFindings({Plugin("a", {"x"}, {"z"}), Plugin("b", {"z"}, {"y"}), Plugin("c", {"y"}, {"x"})}),
        ElementsAre(Circle("a", "a -> c -> b -> a")));
}

TEST(VerifyCirclesTest, APluginThatRequiresWhatItProvidesWaitsForItself) {
    EXPECT_THAT(CircleFindings({Plugin("a", {"x"}, {"x"})}), ElementsAre(Circle("a", "a -> a")));
}

TEST(VerifyCirclesTest, OfAGroupOneShortestCircleIsTold) {
    EXPECT_THAT(CircleFindings({Plugin("a", {"b", "c"}, {"a"}), Plugin("b", {"c"}, {"b"}),
                                Plugin("c", {"a"}, {"c"}), Plugin("outside", {"a"}, {})}),
                ElementsAre(Circle("a", "a -> c -> a")));
}

TEST(VerifyCirclesTest, EachGroupHasItsOwn) {
    EXPECT_THAT(CircleFindings(
                    {Plugin("a", {"a"}, {"a"}), Plugin("b", {"a", "c"}, {"b"}), Plugin("c", {"b"}, {"c"})}),
                ElementsAre(Circle("a", "a -> a"), Circle("b", "b -> c -> b")));
}

TEST(VerifyCirclesTest, ACircleIsSaidOfAPluginThatIsToBeReported) {
    const VerifiedPlugin a = Plugin("a", {"x"}, {"y"});
    const VerifiedPlugin b = Plugin("b", {"y"}, {"x"});
    EXPECT_THAT(CircleFindings({Around(a), b}), ElementsAre(Circle("b", "b -> a -> b")));
    EXPECT_THAT(CircleFindings({Around(a), Around(b)}), IsEmpty());
}

TEST(VerifyCirclesTest, ACircleOfAHundredThousandCostsNoStack) {
    constexpr int kPlugins = 100000;
    std::vector<VerifiedPlugin> plugins;
    for (int number = 0; number < kPlugins; ++number) {
        plugins.push_back(Plugin("p", {std::to_string(number)}, {std::to_string((number + 1) % kPlugins)}));
    }
    const Findings findings = CircleFindings(plugins);
    ASSERT_EQ(1U, findings.size());
    const std::string start = "plugins wait for each other: ";
    EXPECT_EQ(start.size() + kPlugins * std::string("p -> ").size() + 1, findings[0].text.size());
}

/// The plugins that can reach themselves, by trying every way.
std::set<std::string> OnCircles(const std::vector<VerifiedPlugin>& plugins) {
    std::map<std::string, std::set<std::string>> reach;
    for (const VerifiedPlugin& waiting : plugins) {
        for (const VerifiedPlugin& provider : plugins) {
            for (const std::string& barrier : waiting.requires_names) {
                if (std::count(provider.provides_names.begin(), provider.provides_names.end(), barrier) > 0) {
                    reach[waiting.name].insert(provider.name);
                }
            }
        }
    }
    for (std::size_t round = 0; round < plugins.size(); ++round) {
        for (auto& [name, reached] : reach) {
            for (const std::string& next : std::set(reached)) {
                reached.insert(reach[next].begin(), reach[next].end());
            }
        }
    }
    std::set<std::string> found;
    for (const auto& [name, reached] : reach) {
        if (reached.contains(name)) {
            found.insert(name);
        }
    }
    return found;
}

TEST(VerifyCirclesTest, ThereIsAFindingExactlyWhenAPluginCanReachItself) {
    std::mt19937 random(20261122);
    for (int round = 0; round < 300; ++round) {
        std::vector<VerifiedPlugin> plugins;
        for (int number = 0; number < 6; ++number) {
            const auto barrier = [&] { return std::to_string(random() % 9); };
            plugins.push_back(Plugin(std::to_string(number), {barrier()}, {barrier()}));
        }
        const std::set<std::string> on_circles = OnCircles(plugins);
        const Findings findings = CircleFindings(plugins);
        EXPECT_EQ(on_circles.empty(), findings.empty()) << round;
        for (const Finding& finding : findings) {
            EXPECT_TRUE(on_circles.contains(finding.plugin)) << round;
        }
    }
}

TEST(VerifyBarriersTest, ABarrierWithBothSidesIsFine) {
    EXPECT_THAT(BarrierFindings({Plugin("a", {}, {"x"}), Plugin("b", {"x"}, {})}), IsEmpty());
}

TEST(VerifyBarriersTest, ABarrierWithOneSideIsNamedOnceForEachPlugin) {
    const std::string unprovided = "nobody provides the barrier 'n' that it requires";
    EXPECT_THAT(BarrierFindings({Plugin("a", {"n", "n"}, {"network"}), Plugin("b", {"n"}, {})}),
                ElementsAre(Barrier("a", FindingKind::kNotProvided, unprovided),
                            Barrier("a", FindingKind::kNotRequired,
                                    "nobody requires the barrier 'network' that it provides"),
                            Barrier("b", FindingKind::kNotProvided, unprovided)));
}

TEST(VerifyBarriersTest, ABarrierThatIsProvidedUnderNearlyThatNameIsOffered) {
    EXPECT_THAT(BarrierFindings({Plugin("a", {}, {"network"}), Plugin("b", {"netwrok"}, {}),
                                 Plugin("c", {"network"}, {})}),
                ElementsAre(Barrier(
                    "b", FindingKind::kNotProvided,
                    "nobody provides the barrier 'netwrok' that it requires; did you mean 'network'?")));
}

TEST(VerifyBarriersTest, WhatStandsAroundCountsAndIsNotReported) {
    EXPECT_THAT(BarrierFindings({Around(Plugin("a", {"y"}, {"x"})), Plugin("b", {"x"}, {})}), IsEmpty());
}

TEST(VerifyBarriersTest, WhenThereAreTooManyToCompareNoneIsOffered) {
    std::vector<VerifiedPlugin> plugins;
    for (int number = 0; number < 1000; ++number) {
        const std::string name = "barrier-" + std::to_string(number);
        plugins.push_back(Plugin("p", {name + "x"}, {name}));
    }
    const Findings findings = BarrierFindings(plugins);
    ASSERT_EQ(2000U, findings.size());
    EXPECT_EQ("nobody provides the barrier 'barrier-0x' that it requires; did you mean 'barrier-0'?",
              findings.front().text);
    EXPECT_EQ("nobody provides the barrier 'barrier-999x' that it requires", findings[1998].text);
}

}  // namespace
}  // namespace bootweave
