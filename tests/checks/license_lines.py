#!/usr/bin/python3
# SPDX-License-Identifier: Apache-2.0
"""Every file that can hold a comment opens with the line that names its licence."""

import re

import project

_LINE = re.compile(r"(//|#|\.\\\"|/\*|;) SPDX-License-Identifier: Apache-2\.0( \*/)?")

# Prose, data, and the files of tools that read them line by line.
_EXEMPT = re.compile(r".*\.(md|json|pot?)|LICENSE|\.editorconfig|(.*/)?\.gitignore|(.*/)?\.clang-format"
                     r"|tests/(system/.*/expected|fuzz/corpus)/.*"
                     r"|examples/(host/.*/etc|mistakes|plugins/debug)/.*"
                     r"|docs/(pictures|performance)/.*"
                     r"|debian/(changelog|copyright|source/format|.*\.README\.Debian)")


def main():
    """Checks the whole tree."""
    paths = [path for path in project.files() if not _EXEMPT.fullmatch(str(path))]
    findings = []
    for path in paths:
        lines = (project.ROOT / path).read_text(encoding="utf-8", errors="replace").splitlines()
        first = lines[1:2] if lines and lines[0].startswith("#!") else lines[:1]
        if not first or not _LINE.fullmatch(first[0]):
            findings.append(f"{path}: no SPDX line")
    project.finish(findings, paths)


if __name__ == "__main__":
    main()
