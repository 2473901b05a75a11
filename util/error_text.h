// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>

/// \file
/// The system's error texts.

namespace bootweave {

/// The system's text for an error number, as strerror has it in the C locale ("No such file or directory").
/// Takes no lock and does not touch errno: safe on any thread and in a forked child.
[[nodiscard]] std::string ErrorText(int error);

/// The text for the current errno.
[[nodiscard]] std::string LastErrorText();

}  // namespace bootweave
