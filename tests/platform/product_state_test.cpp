// SPDX-License-Identifier: Apache-2.0
#include "platform/product_state.h"

#include <regex>

#include "gtest/gtest.h"

namespace {

TEST(ProductStateTest, SaysWhatIsRunning) {
    EXPECT_STREQ("bootweave", ProductState_GetName());
    EXPECT_TRUE(std::regex_match(ProductState_GetVersion(), std::regex("[0-9]+[.][0-9]+[.][0-9]+")));
    EXPECT_TRUE(std::regex_match(ProductState_GetBuildNumberString(), std::regex("build-[0-9]+")));
#ifdef NDEBUG
    EXPECT_STREQ("release", ProductState_GetCompilationOption());
#else
    EXPECT_STREQ("debug", ProductState_GetCompilationOption());
#endif
}

}  // namespace
