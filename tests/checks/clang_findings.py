#!/usr/bin/python3
# SPDX-License-Identifier: Apache-2.0
"""clang's thread-safety analysis finds nothing in the product: what is GUARDED_BY a lock is used only where
the lock is held, and what REQUIRES it is called only there.

usage: clang_findings.py BUILD [SOURCE...]  BUILD is a build directory, for its compile_commands.json

The other warnings of the build are on as well, as a second compiler sees them, and so are the checks of
clang-tidy that clang_tidy.py has to leave out."""

import os
import sys

import compiled
import project

_VERSION = 14
_CHECKS = "-*,clang-diagnostic-*,bugprone-use-after-move,misc-definitions-in-headers"
_ANALYSIS = ["-Wthread-safety", "-Wthread-safety-beta", "-Wreserved-identifier",
             "-Wno-unknown-warning-option"]


def main():
    """Checks the sources that the build compiles, or those that are named."""
    build, named = sys.argv[1], sys.argv[2:]
    clang_tidy = project.need(f"clang-tidy-{_VERSION}")
    jobs = {path: arguments for path, arguments in compiled.compile_commands(build).items()
            if path.endswith(".cpp") and (not named or path in named)}

    def check(path, arguments):
        kept = compiled.keep_for_clang(arguments)
        command = [clang_tidy, "--quiet", f"--checks={_CHECKS}", "--warnings-as-errors=*",
                   str(project.ROOT / path), "--", "-O0", *kept, *_ANALYSIS]
        return command, compiled.read(path, kept)

    project.finish(compiled.run_on_each(check, jobs, os.path.join(build, "tests/checks/passed")), jobs)


if __name__ == "__main__":
    main()
