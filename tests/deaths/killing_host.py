# SPDX-License-Identifier: Apache-2.0
"""Hosts on which runs are killed."""

import os
import re

from harness import File
from init_scripts import PROFILE
from native_build import native

_HERE = os.path.dirname(os.path.realpath(__file__))
_SETUP = os.path.join(_HERE, "..", "..", "examples", "host", "setup")
_ON_HOST = os.path.join(_HERE, "on_host")
_PLACE = "/opt/deaths"


def _host(case):
    """The sample host with the programs of on_host/, and a native plugin that takes a while."""
    files = {PROFILE: "the boot's block\n"}     # for daemon runs, which add to one
    for name in os.listdir(_ON_HOST):
        if name.endswith(".py"):
            with open(os.path.join(_ON_HOST, name), encoding="utf-8") as file:
                files[f"{_PLACE}/{name}"] = File(file.read(), 0o755)
    with open(_SETUP, encoding="utf-8") as file:
        setup = file.read()
    return case.sample_host(files, native("burn-in", "usleep(60000);"), setup=setup)


def kill(case, seed, first, last, kinds=()):
    """Makes the kills of these numbers on a host of its own; see on_host/kill_runs.py.

    :return: {number: line} of those that were made, and the number of the one that failed, or None
    """
    end = _host(case).run(f"{_PLACE}/kill_runs.py", str(seed), str(first), str(last), *kinds,
                          timeout=60 + 20 * (last - first + 1))
    lines = {int(found[2]): found[0]
             for found in re.finditer(r"^(ok|FAIL) +(\d+): .*$", end.stdout, re.MULTILINE)}
    failed = next((number for number, line in lines.items() if line.startswith("FAIL")), None)
    if failed is None and end.status != 0:      # the host itself, or a run before the first kill
        failed = max(lines, default=first - 1) + 1
        lines[failed] = f"FAIL  {failed}: status {end.status}: {end.stderr}{end.stdout}"
    elif failed is not None:
        lines[failed] += "\n" + end.stderr
    return lines, failed
