# SPDX-License-Identifier: Apache-2.0
"""Programs of a host that tell what was handed to them, and a caller that hands on trouble."""

import dataclasses

from harness import File

_SCRIPT = r"""#!/bin/sh
input=$(readlink /proc/$$/fd/0)
output=$(readlink /proc/$$/fd/1)
errors=$(readlink /proc/$$/fd/2)
{
    printf 'name %s\n' "$0"
    for word; do printf 'argument %s\n' "$word"; done
    printf 'stream %s\n' "$input" "$output" "$errors"
    echo "directory $(pwd -P)"
    echo "umask $(umask)"
    for number in $(ls /proc/self/fd); do echo "descriptor $number"; done
    sed -n 's/^SigBlk:/blocked /p; s/^SigIgn:/ignored /p' /proc/self/status
    tr '\0' '\n' </proc/$$/environ | sed 's/^/variable /'
} >"/run/report-$(basename "$0")"
"""

# Ignores and blocks every signal, keeps two more descriptors open, and becomes the program that it is given.
_CALLER = """#!/usr/bin/python3 -IS
import os, signal, sys
for number in signal.valid_signals() - {signal.SIGKILL, signal.SIGSTOP}:
    signal.signal(number, signal.SIG_IGN)
signal.pthread_sigmask(signal.SIG_BLOCK, signal.valid_signals())
for number in 3, 97:
    os.dup2(os.open("/etc/passwd", os.O_RDONLY), number)
    os.set_inheritable(number, True)
os.execv(sys.argv[1], sys.argv[1:])
"""

HOSTILE_CALLER = "/usr/local/bin/hostile-caller"

# For host commands: "driver" prints the process id of the program that waits for the command's end.
DRIVER = """
driver() {
    for process in /proc/[0-9]*; do
        [ "${process#/proc/}" = "$PPID" ] || [ "$(cat "$process/comm" 2>/dev/null)" != bootweave ] ||
            echo "${process#/proc/}"
    done
}
"""


def hostile_caller():
    """Files for HOSTILE_CALLER, to be run in front of the program."""
    return {HOSTILE_CALLER: File(_CALLER, 0o755)}


def probe(path, script=""):
    """Files for a program at `path` that reports; then it runs the lines of a shell script."""
    return {path: File(_SCRIPT + script + "\n", 0o755)}


@dataclasses.dataclass
class Report:
    """What a probe has seen at its start."""
    name: str
    arguments: list[str]
    streams: list[str]          # files behind standard input, output and error
    directory: str
    umask: str
    descriptors: list[str]      # numbers of all that are open
    blocked: int                # signal masks, bit 0 is signal 1
    ignored: int
    variables: list[str]


def report(ending, name):
    """The report of the probe whose file is called `name`."""
    text = ending.read(f"/run/report-{name}")
    if text is None:
        raise AssertionError(f"{name} did not run")
    lines = [line.split(" ", 1) for line in text.splitlines()]
    values = {key: [value for found, value in lines if found == key] for key, _ in lines}
    return Report(
        name=values["name"][0], arguments=values.get("argument", []), streams=values["stream"],
        directory=values["directory"][0], umask=values["umask"][0],
        # The last one is that through which they were listed.
        descriptors=values["descriptor"][:-1],
        blocked=int(values["blocked"][0], 16), ignored=int(values["ignored"][0], 16),
        variables=values["variable"])
