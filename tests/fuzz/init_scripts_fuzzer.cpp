// SPDX-License-Identifier: Apache-2.0
// What the lister of init scripts prints.

#include <algorithm>

#include "plugins/init_scripts.h"
#include "tests/fuzz/fuzzing.h"

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using namespace bootweave;
    const std::string text(Text(data, size));
    const InitScripts scripts = ParseInitScriptList(text);
    Check(scripts.size() <= static_cast<std::size_t>(std::count(text.begin(), text.end(), '\n')) + 1,
          "a line is at most one script");
    std::string listing;
    for (const auto& [priority, path] : scripts) {
        Check(!path.empty() && path.find_first_of(" \t\n") == std::string::npos, "a path is one word");
        listing += path + " " + std::to_string(priority) + "\n";
    }
    Check(ParseInitScriptList(listing) == scripts, "a listing reads as what it lists");
    return 0;
}
