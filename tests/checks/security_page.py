#!/usr/bin/python3
# SPDX-License-Identifier: Apache-2.0
"""Every test that docs/security.md names is there."""

import re

import project

_PAGE = project.ROOT / "docs/security.md"
_NAMED = re.compile(r"`(?:(\w+): (\w+)|([A-Z]\w+\.[A-Z]\w+))`")
_UNIT = re.compile(r"TEST(?:_F|_P)?\((\w+),\s*(\w+)\)")
_SYSTEM = re.compile(r"def test_(\w+)\(")


def _unit_tests():
    for path in project.sources(".cpp"):
        if path.name.endswith("_test.cpp"):
            for suite, name in _UNIT.findall((project.ROOT / path).read_text(encoding="utf-8")):
                yield f"{suite}.{name}"


def _system_tests():
    for path in (project.ROOT / "tests/system").glob("*_test.py"):
        for name in _SYSTEM.findall(path.read_text(encoding="utf-8")):
            yield path.name.removesuffix("_test.py"), name


def main():
    """Looks each name up."""
    unit, system = set(_unit_tests()), set(_system_tests())
    findings = []
    names = _NAMED.findall(_PAGE.read_text(encoding="utf-8"))
    for file, name, whole in names:
        if whole and whole not in unit:
            findings.append(f"docs/security.md: there is no test {whole}")
        if name and (file, name) not in system:
            findings.append(f"docs/security.md: there is no test {file}: {name}")
    if not names:
        findings.append("docs/security.md: names no test")
    project.finish(findings, names)


if __name__ == "__main__":
    main()
