// SPDX-License-Identifier: Apache-2.0
// The file of debug injections.

#include <algorithm>

#include "plugins/debug_injections.h"
#include "tests/fuzz/fuzzing.h"
#include "tests/support/fake_platform.h"

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using namespace bootweave;
    FakePlatform::Reset();
    const std::string_view text = Text(data, size);
    const MemoryFile file(text);
    DebugInjections injections(file.path());
    const std::vector<DebugInjection> first = injections.Load();
    for (const DebugInjection& injection : first) {
        Check(!injection.command.empty(), "an injection has a command");
        for (const auto& list : {injection.requires_names, injection.provides_names}) {
            Check(std::find(list.begin(), list.end(), "") == list.end(), "empty elements are dropped");
        }
    }
    const auto lines = static_cast<std::size_t>(std::count(text.begin(), text.end(), '\n')) + 1;
    const std::size_t reported = FakePlatform::log().size();
    Check(first.size() + reported <= lines, "a line is an injection, or reported, or neither");
    Check(injections.Load() == first, "what has not changed loads as before");
    Check(FakePlatform::log().size() == 2 * reported, "malformed lines are reported each time");
    return 0;
}
