# SPDX-License-Identifier: Apache-2.0
"""Other programs that run the same units in the same order, as far as they are on the PATH."""

import os
import shlex
import shutil

DIRECTORY = "/run/bench-peer"


def _clean():
    shutil.rmtree(DIRECTORY, ignore_errors=True)
    os.makedirs(DIRECTORY)


def make(path):
    _clean()
    with open(f"{DIRECTORY}/Makefile", "w", encoding="utf-8") as file:
        targets = [f"u{unit}" for unit in range(path.count)]
        file.write(f".PHONY: all {' '.join(targets)}\nall: {' '.join(targets)}\n")
        for unit, providers in enumerate(path.providers(unit) for unit in range(path.count)):
            words = " ".join(shlex.quote(word) for word in path.words(unit))
            file.write(f"u{unit}:{''.join(f' u{name}' for name in providers)}\n\t@{words}\n")
    return ["make", "-s", "-C", DIRECTORY, f"-j{path.jobs}", "all"]


def ninja(path):
    _clean()
    with open(f"{DIRECTORY}/build.ninja", "w", encoding="utf-8") as file:
        file.write("rule run\n  command = $words\n")
        for unit, providers in enumerate(path.providers(unit) for unit in range(path.count)):
            words = " ".join(shlex.quote(word) for word in path.words(unit)).replace("$", "$$")
            file.write(f"build u{unit}: run{''.join(f' u{name}' for name in providers)}\n  words = {words}\n")
    return ["ninja", "--quiet", "-C", DIRECTORY, f"-j{path.jobs}"]


def startpar(path):
    """Runs init scripts and nothing else, at least one for each processor at a time. Its time grows with the
    square of their number: more than a thousand take it minutes."""
    scripts = "/etc/init.d"
    if path.words(0)[0] != f"{scripts}/u0" or not path.parallel or path.count > 1000:
        return None
    shutil.rmtree("/etc/rc2.d", ignore_errors=True)
    os.makedirs("/etc/rc2.d")
    with open(f"{scripts}/.depend.start", "w", encoding="utf-8") as file:
        file.write(f"TARGETS = {' '.join(f'u{unit}' for unit in range(path.count))}\nINTERACTIVE =\n")
        for unit in range(path.count):
            os.symlink(f"{scripts}/u{unit}", f"/etc/rc2.d/S01u{unit}")
            names = " ".join(f"u{name}" for name in path.providers(unit))
            file.write(f"u{unit}: {names}\n" if names else "")
    return ["env", "RUNLEVEL=2", "PREVLEVEL=N", "startpar", "-p", str(path.jobs // os.cpu_count()),
            "-M", "start"]


# Each gives the command that runs the units of a path, or None when it cannot.
PEERS = {"make": make, "ninja": ninja, "startpar": startpar}
