# SPDX-License-Identifier: Apache-2.0
"""Runs of the program and of its analyser on the host, with what they say."""

import json
import re
import subprocess

from records import expect

_KERNEL_LOG = "/dev/kmsg"       # a plain file on a throw-away host
_OUTPUT = "/run/soak-output"
_LOG_LINE = re.compile(r"\d{4}-\d\d-\d\dT\d\d:\d\d:\d\d\.\d{3}Z bootweave\[\d+\]: (.*)")
_KERNEL_LINE = re.compile(
    r"<\d>bootweave: (?:(?:Activating Bootweave plugin|Deactivating Daemon) (?P<begun>.*)\."
    r"|(?:Bootweave plugin|Daemon) (?P<well>\S+) (?:de)?activated\."
    r"|(?:Bootweave plugin|Daemon) (?P<badly>\S+) (?:de)?activation failed: .*)")
_SECONDS = 60


class Hung(Exception):
    """A program has not come to its end; nothing is known of the host any more."""


def call(*words, output=subprocess.PIPE):
    """Runs a program to its end with status 0; returns what it has printed.

    :raises Wrong: for any other end
    :raises Hung: when there is none
    """
    try:
        # Into a file or a short answer: daemons that the program leaves behind may hold what it was given.
        done = subprocess.run(words, stdin=subprocess.DEVNULL, stdout=output, stderr=subprocess.STDOUT,
                              text=True, timeout=_SECONDS, check=False)
    except subprocess.TimeoutExpired:
        raise Hung(f"{' '.join(words)} has not ended within {_SECONDS} s") from None
    expect(done.returncode == 0, f"{' '.join(words)}: status {done.returncode} {done.stdout or ''}")
    return done.stdout


class Run:
    """One run of the program, from its start to its end.

    :raises Wrong: when its exit status is not 0
    """

    def __init__(self, *arguments):
        with open(_KERNEL_LOG, encoding="utf-8") as kernel, open(_OUTPUT, "w", encoding="utf-8") as output:
            kernel.seek(0, 2)
            call("bootweave", *arguments, output=output)
            self._take_kernel_lines(kernel.read().splitlines())
        with open(_OUTPUT, encoding="utf-8") as file:
            found = map(_LOG_LINE.fullmatch, file.read().splitlines())
        self.messages = [line[1] for line in found if line]

    def _take_kernel_lines(self, lines):
        self.begun = []
        self.ended = set()
        self.failed = set()
        self.ended_before = {}      # name -> who had ended when it began
        for found in filter(None, map(_KERNEL_LINE.fullmatch, lines)):
            if found["begun"]:
                self.begun.append(found["begun"])
                self.ended_before[found["begun"]] = set(self.ended)
            else:
                self.ended.add(found["well"] or found["badly"])
                if found["badly"]:
                    self.failed.add(found["badly"])

    def check_ran(self, names, failing):
        """That these ran, each once, and those failed of which it is known."""
        expect(sorted(self.begun) == sorted(names), f"these ran: {self.begun}, not {sorted(names)}")
        expect(self.ended == set(names), f"these ended: {sorted(self.ended)}, not {sorted(names)}")
        expect(self.failed == set(failing), f"these failed: {sorted(self.failed)}, not {sorted(failing)}")


def analysis(*words):
    """A report of bootweave-analyze on the host's profile."""
    text = call("bootweave-analyze", *words, "--json")
    try:
        return json.loads(text)
    except ValueError:
        expect(False, f"bootweave-analyze {' '.join(words)} --json printed {text}")
