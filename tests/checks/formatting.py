#!/usr/bin/python3
# SPDX-License-Identifier: Apache-2.0
"""Every source is as clang-format would write it. scripts/format mends what this finds."""

import subprocess

import project

# Each major version lays some lines out in its own way: everybody uses the one of Debian 12.
_VERSION = 14


def main():
    """Checks the whole tree."""
    clang_format = project.need(f"clang-format-{_VERSION}")
    sources = [str(path) for path in project.sources()]
    result = subprocess.run([clang_format, "--dry-run", "-Werror", "--style=file", *sources], check=False,
                            cwd=project.ROOT, stderr=subprocess.PIPE, text=True)
    findings = [line for line in result.stderr.splitlines() if ": error: " in line]
    if result.returncode != 0 and not findings:
        findings = [result.stderr]
    project.finish(findings, sources)


if __name__ == "__main__":
    main()
