#!/usr/bin/python3
# SPDX-License-Identifier: Apache-2.0
"""man has nothing to say about any manual page, and the program's page names exactly the options that there
are."""

import os
import re
import subprocess

import project

_PAGE = "docs/bootweave.8"
_OPTIONS = "driver/options.cpp"


def options_of_program(source):
    """The long options that the command line is parsed with."""
    return set(re.findall(r"\boption\{\"([a-z-]+)\"", source))


def options_of_page(page):
    """The long options that the page's OPTIONS section gives a paragraph each."""
    section = re.search(r"^\.SH OPTIONS$(.*?)^\.SH ", page, re.MULTILINE | re.DOTALL)
    # The line behind .TP is the paragraph's title.
    titles = re.findall(r"^\.TP\n(.*)$", section.group(1) if section else "", re.MULTILINE)
    plain = re.sub(r"\\f.", " ", "\n".join(titles)).replace("\\-", "-")
    return set(re.findall(r"(?<![a-z-])--([a-z][a-z-]*[a-z])", plain))


def _complaints_of_man(page):
    environment = dict(os.environ, LC_ALL="C.UTF-8", MANWIDTH="80")
    result = subprocess.run([project.need("man"), "--warnings", "-E", "UTF-8", "-l", "-Tutf8", "-Z", page],
                            cwd=project.ROOT, env=environment, check=False, text=True, stderr=subprocess.PIPE,
                            stdout=subprocess.DEVNULL)
    complaints = [f"{page}: {line}" for line in result.stderr.splitlines()]
    return complaints or ([f"{page}: man fails"] if result.returncode != 0 else [])


def main():
    """Checks the pages."""
    pages = [str(path) for path in project.files() if re.fullmatch(r"\.[1-8]", path.suffix)]
    program = options_of_program((project.ROOT / _OPTIONS).read_text(encoding="utf-8"))
    page = options_of_page((project.ROOT / _PAGE).read_text(encoding="utf-8"))
    findings = [complaint for name in pages for complaint in _complaints_of_man(name)]
    findings += [f"{_PAGE}: --{name} is missing" for name in sorted(program - page)]
    findings += [f"{_PAGE}: there is no option --{name}" for name in sorted(page - program)]
    project.finish(findings, pages)


if __name__ == "__main__":
    main()
