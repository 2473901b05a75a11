#!/usr/bin/python3
# SPDX-License-Identifier: Apache-2.0
"""The checks of .clang-tidy find nothing in any source or header of the product.

usage: clang_tidy.py BUILD [FILE...]        BUILD is a build directory, for its compile_commands.json

clangd runs them: unlike clang-tidy it looks at a file's own text only, not at all that the file includes, and
takes a fifth of the time. What it leaves out, clang_findings.py has. A file whose text, headers included, has
passed before is not read again."""

import json
import os
import re
import sys

import compiled
import project

# Other versions have other checks and other findings: everybody uses the one of Debian 12.
_VERSION = 14


def main():
    """Checks the sources that the build compiles and the product's headers, or those that are named."""
    build, named = sys.argv[1], sys.argv[2:]
    clangd = project.need(f"clangd-{_VERSION}")
    clang = project.need(f"clang++-{_VERSION}")
    rules = (project.ROOT / ".clang-tidy").read_bytes()
    jobs = {path: arguments for path, arguments in _arguments(build).items() if not named or path in named}
    commands = os.path.join(build, "tests/checks/clangd")
    _write_commands(commands, clang, jobs)

    def check(path, arguments):
        command = [clangd, f"--check={project.ROOT / path}", "--check-lines=1-1", "--clang-tidy",
                   "--log=error", "--enable-config=false", f"--compile-commands-dir={commands}"]
        text = compiled.read(path, arguments)
        return command, None if text is None else (rules, text)

    said = compiled.run_on_each(check, jobs, os.path.join(build, "tests/checks/passed"))
    findings = []
    for output in said:
        label, _, messages = output.partition("\n")
        path = label.rstrip(":")
        findings += findings_in(path, (project.ROOT / path).read_text(encoding="utf-8"), messages)
    project.finish(findings, jobs)


def findings_in(path, text, messages):
    """What clangd said of a file, one finding each. NOLINTBEGIN is unknown to it, and seen to here."""
    covered = _covered(text)
    for message in messages.splitlines():
        message = re.sub(r"^E\[[0-9:.]*\] ", "", message)
        place = re.match(r"\[([\w.-]+)\] Line (\d+): ", message)
        if not place or (place[1], int(place[2])) not in covered:
            yield f"{path}: {message}"


def _covered(text):
    """The checks that are off, and in which line: {(check, number of the line)}."""
    covered, off = set(), set()
    for number, line in enumerate(text.splitlines(), 1):
        if mark := re.search(r"NOLINT(BEGIN|END)\(([^)]*)\)", line):
            names = set(mark[2].split(","))
            off = off | names if mark[1] == "BEGIN" else off - names
        covered.update((name, number) for name in off)
    return covered


def _arguments(build):
    """What to read each file with: {path relative to ROOT: arguments}. A header has those of its folder."""
    # Warnings are clang_findings.py's: of what is included clangd reads no function's body.
    arguments = {path: ["-O0", "-w", *compiled.keep_for_clang(command)]
                 for path, command in compiled.compile_commands(build).items()}
    folders = {os.path.dirname(path): kept for path, kept in arguments.items() if path.endswith(".cpp")}
    usual = folders["driver"]
    is_test = project.test_code()
    for header in map(str, project.sources(".h")):
        if header.split(os.sep)[0] in project.ROOMS and not is_test(header):
            arguments[header] = ["-x", "c++-header", *folders.get(os.path.dirname(header), usual)]
    return arguments


def _write_commands(directory, clang, jobs):
    """The compile commands as clangd reads them."""
    entries = [{"directory": str(project.ROOT), "file": str(project.ROOT / path),
                "arguments": [clang, *arguments, str(project.ROOT / path)]}
               for path, arguments in jobs.items()]
    os.makedirs(directory, exist_ok=True)
    with open(os.path.join(directory, "compile_commands.json"), "w", encoding="utf-8") as file:
        json.dump(entries, file)


if __name__ == "__main__":
    main()
