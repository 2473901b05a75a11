// SPDX-License-Identifier: Apache-2.0
// The run-once record: the input is taken as the file, and then as the names that a record is written of.

#include <set>

#include "driver/run_once_record.h"
#include "tests/fuzz/fuzzing.h"
#include "tests/support/temp_dir.h"

namespace bootweave {
namespace {

std::set<std::string> Keys(const std::string& path) {
    std::set<std::string> keys;
    ReadRunOnceRecord(keys, path);
    for (const std::string& key : keys) {
        Check(!key.empty() && key.find(',') == std::string::npos, "a key is one word of the list");
    }
    return keys;
}

/// Names of the characters that a key can have, separated by all others.
std::set<std::string> Names(std::string_view text) {
    std::set<std::string> names;
    std::string name;
    for (const char character : text) {
        if (std::string_view("-._+").find(character) != std::string_view::npos ||
            (character >= '0' && character <= '9') || (character >= 'a' && character <= 'z') ||
            (character >= 'A' && character <= 'Z')) {
            name += character;
        } else if (!name.empty()) {
            names.insert(std::move(name));
            name.clear();
        }
    }
    return names;
}

}  // namespace
}  // namespace bootweave

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using namespace bootweave;
    static const TempDir* const directory = new TempDir();  // for the whole run; its end removes nothing
    const MemoryFile file(Text(data, size));
    static_cast<void>(Keys(file.path()));
    const std::set<std::string> names = Names(Text(data, size));
    const std::string path = directory->File("record.gz");
    WriteRunOnceRecord(names, path);
    Check(Keys(path) == names, "a record reads as what it was written of");
    return 0;
}
