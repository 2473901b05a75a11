# SPDX-License-Identifier: Apache-2.0
"""A few of the boots in a row of which scripts/soak makes a hundred, on hosts on which something is wrong."""

import os
import sys

sys.path.insert(0, os.path.join(os.path.dirname(os.path.realpath(__file__)), "..", "soak"))

from harness import SystemTest, command, plugin     # noqa: E402 (the path comes first)
from soaking_host import soak                       # noqa: E402

_BOOTS = 6      # the least that can be compared: the first five are getting to know the host

# Leaves one of each kind behind. The process ends with the host.
_LEAVE = """
mkdir -p "/run/left-$$" && mount -t tmpfs none "/run/left-$$"
head -c 5000 /dev/zero >"/var/lib/left-$$"
ipcmk -Q >/dev/null
mkdir "/sys/fs/cgroup/left-$$" 2>/dev/null
setsid python3 -IS -c 'import socket, time
with socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM) as left:
    left.bind("/run/left-socket-" + str(time.time_ns()))
    time.sleep(1000)' </dev/null >/dev/null 2>&1 &
"""

# Fails from the sixth time on.
_TIRE = """
echo >>/run/times
[ "$(wc -l </run/times)" -lt 6 ]
"""


class SoakTest(SystemTest):
    def _soak(self, name, script):
        """The failures on a sample host with a plugin that runs this script, and the last line."""
        status, lines = soak(self, _BOOTS, plugin(name, [name]), command(name, script))
        self.assertEqual(1, status, "\n".join(lines))
        return [line.removeprefix("FAIL  ") for line in lines if line.startswith("FAIL  ")], lines

    def test_whatever_a_boot_leaves_behind_each_time_is_reported_by_its_kind(self):
        failures, lines = self._soak("leaver", _LEAVE)
        kinds = {failure.partition(" after boot ")[0] for failure in failures}
        expected = {"files", "bytes but for logs", "processes", "descriptors", "sockets", "IPC objects",
                    "mounts"}
        if not any(line.startswith("control groups: not counted") for line in lines):
            expected.add("control groups")
        self.assertEqual(expected, kinds, "\n".join(lines))
        self.assertEqual(f"{_BOOTS} passed, {len(expected)} failed", lines[-1])
        named = next(failure for failure in failures if failure.startswith("mounts"))
        self.assertRegex(named, r"^mounts after boot 6, against boot 5: 1 more: /run/left-\d+ \(1 more\)$")

    def test_a_boot_that_goes_otherwise_than_the_others_is_reported_and_nothing_else(self):
        failures, lines = self._soak("tired", _TIRE)
        self.assertEqual(["boot 6: these failed: ['hardware-sensors', 'tired'], not ['hardware-sensors']"],
                         failures, "\n".join(lines))
        self.assertRegex(lines[-1], r"^1[23] passed, 1 failed$")
