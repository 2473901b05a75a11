// SPDX-License-Identifier: Apache-2.0
#include "plugins/native_reader/object_file.h"

#include <string>

#include <sys/stat.h>

#include "gtest/gtest.h"

#include "plugins/native_test_support.h"
#include "tests/support/temp_dir.h"

namespace bootweave {
namespace {

TEST(ObjectFileTest, AnObjectOfTablesOnlyRunsNoCode) {
    for (const char* object :
         {"version1", "version3", "empty2", "globals_one", "wild", "only_metadata", "bound_at_once"}) {
        EXPECT_TRUE(LoadsWithoutRunningCode(NativeObject(object))) << object;
    }
}

TEST(ObjectFileTest, ConstructorsAndDestructorsAreCode) {
    for (const char* object : {"large", "spoils", "crashes_at_close", "without_start_files"}) {
        EXPECT_FALSE(LoadsWithoutRunningCode(NativeObject(object))) << object;
    }
}

TEST(ObjectFileTest, WhatNeedsALibraryThatIsNotLoadedRunsTheLibrarysCode) {
    EXPECT_FALSE(LoadsWithoutRunningCode(NativeObject("needs_library")));
}

TEST(ObjectFileTest, WhatAsksToStayOrForAnotherObjectIsNotTrusted) {
    for (const char* object : {"asks_to_stay", "unique_one", "filters", "has_auxiliary"}) {
        EXPECT_FALSE(LoadsWithoutRunningCode(NativeObject(object))) << object;
    }
}

TEST(ObjectFileTest, WhatIsNoObjectIsNotTrusted) {
    const TempDir dir;
    ASSERT_EQ(0, ::mkfifo(dir.File("fifo").c_str(), 0600));
    for (const std::string& path :
         {dir.path(), dir.File("none"), dir.File("fifo"), dir.WriteFile("empty", ""),
          dir.WriteFile("text", std::string(5000, 'x')), std::string("/proc/self/exe") + "/none"}) {
        EXPECT_FALSE(LoadsWithoutRunningCode(path)) << path;
    }
}

TEST(ObjectFileTest, AnObjectCutBeforeTheEndOfItsTablesIsNotTrusted) {
    const TempDir dir;
    const std::string whole = ReadFile(NativeObject("version3"));
    ASSERT_TRUE(LoadsWithoutRunningCode(dir.WriteFile("whole.so", whole)));
    for (std::size_t size = 0; size < 4096; size += 7) {
        EXPECT_FALSE(LoadsWithoutRunningCode(dir.WriteFile("cut.so", whole.substr(0, size)))) << size;
    }
}

TEST(ObjectFileTest, AnyByteOfItsHeadersMayBeWrong) {
    const TempDir dir;
    const std::string whole = ReadFile(NativeObject("version3"));
    for (std::size_t place = 0; place < 1024; ++place) {
        std::string wrong = whole;
        wrong[place] = static_cast<char>(~wrong[place]);
        static_cast<void>(LoadsWithoutRunningCode(dir.WriteFile("wrong.so", wrong)));  // it returns
    }
}

}  // namespace
}  // namespace bootweave
