// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string_view>

namespace bootweave {

/// Writes one record "<priority>bootweave: text" to the kernel's log, with a single write. The node is opened
/// for each record: the kernel limits the rate per open file.
///
/// \return 0 or an error number; a record that was taken in part only is EIO
[[nodiscard]] int WriteKernelRecord(int priority, std::string_view text);

}  // namespace bootweave
