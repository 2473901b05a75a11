// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>
#include <string_view>

namespace bootweave {

/// Gives a file new content in one step, as if it had been rewritten in place: a symbolic link is followed,
/// the old mode is kept, a new file has mode 0644 as far as the umask allows. The content is on the disk
/// before it takes the old one's place, and no temporary file is left after a failure.
///
/// \return false, with errno set and the old file whole, when any step fails
[[nodiscard]] bool ReplaceFile(const std::string& path, std::string_view content);

}  // namespace bootweave
