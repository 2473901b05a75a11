# SPDX-License-Identifier: Apache-2.0
"""Boots of a virtual machine: Debian's kernel, a small host, bootweave as what the first process starts.

What is checked was seen from outside: on the serial line, and in the files that the machine has left on its
disk. One boot serves several tests.
"""

import gzip
import os
import re
import subprocess
import unittest

import images
import machine
from once import once

_SOCKET = "/var/run/corvane/bootweaveExecutor.sock"
_ONCE = {"host-key", "filesystem-images", "hardware-inventory"}
_DAEMONS = ("heartbeatd", "timekeepd", "linkmond", "metricsd", "guest-agentd")

_settings = {}


def prepare(architecture, directory, packages, trees):
    """To be called first: for which processor, where the files go, and the trees that the host is made of."""
    os.makedirs(directory, exist_ok=True)
    _settings.update(architecture=architecture, directory=os.path.realpath(directory), packages=packages,
                     trees=trees)


class Boot:
    """What one boot has shown and left behind."""

    def __init__(self, name, bootweave, profile="", **options):
        self.name = name
        self.answers = {}
        disk = os.path.join(_settings["directory"], "disk")
        log = os.path.join(_settings["directory"], f"{name}.console")
        settings = (f'BOOTWEAVE="{bootweave}"', f"PROFILE={profile}")
        with machine.Machine(_image(), disk, log, settings, **options) as running:
            self.handed_over = float(running.read_until(r"^@handed-over (\S+)\n")[1])
            self.operate(running)
            running.type(f"power-off {name}\n")
            self.emulator_status = running.wait_for_the_end()
        self.console, self.said = running.console, running.said
        self.disk_check = subprocess.run(["/sbin/e2fsck", "-f", "-n", disk], capture_output=True, check=False)
        left = os.path.join(_settings["directory"], "left")
        images.read_back(disk, left, "/results", "/bootbank")
        self._results = os.path.join(left, "results", name)
        with open(os.path.join(left, "bootbank", "bootweav.gz"), "rb") as file:
            self.record = gzip.decompress(file.read()).decode()
        self.kernel = self.read("boot/kernel.log")
        self.profile = self.read("boot/sysboot.log")

    def operate(self, running):
        """What the operator does until the machine is switched off; the boot's status becomes `status`."""
        self.status = int(running.read_until(r"^@ended (\d+)\n")[1])
        running.read_until(r"^@ready\n")
        self.ask(running, "terminal", "cat /sys/class/tty/tty0/active")
        self.ask(running, "processes", "ps -o args")
        running.run("mkdir /var/log/boot; cd /var/log/boot; dmesg -r >kernel.log; cp ../sysboot.log .; cd /")

    def ask(self, running, name, line):
        self.answers[name] = running.run(line)

    def read(self, name):
        with open(os.path.join(self._results, name), encoding="utf-8", errors="replace") as file:
            return file.read()

    @property
    def activated(self):
        return set(re.findall(r"bootweave: Activating Bootweave plugin (.*)\.$", self.kernel, re.MULTILINE))

    @property
    def failed(self):
        return set(re.findall(r"bootweave: Bootweave plugin (.*) activation failed: ", self.kernel))


class FirstBoot(Boot):
    """And a day in the machine's life: daemons started, a method invoked, daemons stopped."""

    def operate(self, running):
        super().operate(running)
        self.ask(running, "start", "bootweave --daemon=wait --parallel --method=start")
        for daemon in _DAEMONS:
            self.ask(running, f"{daemon} runs", f"/etc/init.d/{daemon} status")
            self.ask(running, f"{daemon} group", f"cat /proc/$(cat /run/corvane/{daemon}.pid)/cgroup")
        self.ask(running, "invoke",
                 f"rm -f {_SOCKET}; bootweave --invoke --method=start --plugin=time-clock.json")
        self.ask(running, "stop", "bootweave --daemon=wait --method=stop")
        for daemon in _DAEMONS:
            self.ask(running, f"{daemon} after", f"/etc/init.d/{daemon} status")


