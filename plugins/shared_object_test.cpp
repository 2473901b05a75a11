// SPDX-License-Identifier: Apache-2.0
#include "plugins/shared_object.h"

#include <string>

#include "gtest/gtest.h"
#include "util/exception.h"

// The linker gives these names to the wrapped function.
// NOLINTBEGIN(bugprone-reserved-identifier)
extern "C" {
static bool g_loader_says_nothing = false;
char* __real_dlerror();
char* __wrap_dlerror();
char* __wrap_dlerror() {
    char* const text = __real_dlerror();
    return g_loader_says_nothing ? nullptr : text;
}
}
// NOLINTEND(bugprone-reserved-identifier)

namespace bootweave {
namespace {

std::string FailureOf(const std::string& path) {
    try {
        const SharedObject object(path);
    } catch (const Exception& error) {
        return error.what();
    }
    return "none";
}

TEST(SharedObjectTest, WhyItCannotBeLoadedIsTheLoadersText) {
    EXPECT_EQ("/no/such.so: cannot open shared object file: No such file or directory",
              FailureOf("/no/such.so"));
}

TEST(SharedObjectTest, ALoaderThatSaysNothingLeavesItUnknown) {
    g_loader_says_nothing = true;
    const std::string failure = FailureOf("/no/such.so");
    g_loader_says_nothing = false;
    EXPECT_EQ("unknown error", failure);
}

}  // namespace
}  // namespace bootweave
