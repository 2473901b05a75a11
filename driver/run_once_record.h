// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <set>
#include <string>

/// \file
/// The record of run-once plugins: which versions have run on this host, kept across reboots on the boot
/// bank.
///
/// A gzip file of one line: "bootweave.run-once=", then each key followed by a comma, ascending, then a
/// newline. A key is a plugin's name followed at once by its version.

namespace bootweave {

inline constexpr const char* kRunOnceRecordPath = "/bootbank/bootweav.gz";

/// Adds the keys of the record to `keys`. A record that is missing or something else adds none; one that is
/// damaged adds those that were complete before the damage. Never fails.
void ReadRunOnceRecord(std::set<std::string>& keys, const std::string& path = kRunOnceRecordPath);

/// Replaces the record by one of `keys`, in one step. A boot bank that is absent or cannot be written is no
/// failure.
void WriteRunOnceRecord(const std::set<std::string>& keys, const std::string& path = kRunOnceRecordPath);

}  // namespace bootweave
