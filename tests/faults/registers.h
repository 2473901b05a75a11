// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <sys/types.h>

/// \file
/// What differs between processors when a stopped process's system call is changed: x86-64 and 64-bit Arm.
///
/// All of these return false, with errno set, when the process is gone.

namespace bootweave::faults {

/// At a call's entry: lets the kernel make no call. SetResult at its exit gives it an outcome.
[[nodiscard]] bool SkipCall(pid_t thread);

/// At a call's exit: replaces what it returns; a negative errno is a failure.
[[nodiscard]] bool SetResult(pid_t thread, long value);

}  // namespace bootweave::faults
