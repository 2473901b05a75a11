#!/usr/bin/python3
# SPDX-License-Identifier: Apache-2.0
"""Every script can be parsed by its interpreter, and shellcheck finds nothing in the shell's."""

import os
import subprocess

import project

_SHELLS = ("sh", "bash", "dash")


def _language(path):
    name = project.interpreter(path)
    if name in _SHELLS:
        return name
    if path.suffix == ".sh":        # read into other scripts
        return "bash"
    if path.suffix == ".py" or (name or "").startswith("python"):
        return "python"
    return None


def _compile(path):
    try:
        compile((project.ROOT / path).read_bytes(), str(path), "exec", dont_inherit=True)
    except (SyntaxError, ValueError) as error:
        yield f"{path}:{getattr(error, 'lineno', 0)}: {error}"


def _run(*command):
    result = subprocess.run(command, cwd=project.ROOT, check=False, text=True, stdout=subprocess.PIPE,
                            stderr=subprocess.STDOUT)
    if result.returncode != 0:
        yield result.stdout.rstrip() or f"{' '.join(command)}: status {result.returncode}"


def main():
    """Checks the whole tree."""
    languages = {path: _language(path) for path in project.files()}
    scripts = {path: language for path, language in languages.items() if language is not None}
    findings = []
    for path, language in scripts.items():
        if language == "python":
            findings += _compile(path)
        else:
            findings += _run(project.need(language), "-n", str(path))
        if project.interpreter(path) and not os.access(project.ROOT / path, os.X_OK):
            findings.append(f"{path}: is a program by its first line, and not executable")
    shells = [str(path) for path, language in scripts.items() if language in _SHELLS]
    findings += _run(project.need("shellcheck"), "--external-sources", "--format=gcc", *shells)
    project.finish(findings, scripts)


if __name__ == "__main__":
    main()
