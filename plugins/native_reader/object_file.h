// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>

namespace bootweave {

/// Whether the shared object at `path` can be loaded and closed without running code of its own: by its
/// tables it has no constructor and no destructor but those that every compiler adds, needs no library that
/// this process has not loaded yet, and goes away when it is closed. Whatever is no such object, cannot be
/// read or is of a kind unknown here counts as one that runs code.
///
/// An object that is linked with -init, which hides its constructor from these tables, is taken for one that
/// has none.
[[nodiscard]] bool LoadsWithoutRunningCode(const std::string& path);

}  // namespace bootweave
