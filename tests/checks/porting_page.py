#!/usr/bin/python3
# SPDX-License-Identifier: Apache-2.0
"""docs/porting.md has a heading for every header of platform/include, and names no header or test that is not
there."""

import re

import project

_PAGE = "docs/porting.md"


def main():
    """Checks the page."""
    text = (project.ROOT / _PAGE).read_text(encoding="utf-8")
    paths = {str(path) for path in project.files()}
    prefix = "platform/include/"
    headers = {path.removeprefix(prefix) for path in paths if path.startswith(prefix) and path.endswith(".h")}
    described = {header for line in re.findall("^### .*$", text, re.MULTILINE)
                 for header in re.findall("`([^`]+)`", line)}
    findings = [f"{_PAGE}: {header} has no heading" for header in sorted(headers - described)]
    findings += [f"{_PAGE}: there is no header {header}" for header in sorted(described - headers)]
    for name in re.findall(r"`([\w/]+(?:_test\.(?:cpp|py)|\.py|\.cpp))`", text):
        if not any(path == name or path.endswith("/" + name) for path in paths):
            findings.append(f"{_PAGE}: there is no file {name}")
    project.finish(findings, headers)


if __name__ == "__main__":
    main()
