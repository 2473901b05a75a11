# SPDX-License-Identifier: Apache-2.0
"""The system-log daemon and the event daemon, which a boot in init mode starts before anything else."""

from harness import ERROR, UNTIL, WARNING, Directory, File, SystemTest, command, plugin
from probe import HOSTILE_CALLER, hostile_caller, probe, report

_LOGRELAYD = "/usr/lib/corvane/logrelay/bin/logrelayd"
_OBSVD = "/etc/init.d/obsvd"


# What the end of the boot says where no log daemon has left its process id.
_NO_DAEMON = (WARNING, "unable to open mantlesyslogd pid file.")


def _service(path, script="true"):
    return {path: File(f"#!/bin/sh\n{script}\n", 0o755)}


def _failure(path, reason):
    return ERROR, f"execve({path}) failure: {reason}"


class EarlyServicesTest(SystemTest):
    def test_each_gets_its_own_path_and_its_one_argument(self):
        end = self.host(probe(_LOGRELAYD), probe(_OBSVD)).boot("--init")
        first, second = report(end, "logrelayd"), report(end, "obsvd")
        self.assertEqual((_LOGRELAYD, ["-i"]), (first.name, first.arguments))
        self.assertEqual((_OBSVD, ["start"]), (second.name, second.arguments))

    def test_they_run_one_after_the_other_and_before_the_executor_is_launched(self):
        log = "/run/order"
        note = f'echo "$0 $(ls /run/corvane)" >>{log}'      # and no control socket yet
        end = self.host(_service(_LOGRELAYD, f"sleep 0.2; {note}"), _service(_OBSVD, note)).boot("--init")
        self.assertEqual(f"{_LOGRELAYD} \n{_OBSVD} \n", end.read(log))
        self.assertEqual("Launching Executor", end.messages[0])

    def test_no_other_mode_starts_them(self):
        host = self.host(probe(_LOGRELAYD), probe(_OBSVD), plugin("a"))
        for words in ((), ("--invoke", "--method=start", "--plugin=a.json"), ("--parallel",)):
            with self.subTest(words):
                end = host.boot(*words)
                self.assertEqual(["a"], end.succeeded)
                self.assertIsNone(end.read("/run/report-logrelayd"))
                self.assertIsNone(end.read("/run/report-obsvd"))

    def test_init_and_invoke_together_start_them(self):
        host = self.host(probe(_LOGRELAYD), probe(_OBSVD), plugin("a"))
        end = host.boot("--invoke", "--init", "--method=start", "--plugin=a.json")
        self.assertEqual(["-i"], report(end, "logrelayd").arguments)
        self.assertEqual(["start"], report(end, "obsvd").arguments)

    def test_all_their_streams_are_the_null_device_and_nothing_else_is_open(self):
        end = self.host(hostile_caller(), probe(_LOGRELAYD), probe(_OBSVD)).run(
            HOSTILE_CALLER, "/usr/sbin/bootweave", "--init")
        for name in "logrelayd", "obsvd":
            found = report(end, name)
            self.assertEqual((["/dev/null"] * 3, ["0", "1", "2"]), (found.streams, found.descriptors))

    def test_they_start_with_no_signal_blocked_or_ignored_whatever_the_caller_did(self):
        end = self.host(hostile_caller(), probe(_LOGRELAYD), probe(_OBSVD)).run(
            HOSTILE_CALLER, "/usr/sbin/bootweave", "--init")
        for name in "logrelayd", "obsvd":
            found = report(end, name)
            self.assertEqual((0, 0), (found.blocked, found.ignored), name)

    def test_they_have_the_programs_environment_and_working_directory(self):
        end = self.host(probe(_LOGRELAYD), probe(_OBSVD)).shell(
            "cd /usr/lib; env -i A=1 'B=two words' PATH=/usr/bin:/usr/sbin /usr/sbin/bootweave --init")
        for name in "logrelayd", "obsvd":
            found = report(end, name)
            self.assertEqual(["A=1", "B=two words", "PATH=/usr/bin:/usr/sbin"], sorted(found.variables))
            self.assertEqual("/usr/lib", found.directory)

    def test_what_they_print_is_not_seen(self):
        end = self.host(_service(_LOGRELAYD, "echo noise; echo noise >&2"), _service(_OBSVD)).boot("--init")
        self.assertNotIn("noise", end.stdout + end.stderr)

    def test_how_they_end_makes_no_difference(self):
        host = self.host(_service(_LOGRELAYD, "exit 3"), _service(_OBSVD, "kill -9 $$"), plugin("a"))
        end = host.boot("--init")
        self.assertEqual((0, ["a"], [_NO_DAEMON]), (end.status, end.succeeded, end.complaints))

    def test_one_that_leaves_a_daemon_behind_holds_up_nothing(self):
        end = self.host(_service(_LOGRELAYD, "(trap '' HUP; exec sleep 1000) &"), _service(_OBSVD),
                        plugin("a")).boot("--init", timeout=20)
        self.assertEqual((0, ["a"]), (end.status, end.succeeded))

    def test_a_daemon_of_theirs_lives_on_after_the_boot(self):
        daemon = "setsid sh -c 'echo $$ >/run/daemon; exec sleep 1000' & "
        end = self.host(_service(_LOGRELAYD, daemon), _service(_OBSVD)).shell(
            UNTIL + "bootweave --init && until_ test -s /run/daemon && kill -0 $(cat /run/daemon)")
        self.assertEqual((0, ""), (end.status, end.stderr))


class MissingServiceTest(SystemTest):
    """The child that cannot execute a service says so; the boot goes on."""

    def _check(self, reason, logrelayd, **options):
        end = self.host(logrelayd, _service(_OBSVD), plugin("a"), **options).boot("--init")
        self.assertEqual((0, ["a"], [_failure(_LOGRELAYD, reason), _NO_DAEMON]),
                         (end.status, end.succeeded, end.complaints))
        return end

    def test_a_missing_service_is_one_line_in_the_system_log(self):
        end = self._check("No such file or directory", {})
        self.assertNotIn("execve", end.stdout)

    def test_a_service_that_may_not_be_executed_is_one_line(self):
        self._check("Permission denied", {_LOGRELAYD: "#!/bin/sh\n"})

    def test_a_service_that_is_a_directory_is_one_line(self):
        self._check("Permission denied", {_LOGRELAYD: Directory()})

    def test_a_service_that_is_no_program_is_one_line(self):
        self._check("Exec format error", {_LOGRELAYD: File("no program\n", 0o755)})

    def test_a_service_whose_interpreter_is_missing_is_one_line(self):
        self._check("No such file or directory", {_LOGRELAYD: File("#!/no/such/shell\n", 0o755)})

    def test_the_line_comes_from_a_process_of_its_own(self):
        end = self.host(_service(_OBSVD)).boot("--init")
        failed = [entry.process for entry in end.syslog if entry.message.startswith("execve")]
        self.assertEqual(1, len(failed))
        self.assertNotIn(failed[0], [line.process for line in end.log])

    def test_a_boot_without_services_and_plugins_ends_well(self):
        end = self.host(plugin("a", ["x"]), command("x", "true")).boot("--init")
        self.assertEqual((0, [_failure(_LOGRELAYD, "No such file or directory"),
                              _failure(_OBSVD, "No such file or directory"), _NO_DAEMON]),
                         (end.status, end.complaints))
