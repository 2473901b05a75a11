// SPDX-License-Identifier: Apache-2.0
#pragma once

/// \file
/// The host's poll loop: callbacks on readable descriptors, run on the thread that loops.
///
/// Life:    Poll_InitDefault, then Poll_Callback, then Poll_Loop until its exit flag is set.
/// Threads: one thread uses it all; only Poll_NotifyChange may be called from another one.

/// Called each time the descriptor is readable, with the client data it was registered with.
using PollerFunction = void (*)(void* client_data);

/// Makes the process-wide loop, empty; one made earlier is forgotten with all its callbacks.
void Poll_InitDefault();

/// Registers a callback.
///
/// \param callback_class  1
/// \param flags           0x15: read, periodic (called again for as long as it stands)
/// \param type            2: a descriptor
/// \param descriptor      stays the caller's; it must stay open until the callback is removed
/// \param lock            null: the loop takes none
/// \return false when it cannot be registered
bool Poll_Callback(int callback_class, int flags, PollerFunction function, void* client_data, int type,
                   int descriptor, void* lock);

/// Runs callbacks until `*exit` is true. Sleeps in the kernel between them.
void Poll_Loop(int loop_class, const bool* exit, int flags);

/// Wakes the loop so that it looks at its exit flag and its callbacks again.
void Poll_NotifyChange(int callback_class);

/// Removes the callback registered with the same values. \return false when there is none
bool Poll_CallbackRemove(int callback_class, int flags, PollerFunction function, void* client_data, int type);
