// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>

namespace bootweave {

/// Tells the service manager what the program is doing: one datagram "STATUS=text", at most once and without
/// waiting. A manager that does not listen or does not keep up misses it.
///
/// \param address  as $NOTIFY_SOCKET has it: an absolute path, or '@' and an abstract name; null is no
/// manager \param text     without control characters: a newline would begin another assignment
void SendServiceStatus(const char* address, const std::string& text);

}  // namespace bootweave
