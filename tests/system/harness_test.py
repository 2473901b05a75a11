# SPDX-License-Identifier: Apache-2.0
"""The harness itself: what these cases show, all others rely on."""

import os

from harness import (BROKEN, TIMED_OUT, Directory, File, KernelRecord, Link, LogLine, SyslogMessage,
                     SystemTest, program)


class HarnessTest(SystemTest):
    def test_status_output_kernel_log_system_log_and_files_of_the_program_come_back(self):
        host = self.host(program(
            'echo "2026-11-15T15:04:56.123Z bootweave[417]: started with $*"\n'
            'echo plain\n'
            'echo problem >&2\n'
            'echo "<5>bootweave: Activating Bootweave plugin a." >/dev/kmsg\n'
            'echo "<5>bootweave: Bootweave plugin a activation failed: no luck" >>/dev/kmsg\n'
            'logger --tag bootweave --id=7 --priority daemon.err "to the log"\n'
            'echo kept >/var/log/own.log\n'
            'exit 7'))
        end = host.boot("--init", "a b")
        self.assertEqual(7, end.status)
        self.assertEqual([LogLine("2026-11-15T15:04:56.123Z", "bootweave", 417, "started with --init a b")],
                         end.log)
        self.assertEqual("plain", end.stdout.splitlines()[1])
        self.assertEqual("problem\n", end.stderr)
        self.assertEqual([KernelRecord(5, "bootweave: Activating Bootweave plugin a."),
                          KernelRecord(5, "bootweave: Bootweave plugin a activation failed: no luck")],
                         end.kernel)
        self.assertEqual(["a"], end.activated)
        self.assertEqual({"a": "no luck"}, end.failed)
        self.assertEqual([SyslogMessage(3, 3, "bootweave", 7, "to the log")], end.syslog)
        self.assertEqual("kept\n", end.read("/var/log/own.log"))
        self.assertIsNone(end.read("/var/log/dpkg.log"), "a file of the machine's that the host left alone")
        self.assertFalse(os.path.exists("/var/log/own.log"), "the machine has changed")

    def test_files_lie_on_the_host_as_given_and_belong_to_its_root(self):
        host = self.host({
            "/usr/lib/corvane/hostcli/a.b": File("text", 0o777),
            "/var/run/corvane/link": Link("/nowhere"),
            "/empty": Directory(0o700),
        }, setup="echo more >/etc/more")
        end = host.shell("stat -c '%n %U %a' /usr/lib/corvane/hostcli/a.b /empty; readlink /run/corvane/link;"
                         "cat /usr/lib/corvane/hostcli/a.b /etc/more")
        self.assertEqual("/usr/lib/corvane/hostcli/a.b root 755\n/empty root 700\n/nowhere\ntextmore\n",
                         end.stdout)

    def test_a_program_that_hangs_ends_with_all_its_children_and_its_results_are_kept(self):
        marker = f"86399.{os.getpid()}"
        host = self.host(program(f"setsid sleep {marker} & echo early >/var/log/early; sleep {marker}"))
        end = host.boot(timeout=1)
        self.assertEqual(TIMED_OUT, end.status)
        self.assertEqual("early\n", end.read("/var/log/early"))
        self.assertLess(end.seconds, 20)
        self.assertEqual([], [process for process in os.listdir("/proc") if process.isdigit()
                              and self._words_of(process) == ["sleep", marker]])

    def test_a_host_whose_set_up_fails_is_an_error_and_no_result(self):
        host = self.host(setup="exit 3")
        with self.assertRaisesRegex(RuntimeError, "set-up script .* failed with status 3"):
            host.shell("true")
        self.assertEqual(BROKEN, self.endings[0].status)

    @staticmethod
    def _words_of(process):
        try:
            with open(f"/proc/{process}/cmdline", encoding="utf-8", errors="replace") as file:
                return file.read().split("\0")[:-1]
        except OSError:
            return []
