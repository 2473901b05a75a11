# SPDX-License-Identifier: Apache-2.0
"""What the checks share: the project's files, its rooms, and how a check reports."""

import os
import pathlib
import re
import shutil
import subprocess
import sys

ROOT = pathlib.Path(__file__).resolve().parents[2]

# An include of a source: its name in quotes, or in angle brackets.
INCLUDE = re.compile(r"^[ \t]*#[ \t]*include[ \t]*(?:\"([^\"]*)\"|<([^>]*)>)", re.MULTILINE)

ROOMS = ("analyze", "driver", "plugins", "graph", "hostcli", "util", "platform")


def files():
    """Every file of the project, tracked or about to be, as paths relative to ROOT."""
    # The checkout may belong to another user than the one that runs the checks (root in a container).
    command = ["git", "-c", "safe.directory=*", "-C", str(ROOT), "ls-files", "-z", "--cached", "--others",
               "--exclude-standard"]
    try:
        names = subprocess.run(command, check=True, capture_output=True).stdout.decode().split("\0")
    except (OSError, subprocess.CalledProcessError):
        names = _walk()     # an unpacked archive
    found = [pathlib.Path(name) for name in sorted(set(names)) if name]
    return [path for path in found if (ROOT / path).is_file() and not (ROOT / path).is_symlink()]


def _walk():
    for directory, subdirectories, names in os.walk(ROOT):
        top = pathlib.Path(directory) == ROOT
        subdirectories[:] = [name for name in subdirectories
                             if name not in (".git", "__pycache__") and not (top and name == "build")]
        yield from (os.path.relpath(os.path.join(directory, name), ROOT) for name in names)


def sources(*suffixes):
    """The C and C++ files among them: those with one of the suffixes, or all."""
    return [path for path in files() if path.suffix in (suffixes or (".cpp", ".h", ".c"))]


def test_code():
    """What belongs to the tests and not to the product, as a test of a path relative to ROOT.

    That is everything in tests/, the files named for it, and what a room lists as pieces of its test program,
    with the headers beside them."""
    listed = set()
    for path in files():
        if path.name == "CMakeLists.txt":
            text = (ROOT / path).read_text(encoding="utf-8")
            for call in re.findall(r"^bootweave_room_tests\((.*?)\)", text, re.MULTILINE | re.DOTALL):
                listed.update(str(path.parent / name) for name in re.findall(r"(\S+)\.cpp", call))

    def is_test(path):
        path = str(path)
        stem, _, _ = path.rpartition(".")
        return path.startswith("tests/") or stem.endswith(("_test", "_test_support")) or stem in listed
    return is_test


def interpreter(path):
    """The name of the program that a script's first line asks for ("sh", "python3"), or None."""
    with open(ROOT / path, "rb") as file:
        first = file.readline(200)
    match = re.match(rb"#!\s*(?:/usr/bin/env\s+)?(\S+)", first)
    return os.path.basename(match.group(1).decode("ascii", "replace")) if match else None


def need(program):
    """The path of a program that a check cannot do without."""
    found = shutil.which(program)
    if found is None:
        sys.exit(f"{program} is missing; scripts/test installs it")
    return found


def finish(findings, looked_at):
    """Prints the findings, one a line, and ends the check. A check that looked at nothing fails."""
    for finding in findings:
        print(finding)
    if not looked_at:
        print("nothing to look at")
    sys.exit(1 if findings or not looked_at else 0)
