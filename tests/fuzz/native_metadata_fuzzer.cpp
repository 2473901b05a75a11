// SPDX-License-Identifier: Apache-2.0
// The metadata of a native plugin: a record that is made of the input, and the input as an answer's bytes.

#include <algorithm>
#include <deque>
#include <optional>
#include <vector>

#include <bootweave/native_plugin.h>

#include "plugins/native_metadata.h"
#include "plugins/native_reader/load_metadata.h"
#include "tests/fuzz/fuzzing.h"

namespace bootweave {
namespace {

int Succeed(const char* /*name*/) {
    return 0;
}

/// Takes the input apart.
class Source {
  public:
    explicit Source(std::string_view bytes) : bytes_(bytes) {}

    std::uint8_t Byte() {
        if (bytes_.empty()) {
            return 0;
        }
        const auto byte = static_cast<std::uint8_t>(bytes_.front());
        bytes_.remove_prefix(1);
        return byte;
    }
    /// Up to the next null byte, as a plugin has its strings.
    std::string String() {
        std::string text(bytes_.substr(0, bytes_.find('\0')));
        bytes_.remove_prefix(std::min(bytes_.size(), text.size() + 1));
        return text;
    }

  private:
    std::string_view bytes_;
};

/// Owns a list as a plugin has it.
class List {
  public:
    explicit List(Source& source) : given_(source.Byte() % 4 != 0) {
        for (int count = given_ ? source.Byte() % 8 : 0; count > 0; --count) {
            strings_.push_back(source.String());
        }
        for (const std::string& text : strings_) {
            pointers_.push_back(text.c_str());
        }
        pointers_.push_back(nullptr);
    }
    [[nodiscard]] const char* const* pointer() const { return given_ ? pointers_.data() : nullptr; }
    [[nodiscard]] std::vector<std::string> strings() const { return {strings_.begin(), strings_.end()}; }

  private:
    bool given_;
    std::deque<std::string> strings_;
    std::vector<const char*> pointers_;
};

void CheckRecord(Source source) {
    const auto version = static_cast<std::int32_t>(static_cast<std::int8_t>(source.Byte()));
    const BootweavePluginOperation table[] = {Succeed, source.Byte() % 2 != 0 ? Succeed : nullptr};
    const std::uint8_t run_once = source.Byte();
    const std::string plugin_version = source.String();
    const List required_names(source);
    const List provided_names(source);
    const List required_flags(source);
    const List disabling_flags(source);
    const BootweavePluginMetadata record{version,
                                         required_names.pointer(),
                                         provided_names.pointer(),
                                         plugin_version.empty() ? nullptr : plugin_version.c_str(),
                                         run_once,
                                         required_flags.pointer(),
                                         disabling_flags.pointer()};
    const MetadataAnswer answer = ReadMetadataRecord(table, record);
    Check((answer.outcome == MetadataOutcome::kBadVersion) == (version < 1 || version > 4),
          "a version is refused when there is none such");
    Check(UnpackAnswer(PackAnswer(answer)) == answer, "an answer reads as what was packed");
    if (answer.outcome != MetadataOutcome::kRead) {
        return;
    }
    NativeMetadata expected{.version = version,
                            .has_apply_host_profile = table[1] != nullptr,
                            .provides_names = provided_names.strings(),
                            .requires_names = required_names.strings(),
                            .has_start = table[0] != nullptr};
    if (version >= 3) {
        expected.run_once = run_once != 0;
        expected.plugin_version = plugin_version;
        expected.required_flags = required_flags.strings();
        expected.disabling_flags = disabling_flags.strings();
    }
    Check(answer.metadata == expected, "the copy is the record's");
}

}  // namespace
}  // namespace bootweave

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using namespace bootweave;
    const std::string_view bytes = Text(data, size);
    if (const std::optional<MetadataAnswer> answer = UnpackAnswer(bytes)) {
        Check(PackAnswer(*answer) == bytes, "only an answer's own bytes are one");
    }
    CheckRecord(Source(bytes));
    return 0;
}
