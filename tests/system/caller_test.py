# SPDX-License-Identifier: Apache-2.0
"""Callers that start the program in a state that nobody expects, and runs that are killed half-way."""

import itertools

from harness import ERROR, NOTICE, UNTIL, WARNING, SystemTest, command, plugin
from probe import DRIVER, HOSTILE_CALLER, hostile_caller

_STREAMS = command("streams", DRIVER + """
for process in $(driver) $PPID; do
    for number in 0 1 2; do readlink /proc/$process/fd/$number || echo closed; done
done""")
_EXECUTOR_STREAMS = ["/dev/null", *["/var/log/bootweave-hostcli-stdout.log"] * 2]


class DescriptorTest(SystemTest):
    def test_missing_standard_descriptors_become_the_null_device(self):
        for closed in itertools.product(("", "<&-"), ("", ">&-"), ("", "2>&-")):
            with self.subTest(closed):
                end = self.host(plugin("a", ["streams"]), _STREAMS, {"/run/in": ""}).shell(
                    f"exec </run/in >/run/out 2>/run/err; exec {' '.join(closed)}; exec bootweave --init")
                expected = [path if part == "" else "/dev/null"
                            for path, part in zip(("/run/in", "/run/out", "/run/err"), closed)]
                self.assertEqual((0, ["a"]), (end.status, end.succeeded))
                self.assertEqual(expected + _EXECUTOR_STREAMS, end.command_output)

    def test_without_any_stream_the_system_log_has_everything(self):
        end = self.host(plugin("a", ["no such"])).shell("exec bootweave <&- >&- 2>&-")
        self.assertEqual((0, ["a"]), (end.status, list(end.failed)))
        self.assertEqual([(NOTICE, "Launching Executor"), (NOTICE, "Setting up Executor - Reset Requested")],
                         end.said[:2])
        self.assertIn((ERROR, "execution of 'no such' failed : unknown command: no such"), end.said)

    def test_help_without_standard_output_is_a_success(self):
        self.assertEqual(0, self.host().shell("exec bootweave --help >&-").status)


class SignalTest(SystemTest):
    def test_a_caller_that_ignores_and_blocks_every_signal_gets_a_boot_like_any_other(self):
        end = self.host(hostile_caller(), plugin("a", ["good", "bad"]), command("good", "true"),
                        command("bad", "exit 3")).run(HOSTILE_CALLER, "/usr/sbin/bootweave", "--parallel",
                                                      timeout=20)
        self.assertEqual((0, ["a"]), (end.status, list(end.failed)))
        self.assertIn((ERROR, "execution of 'bad' failed : exited with status 3"), end.complaints)
        self.assertNotIn((ERROR, "Executor failed executing hostcli command: good"), end.complaints)

    def test_a_caller_that_ignores_the_end_of_children_gets_their_status(self):
        end = self.host({"/usr/lib/corvane/configstore/end-auto-conf": "#!/bin/sh\n"}, plugin("a")).run(
            "python3", "-ISc", "import os, signal; signal.signal(signal.SIGCHLD, signal.SIG_IGN);"
                               "os.execvp('bootweave', ['bootweave'])")
        self.assertEqual((0, [(WARNING, "/usr/lib/corvane/configstore/end-auto-conf could not be started: "
                                        "Permission denied")]), (end.status, end.complaints))

    def test_a_hangup_of_the_callers_session_does_not_reach_commands(self):
        hang_up = command("hang.up", "kill -HUP -$(cat /run/group); echo survived")
        end = self.host(plugin("a", ["hang up"]), hang_up).shell(
            "setsid --wait sh -c 'echo $$ >/run/group; trap : HUP; bootweave & wait $!; wait $!'")
        self.assertEqual((["survived"], ["a"]), (end.command_output, end.succeeded))

    def test_an_empty_environment_is_enough(self):
        host = self.host(plugin("a", ["x"]), command("x", "true"))
        end = host.shell("exec env -i /usr/sbin/bootweave --init")
        self.assertEqual((0, ["a"]), (end.status, end.succeeded))


class KilledRunTest(SystemTest):
    """The program is killed while a command of its first plugin runs."""

    _KILL = UNTIL + DRIVER + """
        pid=$(driver)
        kill -9 $pid
        until_ sh -c "! kill -0 $pid"
        echo ran"""

    def _kill(self, after):
        return self.host(plugin("a", ["kill --plugin=a"]), plugin("b", ["next"]), command("kill", self._KILL),
                         command("next", "echo next")).shell(
                             UNTIL + "bootweave --plugin=a.json,b.json >/run/log; echo status $?;"
                             "until_ grep -q 'Sending command status' /var/log/bootweave-hostcli-stdout.log;"
                             + after)

    def test_its_command_runs_to_the_end_and_no_other_begins(self):
        end = self._kill("true")
        self.assertEqual((["ran"], ["a"]), (end.command_output, end.activated))
        self.assertEqual("status 137\n", end.stdout)
        self.assertEqual((WARNING, "Sending command status to bootweave failed"), end.complaints[-1])

    def test_the_executor_is_left_and_serves_the_next_run_which_stops_it(self):
        end = self._kill("bootweave --plugin=b.json; until_ sh -c '! pidof -q bootweave'")
        self.assertEqual((0, ["ran", "next"]), (end.status, end.command_output))
        self.assertEqual(["Launching Executor", "executing start plugin: b",
                          "Executor has been Successfully Stopped"], end.messages)

    def test_nothing_of_the_end_of_a_run_has_been_done(self):
        end = self._kill("ls /bootbank /run/corvane")
        self.assertEqual("status 137\n/bootbank:\n\n/run/corvane:\nbootweaveExecutor.sock\n", end.stdout)
