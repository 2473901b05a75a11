// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>
#include <vector>

/// \file
/// For tests: a program that writes down what it was started with. It is the test program in the role
/// "report"; its arguments are "--role=report", "--out=FILE" and whatever else is to be seen.

namespace bootweave {

/// What a program was started with.
struct ChildReport {
    std::vector<std::string> arguments;    ///< behind "--out=FILE"
    std::vector<std::string> environment;  ///< in order
    std::vector<std::string> descriptors;  ///< "NUMBER FILE" of each open one, in order of number
    std::string directory;
    std::string blocked_signals;  ///< as /proc has them: 16 hexadecimal digits, zero when there are none
    std::string ignored_signals;
};

/// Reads the report that a program in that role wrote.
[[nodiscard]] ChildReport ReadChildReport(const std::string& path);

}  // namespace bootweave
