// SPDX-License-Identifier: Apache-2.0
#include "platform/processors.h"

#include <fstream>

#include "gtest/gtest.h"

namespace {

TEST(ProcessorsTest, TheCountIsThatOfTheKernelsListOfProcessorsOnline) {
    std::ifstream list("/sys/devices/system/cpu/online");
    if (!list.is_open()) {
        GTEST_SKIP() << "the kernel's list of processors is not to be seen here";
    }
    std::uint32_t count = 0;
    std::uint32_t first = 0;
    while (list >> first) {  // ranges such as "0-3,5"
        std::uint32_t last = first;
        if (list.peek() == '-') {
            list.get();
            list >> last;
        }
        count += last - first + 1;
        list.ignore(1, ',');
    }
    EXPECT_EQ(count, Host_ProcessorCount());
}

}  // namespace
