// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>
#include <string_view>
#include <vector>

/// \file
/// Guesses what a misspelt name was meant to be.

namespace bootweave {

/// The name that was most likely meant: one that differs in case or hyphens only, or in at most two letters
/// added, left out, changed or swapped, and in less than half of it. Of several equally near ones the first.
///
/// \return empty when none is near
[[nodiscard]] std::string_view FindNearest(std::string_view name, const std::vector<std::string_view>& known);

/// "; did you mean '<name>'?", or nothing for an empty name.
[[nodiscard]] std::string DidYouMean(std::string_view name);

}  // namespace bootweave
