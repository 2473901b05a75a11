// SPDX-License-Identifier: Apache-2.0
#include "plugins/native_metadata.h"

#include <cstring>

#include <sys/wait.h>

namespace bootweave {
namespace {

/// Appends fields.
class Packer {
  public:
    void Field(std::uint32_t number) {
        char raw[sizeof number];
        std::memcpy(raw, &number, sizeof number);
        bytes_.append(raw, sizeof raw);
    }
    void Field(std::int32_t number) { Field(static_cast<std::uint32_t>(number)); }
    void Field(bool value) { Field(value ? std::uint32_t{1} : std::uint32_t{0}); }
    void Field(MetadataOutcome outcome) { Field(static_cast<std::uint32_t>(outcome)); }
    void Field(const std::string& text) {
        Field(static_cast<std::uint32_t>(text.size()));
        bytes_.append(text);
    }
    void Field(const std::vector<std::string>& list) {
        Field(static_cast<std::uint32_t>(list.size()));
        for (const std::string& text : list) {
            Field(text);
        }
    }
    [[nodiscard]] std::string&& bytes() { return std::move(bytes_); }

  private:
    std::string bytes_;
};

/// Takes fields from the front; once something is wrong all others are empty.
class Unpacker {
  public:
    explicit Unpacker(std::string_view bytes) : left_(bytes) {}

    void Field(std::uint32_t& number) {
        number = 0;
        if (const std::string_view raw = Take(sizeof number); !raw.empty()) {
            std::memcpy(&number, raw.data(), sizeof number);
        }
    }
    void Field(std::int32_t& number) {
        std::uint32_t raw = 0;
        Field(raw);
        number = static_cast<std::int32_t>(raw);
    }
    void Field(bool& value) { value = Number(1) == 1; }
    void Field(MetadataOutcome& outcome) {
        outcome =
            static_cast<MetadataOutcome>(Number(static_cast<std::uint32_t>(MetadataOutcome::kLoaderEnded)));
    }
    void Field(std::string& text) {
        std::uint32_t size = 0;
        Field(size);
        text = Take(size);
    }
    void Field(std::vector<std::string>& list) {
        std::uint32_t size = 0;
        Field(size);
        if (size > left_.size() / sizeof size) {  // each takes its length at least
            good_ = false;
            return;
        }
        list.resize(size);
        for (std::string& text : list) {
            Field(text);
        }
    }
    [[nodiscard]] bool whole() const { return good_ && left_.empty(); }

  private:
    std::string_view Take(std::size_t size) {
        good_ = good_ && size <= left_.size();
        if (!good_) {
            return {};
        }
        const std::string_view taken = left_.substr(0, size);
        left_.remove_prefix(size);
        return taken;
    }
    std::uint32_t Number(std::uint32_t most) {
        std::uint32_t number = 0;
        Field(number);
        good_ = good_ && number <= most;
        return good_ ? number : 0;
    }

    std::string_view left_;
    bool good_ = true;
};

/// The one list of what an answer consists of, for both directions.
template <typename Direction, typename Answer>
void AllFields(Direction& direction, Answer& answer) {
    direction.Field(answer.outcome);
    direction.Field(answer.raw_status);
    direction.Field(answer.symbol);
    direction.Field(answer.text);
    auto& metadata = answer.metadata;
    direction.Field(metadata.version);
    direction.Field(metadata.has_apply_host_profile);
    direction.Field(metadata.run_once);
    direction.Field(metadata.plugin_version);
    direction.Field(metadata.provides_names);
    direction.Field(metadata.requires_names);
    direction.Field(metadata.required_flags);
    direction.Field(metadata.disabling_flags);
    direction.Field(metadata.has_start);
}

}  // namespace

std::string NoOperationText(const std::string& path, const std::string& method) {
    return path + ": has no operation for " + method;
}

std::string PackAnswer(const MetadataAnswer& answer) {
    Packer packer;
    AllFields(packer, answer);
    return packer.bytes();
}

std::optional<MetadataAnswer> UnpackAnswer(std::string_view bytes) {
    Unpacker unpacker(bytes);
    MetadataAnswer answer;
    AllFields(unpacker, answer);
    return unpacker.whole() ? std::optional(std::move(answer)) : std::nullopt;
}

std::string DescribeNativeEnd(int raw_status) {
    if (WIFSIGNALED(raw_status)) {
        return "exited with signal: " + std::to_string(WTERMSIG(raw_status));
    }
    if (WIFEXITED(raw_status)) {
        return "exited with code " + std::to_string(WEXITSTATUS(raw_status));
    }
    return "exited: <unknown failure>";
}

}  // namespace bootweave
