// SPDX-License-Identifier: Apache-2.0
#include "plugins/native_reader/load_metadata.h"

#include <cstring>
#include <optional>
#include <utility>

#include <bootweave/native_plugin.h>

#include "plugins/shared_object.h"
#include "util/exception.h"

namespace bootweave {
namespace {

constexpr std::int32_t kOldestVersion = 1;
constexpr std::int32_t kNewestVersion = 4;
constexpr std::int32_t kFlagsVersion = 3;  // from here on the fields behind the lists of names are read

/// There is more metadata than kMostMetadata.
class TooLarge {};

/// Copies strings until they are too much.
class Copier {
  public:
    std::string Text(const char* text) {
        Spend(sizeof(std::uint32_t));
        const std::size_t size = ::strnlen(text, left_ + 1);
        Spend(size);
        return {text, size};
    }
    std::vector<std::string> List(const char* const* list) {
        std::vector<std::string> copies;
        for (; list != nullptr && *list != nullptr; ++list) {
            copies.push_back(Text(*list));
        }
        return copies;
    }

  private:
    void Spend(std::size_t size) {
        if (size > left_) {
            throw TooLarge();
        }
        left_ -= size;
    }

    std::size_t left_ = kMostMetadata;
};

void Copy(const BootweavePluginMetadata& source, NativeMetadata& metadata) {
    Copier copier;
    metadata.provides_names = copier.List(source.provided_names);
    metadata.requires_names = copier.List(source.required_names);
    if (metadata.version < kFlagsVersion) {
        return;
    }
    metadata.required_flags = copier.List(source.required_flags);
    metadata.disabling_flags = copier.List(source.disabling_flags);
    metadata.run_once = source.run_once != 0;
    if (source.plugin_version != nullptr) {
        metadata.plugin_version = copier.Text(source.plugin_version);
    }
}

/// Looks the symbol up, or notes in the answer why it cannot.
std::optional<const void*> Find(const SharedObject& object, const char* symbol, MetadataAnswer& answer) {
    try {
        return object.Symbol(symbol);
    } catch (const Exception& error) {
        answer.outcome = MetadataOutcome::kNoSymbol;
        answer.symbol = symbol;
        answer.text = error.what();
        return std::nullopt;
    }
}

MetadataAnswer Examine(const SharedObject& object) {
    MetadataAnswer answer;
    const auto operations = Find(object, "operations", answer);
    if (!operations.has_value()) {
        return answer;
    }
    const auto record = Find(object, "metadata", answer);
    if (!record.has_value()) {
        return answer;
    }
    return ReadMetadataRecord(static_cast<const BootweavePluginOperation*>(*operations),
                              *static_cast<const BootweavePluginMetadata*>(*record));
}

}  // namespace

MetadataAnswer ReadMetadataRecord(const BootweavePluginOperation* operations,
                                  const BootweavePluginMetadata& record) {
    MetadataAnswer answer;
    NativeMetadata& metadata = answer.metadata;
    metadata.has_start = operations[BOOTWEAVE_PLUGIN_START] != nullptr;
    metadata.has_apply_host_profile = operations[BOOTWEAVE_PLUGIN_APPLY_HOST_PROFILE] != nullptr;
    metadata.version = record.version;
    if (metadata.version < kOldestVersion || metadata.version > kNewestVersion) {
        answer.outcome = MetadataOutcome::kBadVersion;
        return answer;
    }
    try {
        Copy(record, metadata);
    } catch (const TooLarge&) {
        answer.outcome = MetadataOutcome::kTooLarge;
        metadata = {};
    }
    return answer;
}

MetadataAnswer LoadMetadata(const std::string& path) {
    MetadataAnswer answer;
    std::optional<SharedObject> object;
    try {
        object.emplace(path);
    } catch (const Exception& error) {
        answer.outcome = MetadataOutcome::kNotOpened;
        answer.text = error.what();
        return answer;
    }
    return Examine(*object);
}

}  // namespace bootweave
