// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>
#include <vector>

/// \file
/// What verification finds.

namespace bootweave {

/// How bad a finding is.
enum class Severity {
    kError,    ///< a boot would fail at it, or never do what is written there
    kWarning,  ///< a boot goes on, perhaps not as was meant
};

/// "error" or "warning".
[[nodiscard]] const char* SeverityText(Severity severity);

/// What a finding is about.
enum class FindingKind {
    kUnreadable,
    kNotLoaded,
    kSyntax,
    kIgnored,
    kUnknownKey,
    kUnreadKey,
    kRepeatedKey,
    kFlags,
    kRunOnce,
    kCommand,
    kWritable,
    kDuplicateName,
    kDebugLine,
    kDebugFile,
    kCircle,
    kNotProvided,
    kNotRequired,
    kInitScript,
    kNoOperation,
};

/// The kind's name for programs, such as "unknown-key"; names never change.
[[nodiscard]] const char* FindingKindText(FindingKind kind);

/// One thing that is wrong.
struct Finding {
    std::string file;  ///< as it was given, or below the directory that was given
    Severity severity;
    FindingKind kind;
    std::string plugin;  ///< its name; empty for what is about no plugin
    std::string text;
    bool operator==(const Finding&) const = default;
};

using Findings = std::vector<Finding>;

}  // namespace bootweave
