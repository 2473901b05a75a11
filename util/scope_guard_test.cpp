// SPDX-License-Identifier: Apache-2.0
#include "util/scope_guard.h"

#include <stdexcept>
#include <vector>

#include "gmock/gmock.h"

namespace bootweave {
namespace {

TEST(ScopeGuardTest, RunsItsActionOnceWhenTheScopeEnds) {
    int runs = 0;
    {
        const ScopeGuard guard([&] { ++runs; });
        EXPECT_EQ(0, runs);
    }
    EXPECT_EQ(1, runs);
}

TEST(ScopeGuardTest, RunsItsActionWhenAnExceptionEndsTheScope) {
    int runs = 0;
    try {
        const ScopeGuard guard([&] { ++runs; });
        throw std::runtime_error("x");
    } catch (const std::runtime_error&) {
        EXPECT_EQ(1, runs);
    }
    EXPECT_EQ(1, runs);
}

TEST(ScopeGuardTest, GuardsEndInReverseOrder) {
    std::vector<int> order;
    {
        const ScopeGuard first([&] { order.push_back(1); });
        const ScopeGuard second([&] { order.push_back(2); });
    }
    EXPECT_THAT(order, testing::ElementsAre(2, 1));
}

}  // namespace
}  // namespace bootweave
