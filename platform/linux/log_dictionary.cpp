// SPDX-License-Identifier: Apache-2.0
#include "platform/linux/log_dictionary.h"

#include <memory>
#include <new>
#include <utility>

namespace {

/// Nothing here may raise, so a setting that cannot be kept makes whatever is set up with the dictionary
/// fail.
template <typename Make>
void Store(Dictionary* dictionary, const char* key, Make make) {
    if (dictionary == nullptr) {
        return;
    }
    if (key == nullptr) {
        dictionary->broken = true;
        return;
    }
    try {
        dictionary->values.insert_or_assign(key, make());
    } catch (const std::bad_alloc&) {
        dictionary->broken = true;
    }
}

template <typename Result, typename Stored>
std::optional<Result> Find(const Dictionary& dictionary, std::string_view key, Result fallback) {
    const auto found = dictionary.values.find(key);
    if (found == dictionary.values.end()) {
        return fallback;
    }
    const auto* const value = std::get_if<Stored>(&found->second);
    return value != nullptr ? std::optional<Result>(*value) : std::nullopt;
}

}  // namespace

std::optional<std::string_view> Dictionary::Text(std::string_view key, std::string_view fallback) const {
    return Find<std::string_view, std::string>(*this, key, fallback);
}

std::optional<bool> Dictionary::Flag(std::string_view key, bool fallback) const {
    return Find<bool, bool>(*this, key, fallback);
}

Dictionary* Dictionary_Create() {
    std::unique_ptr<Dictionary> dictionary(new (std::nothrow) Dictionary);
    return dictionary.release();
}

void Dict_SetString(Dictionary* dictionary, const char* key, const char* value) {
    if (value == nullptr) {
        key = nullptr;
    }
    Store(dictionary, key, [&] { return std::string(value); });
}

void Dict_SetBool(Dictionary* dictionary, const char* key, bool value) {
    Store(dictionary, key, [&] { return value; });
}

void Dictionary_Clear(Dictionary* dictionary) {
    if (dictionary != nullptr) {
        dictionary->values.clear();
        dictionary->broken = false;
    }
}

void Dictionary_Free(Dictionary* dictionary) {
    const std::unique_ptr<Dictionary> owned(dictionary);
}
