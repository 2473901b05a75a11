// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <csignal>

/// \file
/// Dispositions of signals, and putting them back in a child that becomes another program.
///
/// An exec resets what is handled and keeps what is ignored, and a handler must not run in a child that
/// borrows this process's memory. There are 64 signals and a call of the system for each, so which of them
/// this process has ever changed, or was started with, is kept.
///
/// Threads: any function on any thread.

namespace bootweave {

/// Sets the disposition of a signal. The one way to do that, but for putting one back to its default.
///
/// \param before  gets the disposition until then, unless it is null
/// \return false, with errno set, for a signal that cannot be changed
bool ChangeSignal(int number, const struct sigaction& action, struct sigaction* before = nullptr);

/// Looks, the first time in a process, which signals it was started with that are not at their default.
/// Before a fork whose child calls ResetChangedSignals().
void NoteChangedSignals();

/// Puts every signal that is or was not at its default back to it, and empties the signal mask, in a child
/// that will exec or go on with foreign code.
void ResetChangedSignals();

/// The same for every signal, whoever changed it.
void ResetSignals();

}  // namespace bootweave
