// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>

namespace bootweave {

/// The path of one of the shared objects of tests/support/native_objects, by its name there.
[[nodiscard]] inline std::string NativeObject(const std::string& name) {
    return std::string(BOOTWEAVE_NATIVE_OBJECTS) + "/" + name + ".so";
}

}  // namespace bootweave
