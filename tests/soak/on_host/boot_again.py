#!/usr/bin/python3 -IS
# SPDX-License-Identifier: Apache-2.0
"""Boots this host many times in a row, and looks at what the boots do and what they leave behind.

usage: boot_again.py BOOTS    (on a throw-away host)

Prints a line for each boot that fails and every ten boots, a table of what the host held after some of them,
and, last, "N passed, N failed": one for each boot, and one for each kind of things that must not grow.
"""

import os
import sys
import time

sys.path.insert(0, os.path.dirname(os.path.realpath(__file__)))

import counts                       # noqa: E402 (the path comes first)
import host_life                    # noqa: E402
from host_runs import Hung, call    # noqa: E402
from records import Wrong           # noqa: E402

_FIRST_USUAL = 5        # by then everything has happened once
_REPORT_EVERY = 10
_MESSAGE_QUEUES = "/dev/mqueue"


class Soak:
    """The boots, and the counts that were taken after some of them."""

    def __init__(self, boots):
        self._boots = boots
        self._counted = sorted({1, _FIRST_USUAL, (boots + 1) // 2, boots})
        self._counts = {}
        self.passed = self.failed = 0

    def run(self):
        """Makes the boots, unless a program hangs, and judges them."""
        host = host_life.Host()
        started = time.monotonic()
        try:
            for number in range(1, self._boots + 1):
                self._boot(host, number)
                if number in self._counted:
                    self._counts[number] = counts.take_at_rest()
                if number % _REPORT_EVERY == 0:
                    print(f"boot {number}: {self.failed} failed so far, {time.monotonic() - started:.0f} s",
                          flush=True)
            self._judge_growth()
        except Hung as error:
            self._fail(f"broken off: {error}")
        host.shut_down()

    def _fail(self, text):
        self.failed += 1
        print(f"FAIL  {text}", flush=True)

    def _boot(self, host, number):
        try:
            host.live(number)
            self.passed += 1
        except (Wrong, TimeoutError, OSError) as error:
            self._fail(f"boot {number}: {error}")

    def _judge_growth(self):
        before = self._counts[_FIRST_USUAL]
        growth = self._growth(before)
        self._print_table()
        for kind in before:
            if before[kind] is None:
                print(f"{kind}: not counted, as this host has none")
            elif kind in growth:
                self._fail(f"{kind} after boot {self._boots}, against boot {_FIRST_USUAL}: {growth[kind]}")
            else:
                self.passed += 1

    def _growth(self, before):
        """What has come to stay; what comes and goes has a few more seconds to go."""
        deadline = time.monotonic() + 3
        while (found := counts.growth(before, self._counts[self._boots])) and time.monotonic() < deadline:
            time.sleep(0.2)
            self._counts[self._boots] = counts.take()
        return found

    def _print_table(self):
        print("\n" + " " * 20 + "".join(f"{f'boot {number}':>10}" for number in self._counted))
        for kind in self._counts[self._boots]:
            cells = (self._counts[number][kind] for number in self._counted)
            print(f"{kind:20}" + "".join(f"{'-' if cell is None else cell.total():>10}" for cell in cells))


def main():
    os.makedirs(_MESSAGE_QUEUES, exist_ok=True)
    call("mount", "-t", "mqueue", "none", _MESSAGE_QUEUES)
    soak = Soak(int(sys.argv[1]))
    soak.run()
    print(f"\n{soak.passed} passed, {soak.failed} failed", flush=True)
    return 0 if soak.failed == 0 else 1


if __name__ == "__main__":
    sys.exit(main())