class InteractiveBoot(Boot):
    """With the dialogue on the serial line and a virtual console for /dev/console."""

    def operate(self, running):
        question = r"current plugin: \x1b\[36m(.*)\n.*\(s\)kip\x1b\[0m\x1b\[\?25l"
        self.asked = []
        for keys in ("xT", "s", "e", "c"):
            self.asked.append(running.read_until(question)[1])
            running.type(keys)
            if keys == "xT":
                running.type("cat /sys/class/tty/tty0/active; tty; exit\n")
                self.terminal_while_asking = running.read_until(r"(tty\d+)\n(/dev/.*)\n")
        super().operate(running)


@once
def _image():
    return images.Image(**_settings)


@once
def _first_boot():
    _image().new_disk("disk")
    return FirstBoot("first", "--init --parallel")


@once
def _second_boot():
    _first_boot()
    return Boot("second", "--init")


@once
def _profile_boot():
    _first_boot()
    return Boot("profile", "--init --parallel", profile="edge")


@once
def _interactive_boot():
    _first_boot()
    return InteractiveBoot("interactive", "--init --interactive", consoles=("serial", "virtual"))


class AnyBoot:
    """What holds for every boot; `boot` is the one that has been seen."""

    lacking = {"hardware-sensors"}      # fail, as the machine has nothing of the kind
    skipped = frozenset()               # take part in the graph and do not run

    def test_it_ends_well_and_only_what_this_host_lacks_fails(self):
        self.assertEqual(0, self.boot.status)
        self.assertEqual(self.lacking, self.boot.failed)

    def test_the_kernel_log_holds_each_activation_and_how_it_ended(self):
        profiled = re.findall(r"\] sysboot: (.*)$", self.boot.profile, re.MULTILINE)
        self.assertGreater(len(profiled), 24)
        self.assertEqual(set(profiled) - self.skipped, self.boot.activated)
        for name in self.boot.activated:
            record = (rf"^<13>\[ *[\d.]+\] bootweave: Bootweave plugin {re.escape(name)} "
                      r"activat(ed\.|ion failed: )")
            self.assertEqual(1, len(re.findall(record, self.boot.kernel, re.MULTILINE)), name)

    def test_the_kernel_has_dropped_no_record(self):
        self.assertNotIn("suppressed", self.boot.kernel)

    def test_the_uptime_in_the_profile_is_the_kernels(self):
        told = int(re.match(r"Mantle Initialization Time: (\d+)\n", self.boot.profile)[1]) / 1_000_000
        record = re.search(r"^<\d+>\[ *([\d.]+)\] bootweave: ", self.boot.kernel, re.MULTILINE)
        self.assertEqual(told, int(told))
        self.assertLessEqual(int(self.boot.handed_over), told)
        self.assertLessEqual(told, float(record[1]))

    def test_the_machine_switches_itself_off_and_its_disk_is_whole(self):
        self.assertEqual(0, self.boot.emulator_status)
        self.assertIn("reboot: Power down", self.boot.console)
        self.assertNotIn("@busy", self.boot.said)
        self.assertEqual(0, self.boot.disk_check.returncode, self.boot.disk_check.stdout)

    def test_no_process_of_the_boot_is_left_but_the_services_that_it_started(self):
        left = self.boot.answers["processes"][0].splitlines()
        self.assertEqual([], [line for line in left if "bootweave" in line or "native" in line])


