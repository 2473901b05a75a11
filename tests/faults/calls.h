// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <string>

/// \file
/// The system's calls by name. Which of them there are depends on the processor.

namespace bootweave::faults {

/// Which of a call's arguments says what it is about.
enum class Subject { kNothing, kDescriptor, kPath };

/// One call of the system, as far as it matters here.
struct Call {
    const char* name;
    long number;
    Subject subject;
    int argument;  ///< the subject's place among the arguments, from 0
};

/// The call of this number, or null for one that has no entry: the program was not known to make it.
[[nodiscard]] const Call* FindCall(long number);

/// The name, or "call NUMBER" for one that has no entry. Where a call's arguments decide how it can fail,
/// there is a word for that behind it: "futex wait", "fcntl duplicate", "openat create".
///
/// \param arguments  six of them
[[nodiscard]] std::string NameOfCall(long number, const std::uint64_t* arguments);

}  // namespace bootweave::faults
