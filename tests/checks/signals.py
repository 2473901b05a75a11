#!/usr/bin/python3
# SPDX-License-Identifier: Apache-2.0
"""Signals are handled or ignored through ChangeSignal() alone: programs that are started get back to their
default what went through it, and nothing else."""

import re

import project

_DOOR = "util/signals.cpp"
_CALL = re.compile(r"\b(?:sigaction|signal|sigset|sigignore)\s*\(([^;]*?)\)\s*(?:[;=!)&|]|$)", re.MULTILINE)
# A look, and back to the default: neither leaves a program anything to put back.
_HARMLESS = re.compile(r"^[^,]+,\s*(?:nullptr,.*|SIG_DFL)$", re.DOTALL)
_COMMENT = re.compile(r"//[^\n]*")


def findings_in(path, text):
    """What is wrong with one source, one line each."""
    if path == _DOOR:
        return
    text = _COMMENT.sub(lambda comment: " " * len(comment.group()), text)
    for call in _CALL.finditer(text):
        if not _HARMLESS.match(call.group(1)):
            line = text.count("\n", 0, call.start()) + 1
            yield f"{path}:{line}: changes a signal; that is for ChangeSignal()"


def main():
    """Checks the product's sources."""
    is_test = project.test_code()
    paths = [path for path in project.sources(".cpp", ".h")
             if path.parts[0] in project.ROOMS and not is_test(path)]
    findings = [finding for path in paths
                for finding in findings_in(str(path), (project.ROOT / path).read_text(encoding="utf-8"))]
    project.finish(findings, paths)


if __name__ == "__main__":
    main()
