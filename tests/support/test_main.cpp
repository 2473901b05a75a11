// SPDX-License-Identifier: Apache-2.0
#include "tests/support/test_main.h"

#include <cstring>
#include <map>
#include <string>

#include "gmock/gmock.h"

namespace bootweave {
namespace {

std::map<std::string, ChildRole>& Roles() {
    static std::map<std::string, ChildRole> roles;
    return roles;
}

}  // namespace

bool RegisterChildRole(const char* name, ChildRole role) {
    return Roles().emplace(name, role).second;
}

}  // namespace bootweave

int main(int argc, char** argv) {
    if (argc >= 2 && std::strncmp(argv[1], "--role=", 7) == 0) {
        const auto role = bootweave::Roles().find(argv[1] + 7);
        return role == bootweave::Roles().end() ? 99 : role->second(argc - 2, argv + 2);
    }
    testing::InitGoogleMock(&argc, argv);
    return RUN_ALL_TESTS();
}
