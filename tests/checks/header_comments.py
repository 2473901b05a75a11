#!/usr/bin/python3
# SPDX-License-Identifier: Apache-2.0
"""The header is the manual: each opens with #pragma once, and every type and function that stands at
namespace level has a doc comment right above it.

Relies on the layout: what stands at namespace level starts in the first column, its continuations do not."""

import re

import project

# Constants, aliases and forward declarations, whose names say all; and what is no declaration.
_NEEDS_NONE = re.compile(r"""
    \#|//|\}|\)|$ | namespace\b | extern\ "C"\ \{ | using\b | static_assert\b | (?:public|protected|private):
  | (?:inline\ |static\ )*constexpr\b | (?:class|struct|enum\ class)\ [\w:]+(?:\ :\ [\w:]+)?;
""", re.VERBOSE)


def findings_in(path, text):
    """What is wrong with one header, one line each."""
    lines = text.split("\n")
    if "#pragma once" not in lines[:2]:
        yield f"{path}: no #pragma once behind the licence"
    if "///" not in text:
        yield f"{path}: no doc comment"
    above = ""
    for number, line in enumerate(lines, 1):
        if line.startswith(" "):
            continue        # inside a declaration, or more of one
        if not _NEEDS_NONE.match(line) and not above.startswith("///") and "///<" not in line:
            yield f"{path}:{number}: no doc comment above: {line}"
        # "template <...>" and attributes stand between a comment and what it is for.
        if not (above.startswith("///") and re.fullmatch(r"template <.*>|\[\[.*\]\]", line)):
            above = line


def main():
    """Checks the headers of all rooms."""
    headers = [path for path in project.sources(".h") if path.parts[0] in project.ROOMS]
    findings = [finding for path in headers
                for finding in findings_in(path, (project.ROOT / path).read_text(encoding="utf-8"))]
    project.finish(findings, headers)


if __name__ == "__main__":
    main()
