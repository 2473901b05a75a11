// SPDX-License-Identifier: Apache-2.0
#pragma once

/// \file
/// The main of every test program. A child under test is the test program itself ("/proc/self/exe"), run
/// again with "--role=NAME" as first argument: then it plays that role instead of running tests.

namespace bootweave {

/// What a child does: gets the arguments behind its role, returns its exit status.
using ChildRole = int (*)(int argc, char** argv);

/// Registers a role; call it from a namespace-scope initialiser of the test file.
bool RegisterChildRole(const char* name, ChildRole role);

}  // namespace bootweave