class FirstBootTest(AnyBoot, unittest.TestCase):
    boot = property(lambda self: _first_boot())

    def test_plugins_that_run_once_run_and_are_recorded(self):
        self.assertLessEqual(_ONCE, self.boot.activated)
        keys = re.fullmatch(r"bootweave\.run-once=(.*),\n", self.boot.record)[1].split(",")
        self.assertEqual(_ONCE, {re.sub(r"[\d.]+$", "", key) for key in keys})

    def test_init_scripts_start_daemons_that_run_each_in_its_control_group(self):
        self.assertEqual(0, self.boot.answers["start"][1])
        for daemon in _DAEMONS:
            said, status = self.boot.answers[f"{daemon} runs"]
            self.assertEqual(0, status, f"{daemon}: {said}")
            self.assertIn("running, process ", said)
        groups = {daemon: self.boot.answers[f"{daemon} group"][0] for daemon in _DAEMONS}
        self.assertEqual({daemon: f"0::/init/{daemon}\n" for daemon in _DAEMONS}, groups)

    def test_a_method_is_invoked_on_the_running_host(self):
        said, status = self.boot.answers["invoke"]
        self.assertEqual(0, status, said)
        self.assertIn("executing start plugin: time-clock", said)

    def test_init_scripts_stop_the_daemons_in_the_opposite_order(self):
        said, status = self.boot.answers["stop"]
        self.assertEqual(0, status, said)
        stopped = re.findall(r": executing stop for daemon (.*)\.$", said, re.MULTILINE)
        self.assertEqual(["host-report", "backup-index", "guest-agentd", "shared-folders", "metricsd",
                          "path-rescan", "linkmond"], stopped[:7])
        self.assertEqual({"timekeepd", "heartbeatd"}, set(stopped[7:9]))
        self.assertEqual(["entropy-seed"], stopped[9:])
        for daemon in _DAEMONS:
            self.assertEqual(("not running\n", 3), self.boot.answers[f"{daemon} after"])

    def test_the_kernel_log_holds_the_daemons_too(self):
        kernel = self.boot.read("kernel.log")
        for daemon in _DAEMONS:
            self.assertIn(f"bootweave: Activating Bootweave plugin {daemon}.", kernel)
            self.assertIn(f"bootweave: Daemon {daemon} deactivated.", kernel)


class SecondBootTest(AnyBoot, unittest.TestCase):
    boot = property(lambda self: _second_boot())
    skipped = _ONCE

    def test_plugins_that_run_once_do_not_run_again(self):
        self.assertEqual(set(), _ONCE & self.boot.activated)

    def test_the_record_stays_what_it_was(self):
        self.assertEqual(_first_boot().record, self.boot.record)


class ProfileBootTest(AnyBoot, unittest.TestCase):
    boot = property(lambda self: _profile_boot())
    skipped = _ONCE

    def test_plugins_that_support_a_host_profile_apply_it(self):
        applied = set(re.findall(r": executing host profile plugin: (.*)$", self.boot.said, re.MULTILINE))
        self.assertEqual({"cpu-power", "datastore-fast", "firewall-rules", "network-tuning",
                          "network-uplinks", "storage-paths", "time-sync"}, applied)


class InteractiveBootTest(AnyBoot, unittest.TestCase):
    boot = property(lambda self: _interactive_boot())
    skipped = property(lambda self: _ONCE | {self.boot.asked[1]})

    def test_each_plugin_is_asked_for_until_the_operator_goes_on_without(self):
        self.assertEqual(4, len(set(self.boot.asked)))
        self.assertEqual(4, self.boot.said.count("current plugin: "))

    def test_a_skipped_plugin_leaves_no_record_in_the_kernel_log(self):
        self.assertNotIn(self.boot.asked[1], self.boot.activated)

    def test_the_shell_for_trouble_has_the_serial_line_for_its_terminal(self):
        line = machine.serial_line(_settings["architecture"])
        self.assertEqual(f"/dev/{line}", self.boot.terminal_while_asking[2])

    def test_questions_bring_the_first_virtual_terminal_up_and_going_on_the_eleventh(self):
        self.assertEqual("tty1", self.boot.terminal_while_asking[1])
        self.assertEqual(("tty11\n", 0), self.boot.answers["terminal"])
