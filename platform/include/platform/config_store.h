// SPDX-License-Identifier: Apache-2.0
#pragma once

/// \file
/// The host's configuration store, as far as the end of a boot concerns it.

namespace StrataConfigStore {

/// Tells the store that automatic configuration has ended. Waits; a store that is not installed is no
/// failure, one that fails is a level 3 line. Never raises.
void EndAutoConf();

/// Lets the store drop what it kept for the boot alone. Waits and fails as EndAutoConf does.
void CleanupBootState();

}  // namespace StrataConfigStore
