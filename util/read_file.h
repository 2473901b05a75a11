// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <optional>
#include <string>

namespace bootweave {

/// The whole content of a regular file, links followed.
///
/// Nothing for a file that cannot be opened or read and for anything that is not a regular file: a FIFO or a
/// device in a file's place must not hold up the boot, so it is opened without blocking and left at once.
/// A file over 64 MiB counts as one that cannot be read.
[[nodiscard]] std::optional<std::string> ReadRegularFile(const std::string& path);

}  // namespace bootweave
