// SPDX-License-Identifier: Apache-2.0
#include "analyze/named_plugins.h"

#include "gmock/gmock.h"

#include "util/exception.h"

namespace bootweave {
namespace {

using testing::ElementsAre;

ProfileBlock BlockOf(const std::vector<std::string>& names) {
    ProfileBlock block;
    for (const std::string& name : names) {
        block.plugins.push_back({name, {}, {}});
    }
    return block;
}

std::string ErrorOf(const ProfileBlock& block, const std::string& name) {
    try {
        static_cast<void>(PluginsNamed(block, name));
    } catch (const Exception& exception) {
        return exception.what();
    }
    return "none";
}

TEST(NamedPluginsTest, EveryPluginOfTheNameIsFound) {
    EXPECT_THAT(PluginsNamed(BlockOf({"network", "storage", "network"}), "network"), ElementsAre(0, 2));
    EXPECT_THAT(PluginsNamed(BlockOf({"network", "storage"}), "storage"), ElementsAre(1));
}

TEST(NamedPluginsTest, ANameThatIsNotThereIsAnErrorThatOffersOneLikeIt) {
    EXPECT_EQ("the profile has no plugin storgae; did you mean 'storage'?",
              ErrorOf(BlockOf({"network", "storage"}), "storgae"));
    EXPECT_EQ("the profile has no plugin storage", ErrorOf(BlockOf({"network"}), "storage"));
    EXPECT_EQ("the profile has no plugin ", ErrorOf(BlockOf({}), ""));
}

}  // namespace
}  // namespace bootweave
