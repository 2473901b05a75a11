// SPDX-License-Identifier: Apache-2.0
#pragma once

namespace bootweave {

/// Writes one line to the kernel's own log, printf style.
///
/// A failure goes to the system log, with the message; the caller never sees one. Any thread; takes no lock.
void KernelLog(const char* format, ...) __attribute__((format(printf, 1, 2)));

}  // namespace bootweave
