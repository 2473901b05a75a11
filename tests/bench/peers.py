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


PEERS = {"make": make, "ninja": ninja}
