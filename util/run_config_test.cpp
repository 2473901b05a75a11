// SPDX-License-Identifier: Apache-2.0
#include "util/run_config.h"

#include <ctime>
#include <thread>
#include <vector>

#include "gtest/gtest.h"

namespace bootweave {
namespace {

TEST(RunConfigTest, StartsWithTheDefaults) {
    const RunConfig config;
    EXPECT_FALSE(config.verbose);
    EXPECT_FALSE(config.parallel);
    EXPECT_FALSE(config.randomize);
    EXPECT_FALSE(config.interactive);
    EXPECT_FALSE(config.trace);
    EXPECT_EQ(1U, config.threads);
    EXPECT_EQ("", config.plugin_directory);
    EXPECT_TRUE(config.disabled_plugins.empty());
    EXPECT_TRUE(config.interactive_mode_requires.empty());
    EXPECT_EQ("", config.method);
    EXPECT_FALSE(config.invoke);
    EXPECT_FALSE(config.daemon_wait);
    EXPECT_EQ(40U, config.daemon_wait_timeout);
}

TEST(RunConfigTest, TheSeedIsTheWallClock) {
    const std::time_t before = std::time(nullptr);
    const RunConfig config;
    const std::time_t after = std::time(nullptr);
    EXPECT_GE(config.seed, before);
    EXPECT_LE(config.seed, after);
}

TEST(RunConfigTest, TheProcessHasOneForAllThreads) {
    std::vector<RunConfig*> seen(8);
    std::vector<std::thread> threads;
    for (RunConfig*& slot : seen) {
        threads.emplace_back([&slot] { slot = RunConfig::Instance().get(); });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    for (const RunConfig* config : seen) {
        EXPECT_EQ(RunConfig::Instance().get(), config);
    }
}

}  // namespace
}  // namespace bootweave
