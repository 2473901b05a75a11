// SPDX-License-Identifier: Apache-2.0
#include "analyze/comparison.h"

#include <chrono>

#include "gmock/gmock.h"

namespace bootweave {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

PluginTimes Took(const char* name, int time) {
    const Instant begin{std::chrono::hours(24)};
    return {name, begin, begin + Duration(time)};
}

std::string Shown(const std::optional<Duration>& duration) {
    return duration.has_value() ? std::to_string(duration->count()) : "-";
}

/// Each change as "NAME BEFORE AFTER".
std::vector<std::string> Changes(std::vector<PluginTimes> before, std::vector<PluginTimes> after) {
    ProfileBlock one;
    one.plugins = std::move(before);
    ProfileBlock other;
    other.plugins = std::move(after);
    std::vector<std::string> changes;
    for (const PluginChange& change : ComparePlugins(one, other)) {
        changes.push_back(change.name + " " + Shown(change.before) + " " + Shown(change.after));
    }
    return changes;
}

TEST(ComparisonTest, TheGreatestChangeComesFirstWhicheverWayItGoes) {
    EXPECT_THAT(
        Changes({Took("a", 10), Took("b", 50), Took("c", 7)}, {Took("c", 7), Took("b", 20), Took("a", 30)}),
        ElementsAre("b 50 20", "a 10 30", "c 7 7"));
}

TEST(ComparisonTest, APluginThatRanInOneRunOnlyChangesByAllItsTime) {
    EXPECT_THAT(Changes({Took("gone", 5), Took("left out", 9)}, {Took("new", 7), {"left out", {}, {}}}),
                ElementsAre("left out 9 -", "new - 7", "gone 5 -"));
}

TEST(ComparisonTest, EqualChangesKeepTheOrderOfTheNewLogAndThenOfTheOld) {
    EXPECT_THAT(Changes({Took("z", 5), Took("y", 5)}, {Took("x", 5), Took("a", 5)}),
                ElementsAre("x - 5", "a - 5", "z 5 -", "y 5 -"));
}

TEST(ComparisonTest, PluginsOfOneNameAreComparedInTheirOrder) {
    EXPECT_THAT(Changes({Took("a", 1), Took("a", 100)}, {Took("a", 3), Took("a", 110), Took("a", 5)}),
                ElementsAre("a 100 110", "a - 5", "a 1 3"));
}

TEST(ComparisonTest, RunsWithoutPluginsHaveNoChanges) {
    EXPECT_THAT(Changes({}, {}), IsEmpty());
}

}  // namespace
}  // namespace bootweave
