// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <functional>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <variant>

#include "platform/log.h"

/// Settings by name, each a text or a truth value.
struct Dictionary {
    using Value = std::variant<std::string, bool>;

    std::map<std::string, Value, std::less<>> values;
    bool broken = false;  ///< a setting is missing: it could not be stored, or had no name or no value

    /// The text named `key`; `fallback` when there is none, nothing when it is no text. Lives as long as the
    /// setting.
    [[nodiscard]] std::optional<std::string_view> Text(std::string_view key, std::string_view fallback) const;
    /// The truth value named `key`; `fallback` when there is none, nothing when it is a text.
    [[nodiscard]] std::optional<bool> Flag(std::string_view key, bool fallback) const;
};
