# SPDX-License-Identifier: Apache-2.0
"""What a plugin costs, counted: calls of the system, and instructions where they can be counted.

Counts hardly depend on the machine's speed or load, so that a change that makes runs slower fails here. What
they are today stands beside each bound; a change that needs more raises the bound, and says why.
"""

import os
import re
import shutil

from harness import PRESET_VARIABLE, SystemTest, command, plugin
from init_scripts import init_scripts
from native_build import native

_FEW, _MANY = 20, 60
_LOG = "/var/log/cost"


class CostTest(SystemTest):
    def _per_plugin(self, count, files):
        """The slope: what each plugin adds to a run, without what a run costs anyway."""
        return (count(files(_MANY)) - count(files(_FEW))) / (_MANY - _FEW)


class SystemCallTest(CostTest):
    """Calls of the program and its executor, not those of the programs that they start."""

    def setUp(self):
        super().setUp()
        if os.environ.get(PRESET_VARIABLE, "release") != "release":
            self.skipTest("counts what the release preset does")

    def _calls(self, *arguments):
        def count(files):
            end = self.host(*files, keep=[_LOG]).shell(
                f"strace -f --detach-on=execve -c -o {_LOG} bootweave {' '.join(arguments)}; cat {_LOG}",
                timeout=120)
            self.assertEqual(0, end.status)
            # How often threads wake each other depends on their timing.
            return sum(int(calls) for calls, name in re.findall(
                r"^ *[\d.]+ +[\d.]+ +\d+ +(\d+) +(?:\d+ +)?(\w+)$", end.stdout, re.M)
                if name not in ("futex", "total"))
        return count

    def _check(self, files, today, slack, *arguments):
        # Who finds a queue full, or looks too early, calls once more; what a change costs is there each time.
        for _ in range(3):
            calls = self._per_plugin(self._calls(*arguments), files)
            self.assertGreater(calls, today / 2, "counts less than it should")
            if calls < today + slack:
                break
        self.assertLess(calls, today + slack)

    def test_a_json_plugin_without_commands_costs_no_more_of_them(self):
        def files(count):
            return [plugin(f"p{number}") for number in range(count)]
        self._check(files, 15, 1, "--init")

    def test_a_json_plugin_with_a_command_costs_no_more_of_them(self):
        def files(count):
            return [plugin(f"p{number}", ["note"]) for number in range(count)] + [command("note", ":")]
        self._check(files, 59, 5, "--init")

    def test_a_debug_injection_costs_no_more_of_them(self):
        def files(count):
            lines = "".join(f"d{number}:a:b{number}:/bin/true\n" for number in range(count))
            return [{"/etc/corvane/bootweave/debug.conf": lines}]
        self._check(files, 36, 3, "--init")

    def test_a_native_plugin_costs_no_more_of_them(self):
        def files(count):
            return [native(f"n{number}") for number in range(count)]
        self._check(files, 38, 14, "--init")

    def test_an_init_script_costs_no_more_of_them(self):
        def files(count):
            return [init_scripts(**{f"s{number}": number for number in range(count)})]
        self._check(files, 49, 8, "--daemon=wait", "--method=start")


class InstructionTest(CostTest):
    """Instructions of the program itself, from the files of plugins that do nothing to the end of the run."""

    def _instructions(self, files):
        end = self.host(*files).shell("valgrind --tool=callgrind --callgrind-out-file=/dev/null bootweave",
                                      timeout=120)
        self.assertEqual(0, end.status, end.stderr)
        return max(int(number.replace(",", "")) for number in re.findall(r"Collected : (\d+)", end.stderr))

    def test_a_plugin_that_does_nothing_costs_no_more_of_them(self):
        if shutil.which("valgrind") is None or os.environ.get(PRESET_VARIABLE, "release") != "release":
            self.skipTest("needs valgrind, and counts what the release preset does")

        def files(count):
            return [plugin(f"p{number}", requires=[f"b{number - 1}"], provides=[f"b{number}"])
                    for number in range(count)]
        today = 35_600
        found = self._per_plugin(self._instructions, files)
        self.assertLess(found, today * 1.15)
        self.assertGreater(found, today / 2, "counts less than it should")
