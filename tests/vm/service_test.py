# SPDX-License-Identifier: Apache-2.0
"""A boot of a virtual machine whose first process is systemd, which starts bootweave by its unit.

What is checked is what systemd and its journal say of it, and what is left on the disk. One boot serves all
tests.
"""

import json
import os
import re
import subprocess
import unittest

import images
import machine
from once import once

# By how messages of the sample host's boot begin: their priorities in the journal.
_PRIORITIES = {
    "Bootweave dependency error: ": {1, 4},     # an alert, and the log's own line
    "Method invocation failed: hardware-sensors->": {3},
    "ignoring plugin ": {4},
    "executing start plugin: ": {5},
}
_EXITED = {"ActiveState": "active", "SubState": "exited", "Result": "success", "ExecMainStatus": "0"}

_settings = {}


def prepare(architecture, directory, packages, trees):
    """To be called first, as in boots_test; the packages have systemd among them."""
    os.makedirs(directory, exist_ok=True)
    _settings.update(architecture=architecture, directory=os.path.realpath(directory), packages=packages,
                     trees=trees)


class Service:
    """What the operator has learnt while the machine ran, and what it has left behind."""

    _STATE = "systemctl show bootweave -p Type,ActiveState,SubState,Result,ExecMainStatus,StatusText"
    _EVENT_DAEMON = "cat /run/corvane/obsvd.pid /proc/$(cat /run/corvane/obsvd.pid)/cgroup"

    def __init__(self):
        image = images.ManagedImage(**_settings)
        disk = image.new_disk("disk")
        log = os.path.join(image.directory, "service.console")
        with machine.Machine(image, disk, log) as running:
            running.read_until(r"^@ready\n")
            self._operate(running)
            running.type("systemctl poweroff\n")
            self.emulator_status = running.wait_for_the_end()
        self.console = running.console
        self.disk_check = subprocess.run(["/sbin/e2fsck", "-f", "-n", disk], capture_output=True, check=False)
        left = os.path.join(image.directory, "left")
        images.read_back(disk, left, "/")
        self.left = os.listdir(left)

    def _operate(self, running):
        # The boot waits while the first line runs. What systemd answers is read later: until the boot has
        # ended, it writes to the console itself.
        running.run(f"{{ {self._STATE} >/run/unit; systemctl is-system-running >/run/host; }} "
                    "3>/run/operator")
        running.run("rm /run/operator; systemctl is-system-running --wait >/run/host-after")
        self.during = self._properties(running, "cat /run/unit")
        self.host_during = running.run("cat /run/host")[0]
        self.host_after = running.run("cat /run/host-after; systemctl --failed --plain --no-legend")[0]
        self.after = self._properties(running, self._STATE)
        self.processes = running.run("ps -o args")[0]
        self.event_daemon = running.run(self._EVENT_DAEMON)[0]
        self.journal = self._messages(running, "syslog")
        self.written = self._messages(running, "stdout")
        self.kernel_log = self._messages(running, "kernel")
        self.restart = running.run("systemctl restart bootweave")
        self.after_restart = self._properties(running, self._STATE)
        self.event_daemon_after_restart = running.run(self._EVENT_DAEMON)[0]
        self.kernel_log_of_both = self._messages(running, "kernel")

    @staticmethod
    def _properties(running, line):
        return dict(printed.split("=", 1) for printed in running.run(line)[0].splitlines())

    @staticmethod
    def _messages(running, transport):
        """(text, priority) of each message of bootweave's in the journal that has come this way, in order."""
        printed, _ = running.run("journalctl -o json --output-fields=PRIORITY,MESSAGE "
                                 f"-t bootweave _TRANSPORT={transport}")
        records = [json.loads(line) for line in printed.splitlines()]
        return [(record["MESSAGE"], int(record["PRIORITY"])) for record in records]

    @property
    def executed(self):
        return re.findall(r"^executing start plugin: (.*)$", _lines(self.journal), re.MULTILINE)


@once
def _service():
    return Service()


def _lines(messages):
    return "\n".join(text for text, _ in messages)


class ServiceTest(unittest.TestCase):
    service = property(lambda self: _service())

    def test_systemd_waits_for_the_boot_and_shows_its_status_text(self):
        self.assertEqual({"Type": "oneshot", "ActiveState": "activating", "SubState": "start",
                          "StatusText": "Activating Bootweave Plugins", "Result": "success",
                          "ExecMainStatus": "0"}, self.service.during)
        self.assertEqual("starting\n", self.service.host_during)

    def test_the_unit_stays_active_once_the_boot_has_ended_and_no_unit_has_failed(self):
        self.assertLessEqual(_EXITED.items(), self.service.after.items())
        self.assertEqual("running\n", self.service.host_after)
        self.assertNotIn("FAILED", self.service.console)

    def test_the_journal_has_each_message_once_and_with_its_priority(self):
        self.assertGreater(len(self.service.executed), 24)
        for beginning, priorities in _PRIORITIES.items():
            found = {priority for text, priority in self.service.journal if text.startswith(beginning)}
            self.assertEqual(priorities, found, beginning)
            self.assertNotIn(beginning, _lines(self.service.written))

    def test_the_journal_has_the_kernel_logs_records_too(self):
        kernel_log = self.service.kernel_log
        activated = re.findall(r"^Activating Bootweave plugin (.*)\.$", _lines(kernel_log), re.MULTILINE)
        self.assertEqual(sorted(self.service.executed), sorted(activated))
        self.assertEqual({5}, {priority for text, priority in kernel_log if "Bootweave plugin " in text})

    def test_what_the_boot_started_lives_on_in_the_units_control_group_and_nothing_else(self):
        self.assertRegex(self.service.event_daemon, r"\A\d+\n0::/system\.slice/bootweave\.service\n\Z")
        self.assertIn("/obsvd", self.service.processes)
        self.assertNotIn("bootweave", self.service.processes)

    def test_a_restart_runs_the_plugins_again_and_leaves_what_they_started(self):
        self.assertEqual(("", 0), self.service.restart)
        self.assertLessEqual(_EXITED.items(), self.service.after_restart.items())
        first = self.service.kernel_log
        self.assertEqual(sorted(first), sorted(self.service.kernel_log_of_both[len(first):]))
        self.assertEqual(self.service.event_daemon, self.service.event_daemon_after_restart)

    def test_the_machine_switches_itself_off_and_its_disk_is_whole(self):
        self.assertEqual(0, self.service.emulator_status)
        self.assertIn("reboot: Power down", self.service.console)
        self.assertEqual(0, self.service.disk_check.returncode, self.service.disk_check.stdout)
        self.assertIn("bootweav.gz", self.service.left)
