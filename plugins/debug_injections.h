// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>
#include <vector>

#include <sys/stat.h>

/// \file
/// Debug injections: shell commands that a developer places in the boot graph, one a line:
///
///   name:requires:provides:command
///
/// The two lists are split at ","; a backslash escapes, double and single quotes keep an element together.
/// Nothing escapes ":". Empty lines are skipped; a line with another number of fields, or with a bad escape,
/// is reported.

namespace bootweave {

inline constexpr const char* kDebugConfigurationPath = "/etc/corvane/bootweave/debug.conf";

/// One valid line.
struct DebugInjection {
    std::string name;
    std::vector<std::string> requires_names;
    std::vector<std::string> provides_names;
    std::string command;
    bool operator==(const DebugInjection&) const = default;
};

/// The injections of one file, loaded again and again: it is parsed anew only when it has changed.
/// Threads: one at a time.
class DebugInjections {
  public:
    explicit DebugInjections(std::string path = kDebugConfigurationPath) : path_(std::move(path)) {}

    /// Loads the file; each malformed line is a level 5 line, each time.
    ///
    /// \return the injections in the order of the file, none for a file that is missing or cannot be read;
    ///         they stay as they are until the next call
    const std::vector<DebugInjection>& Load();

    /// Loads the file and logs nothing. \return as Load()
    const std::vector<DebugInjection>& LoadQuietly();

    /// What is logged about each malformed line of the file as it was loaded last, in order.
    [[nodiscard]] const std::vector<std::string>& complaints() const { return complaints_; }

  private:
    void Parse();
    void ParseLine(int number, const std::string& line);

    const std::string path_;
    struct stat parsed_ {};  // the file as it was when it was parsed
    std::vector<DebugInjection> injections_;
    std::vector<std::string> complaints_;
};

}  // namespace bootweave
