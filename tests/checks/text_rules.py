#!/usr/bin/python3
# SPDX-License-Identifier: Apache-2.0
"""Every text file keeps the rules of .editorconfig: UTF-8, LF, one newline at the end, no tabs, no blanks at
the end of a line, and code within 110 columns. Recipes of makefiles begin with a tab."""

import re

import project

_LONGEST = 110
_MAKEFILE = re.compile(r"(.*/)?Makefile|debian/rules")
_CODE = {".cpp", ".h", ".c", ".py", ".sh", ".cmake"}

# What a test compares with, or feeds to a parser, is data: its blanks and lines are what they are.
# So are pictures, which programs have drawn.
_DATA = re.compile(r"tests/(system/.*/expected/|fuzz/corpus/)|docs/(pictures|performance)/")


def findings_in(path, data, is_code):
    """What is wrong with one file, one line each. `path` is only for the messages."""
    try:
        text = data.decode("utf-8")
    except UnicodeDecodeError as error:
        yield f"{path}: not UTF-8 at byte {error.start}"
        return
    if not text:
        return
    if not text.endswith("\n"):
        yield f"{path}: no newline at the end"
    if text.endswith("\n\n"):
        yield f"{path}: empty lines at the end"
    for number, line in enumerate(text.split("\n"), 1):
        if "\r" in line:
            yield f"{path}:{number}: carriage return"
        if "\t" in (line[1:] if _MAKEFILE.fullmatch(str(path)) else line):
            yield f"{path}:{number}: tab"
        if line.rstrip(" \t\r") != line.rstrip("\r"):
            yield f"{path}:{number}: blanks at the end of the line"
        if is_code and len(line) > _LONGEST:
            yield f"{path}:{number}: {len(line)} columns, {_LONGEST} are allowed"


def _is_code(path):
    return path.suffix in _CODE or path.name == "CMakeLists.txt" or project.interpreter(path) is not None


def main():
    """Checks the whole tree."""
    paths = [path for path in project.files() if not _DATA.match(str(path))]
    findings = [finding for path in paths
                for finding in findings_in(path, (project.ROOT / path).read_bytes(), _is_code(path))]
    project.finish(findings, paths)


if __name__ == "__main__":
    main()
