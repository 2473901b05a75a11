#!/usr/bin/python3
# SPDX-License-Identifier: Apache-2.0
"""clang-tidy, with the checks of .clang-tidy, finds nothing in any source of the product.

usage: clang_tidy.py BUILD [SOURCE...]      BUILD is a build directory, for its compile_commands.json

A source whose text, headers included, has passed before is not read again: a second run takes seconds."""

import os
import re
import sys

import compiled
import project

# Other versions have other checks and other findings: everybody uses the one of Debian 12.
_VERSION = 14


def main():
    """Checks the sources that the build compiles, or those that are named."""
    build, named = sys.argv[1], sys.argv[2:]
    clang_tidy = project.need(f"clang-tidy-{_VERSION}")
    clang = project.need(f"clang++-{_VERSION}")
    rules = (project.ROOT / ".clang-tidy").read_bytes()
    jobs = {path: arguments for path, arguments in compiled.compile_commands(build).items()
            if not named or path in named}

    def check(path, arguments):
        # Optimised, the headers of the standard library have names that the naming check stumbles over.
        command = [clang_tidy, "--quiet", "-p", build, "--extra-arg=-O0",
                   "--extra-arg=-U_FORTIFY_SOURCE", str(project.ROOT / path)]
        text = compiled.expand(clang, compiled.keep_for_clang(arguments), path)
        return command, None if text is None else (rules, arguments, text)

    said = compiled.run_on_each(check, jobs, os.path.join(build, "tests/checks/passed"))
    findings = [line for output in said for line in output.splitlines()
                if not re.fullmatch(r"\d+ warnings? generated\.|\d+ warnings? treated as errors?", line)]
    project.finish(findings, jobs)


if __name__ == "__main__":
    main()
