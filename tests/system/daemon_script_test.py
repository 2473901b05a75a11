# SPDX-License-Identifier: Apache-2.0
"""How one init script is run: what is handed to it, how long it is waited for, and how it fails."""

import os
import secrets

from harness import ERROR, NOTICE, UNTIL, WARNING, Directory, File, SystemTest
from init_scripts import PROFILE, SCRIPTS, begun, init_scripts, lister, start_line, stop_line
from probe import HOSTILE_CALLER, hostile_caller, probe, report

_WAIT = "--daemon=wait", "--method=start"
_A = f"{SCRIPTS}/a"

# Leaves a sign when it is over, much later.
_LONG = "sleep 5; touch /run/over"


def _seconds(line):
    """The time of day of a line of the log."""
    hours, minutes, seconds = line.time[11:-1].split(":")
    return int(hours) * 3600 + int(minutes) * 60 + float(seconds)


class FailureTest(SystemTest):
    def _check_start(self, reason, *files, arguments=_WAIT):
        """What is said about a script that fails to start."""
        end = self.host(init_scripts(a=10), *files).boot(*arguments)
        self.assertEqual([(WARNING, f"Bootweave failed to start: a reason: {reason}"),
                          (ERROR, f"Method invocation failed: a->start() failed: {reason}")], end.complaints)
        self.assertEqual((0, {"a": "Method invocation failed"}), (end.status, end.failed))
        return end

    def _check_stop(self, reason, *files):
        end = self.host(init_scripts(a=10), *files).boot("--daemon=wait", "--method=stop")
        self.assertEqual((0, [(WARNING, f"Bootweave failed to stop: a reason: {reason}")]),
                         (end.status, end.complaints))
        self.assertEqual(["bootweave: Deactivating Daemon a.",
                          f"bootweave: Daemon a deactivation failed: {reason}"],
                         [record.text for record in end.kernel])

    def _check(self, how, *files):
        self._check_start(f"Execution of command: {start_line('a')} failed {how}", *files)
        self._check_stop(f"Execution of command: {stop_line('a')} failed {how}", *files)

    def _check_call(self, reason, *files):
        self._check_start(f"failed to ForkExec '{start_line('a')}' : {reason}", *files)
        self._check_stop(f"failed to ForkExec '{stop_line('a')}' : {reason}", *files)

    def test_a_status_other_than_0_fails(self):
        for status in (1, 3, 127, 255):
            with self.subTest(status):
                self._check(f"with status: {status}", {_A: File(f"#!/bin/sh\nexit {status}\n", 0o755)})

    def test_an_end_by_a_signal_fails(self):
        for number in (9, 11, 15):
            with self.subTest(number):
                self._check(f"with signal: {number}", {_A: File(f"#!/bin/sh\nkill -{number} $$\n", 0o755)})

    def test_a_script_that_fails_in_nowait_mode_within_the_budget_fails_all_the_same(self):
        for mode in ("--daemon", "--daemon=nowait", "--daemon=foo"):
            self._check_start(f"Execution of command: {start_line('a')} failed with status: 3",
                              {_A: File("#!/bin/sh\nexit 3\n", 0o755)}, arguments=(mode, "--method=start"))

    def test_a_script_that_is_not_there_is_a_failure_of_the_call(self):
        for mode in ("--daemon=wait", "--daemon"):
            end = self.host(lister(f"{_A} 10\n"), {PROFILE: "block\n"}).boot(mode, "--method=start")
            reason = f"failed to ForkExec '{start_line('a')}' : No such file or directory"
            self.assertEqual((WARNING, f"Bootweave failed to start: a reason: {reason}"), end.complaints[0])

    def test_a_script_that_may_not_be_executed_is_a_failure_of_the_call(self):
        self._check_call("Permission denied", {_A: File("#!/bin/sh\n", 0o644)})

    def test_what_is_no_program_is_a_failure_of_the_call_and_no_shell_stands_in(self):
        self._check_call("Exec format error", {_A: File("touch /run/ran\n", 0o755)})

    def test_an_interpreter_that_is_not_there_is_a_failure_of_the_call(self):
        self._check_call("No such file or directory", {_A: File("#!/no/shell\n", 0o755)})

    def test_a_directory_in_its_place_is_a_failure_of_the_call(self):
        end = self.host(lister(f"{_A} 10\n"), {PROFILE: "block\n", _A: Directory()}).boot(*_WAIT)
        reason = f"failed to ForkExec '{start_line('a')}' : Permission denied"
        self.assertEqual((WARNING, f"Bootweave failed to start: a reason: {reason}"), end.complaints[0])


class TimeTest(SystemTest):
    """Real time passes here: it is the point."""

    @staticmethod
    def _waited(end):
        """Seconds between the first two lines of the log: a script's beginning and its outcome."""
        return (_seconds(end.log[1]) - _seconds(end.log[0])) % 86400

    def test_in_wait_mode_a_script_that_takes_too_long_has_failed_and_runs_on(self):
        end = self.host(init_scripts(a=(10, _LONG), b=20)).shell(
            UNTIL + f"bootweave {' '.join(_WAIT)} --daemon-wait-timeout=1; test ! -e /run/over && "
            "until_ test -e /run/over")
        reason = f"Execution of command: '{start_line('a')}' timed out."
        self.assertEqual((0, [(WARNING, f"Bootweave failed to start: a reason: {reason}"),
                              (ERROR, f"Method invocation failed: a->start() failed: {reason}")]),
                         (end.status, end.complaints))
        self.assertEqual(["start a", "start b"], begun(end))
        self.assertGreaterEqual(self._waited(end), 0.95)

    def test_in_wait_mode_a_stop_that_takes_too_long_has_failed(self):
        end = self.host(init_scripts(a=10, b=(20, _LONG))).boot(
            "--daemon=wait", "--method=stop", "--daemon-wait-timeout=1")
        reason = f"Execution of command: '{stop_line('b')}' timed out."
        self.assertEqual((0, [(WARNING, f"Bootweave failed to stop: b reason: {reason}")]),
                         (end.status, end.complaints))
        self.assertEqual(["stop b", "stop a"], begun(end))
        self.assertEqual(f"bootweave: Daemon b deactivation failed: {reason}", end.kernel[1].text)

    def test_in_nowait_mode_a_script_counts_as_started_after_ten_seconds(self):
        end = self.host(init_scripts(a=(10, "sleep 12; touch /run/over; exit 3"), b=20)).shell(
            UNTIL + "bootweave --daemon --method=start && test ! -e /run/over && until_ test -e /run/over")
        self.assertEqual((0, [], ["a", "b"]), (end.status, end.complaints, end.succeeded))
        self.assertEqual("a started.", end.log[1].message)
        self.assertGreaterEqual(self._waited(end), 9.95)

    def test_in_nowait_mode_the_time_out_makes_no_difference(self):
        end = self.host(init_scripts(a=(10, "sleep 1.5"))).boot(
            "--daemon=nowait", "--method=start", "--daemon-wait-timeout=1")
        self.assertEqual(([], ["a"]), (end.complaints, end.succeeded))
        self.assertGreaterEqual(self._waited(end), 1.45)

    def test_no_time_at_all_fails_at_once(self):
        end = self.host(init_scripts(a=10)).boot(*_WAIT, "--daemon-wait-timeout=0")
        self.assertEqual((WARNING, "Bootweave failed to start: a reason: Execution of command: "
                                   f"'{start_line('a')}' timed out."), end.complaints[0])

    def test_the_longest_time_is_no_time_out_at_once(self):
        for timeout in ("-1", "4294967295"):
            with self.subTest(timeout):
                end = self.host(init_scripts(a=(10, "sleep 0.3; touch /run/over"))).shell(
                    f"bootweave {' '.join(_WAIT)} --daemon-wait-timeout={timeout} && test -e /run/over")
                self.assertEqual((0, ["a"]), (end.status, end.succeeded))


class HandedOnTest(SystemTest):
    def _probed(self, *arguments, files=(), setup=None, syslog=True, run=("/usr/sbin/bootweave",)):
        host = self.host(init_scripts(a=10), probe(_A), *files, setup=setup, syslog=syslog)
        return report(host.run(*run, *arguments), "a")

    def test_a_start_has_the_platforms_directive_and_the_action_where_no_groups_are(self):
        found = self._probed(*_WAIT)
        self.assertEqual((_A, ["++group=init/a", "start"]), (found.name, found.arguments))

    def test_a_stop_has_the_action_only(self):
        found = self._probed("--daemon=wait", "--method=stop")
        self.assertEqual((_A, ["stop"]), (found.name, found.arguments))

    def test_its_streams_are_the_null_device_where_nothing_can_be_written_to_the_log(self):
        self.assertEqual(["/dev/null"] * 3, self._probed(*_WAIT).streams)       # a socket cannot be opened
        self.assertEqual(["/dev/null"] * 3, self._probed(*_WAIT, syslog=False).streams)

    def test_what_it_has_to_complain_goes_to_the_log_where_that_can_be_opened(self):
        found = self._probed(*_WAIT, syslog=False, setup="touch /dev/log")
        self.assertEqual(["/dev/null", "/dev/null", "/dev/log"], found.streams)

    def test_a_fifo_in_the_logs_place_that_nobody_reads_holds_nothing_up(self):
        host = self.host(init_scripts(a=10), probe(_A), syslog=False, setup="rm -f /dev/log; mkfifo /dev/log")
        end = host.boot(*_WAIT, timeout=20)
        self.assertEqual((0, ["a"]), (end.status, end.succeeded))
        self.assertEqual(["/dev/null"] * 3, report(end, "a").streams)

    def test_a_fifo_in_the_logs_place_that_is_read_blocks_who_writes_to_it_as_any_file_does(self):
        script = probe(_A, "grep flags: /proc/self/fdinfo/2 >/run/flags")
        host = self.host(init_scripts(a=10), script, syslog=False, setup="rm -f /dev/log; mkfifo /dev/log")
        end = host.shell(f"exec 9<>/dev/log; exec bootweave {' '.join(_WAIT)}", timeout=20)
        self.assertEqual(["/dev/null", "/dev/null", "/dev/log"], report(end, "a").streams)
        self.assertEqual(0, int(end.read("/run/flags").split()[1], 8) & os.O_NONBLOCK)

    def test_nothing_else_is_open_whatever_the_caller_left_open(self):
        found = self._probed(*_WAIT, files=[hostile_caller()], run=(HOSTILE_CALLER, "/usr/sbin/bootweave"))
        self.assertEqual(["0", "1", "2"], found.descriptors)

    def test_no_signal_is_blocked_or_ignored_whatever_the_caller_did(self):
        found = self._probed(*_WAIT, files=[hostile_caller()], run=(HOSTILE_CALLER, "/usr/sbin/bootweave"))
        self.assertEqual((0, 0), (found.blocked, found.ignored))

    def test_the_lister_too_has_nothing_of_what_the_caller_left_open_blocked_or_ignored(self):
        host = self.host(init_scripts(a=10), probe("/bin/chkconfig", f"echo {_A} 10"), hostile_caller())
        end = host.run(HOSTILE_CALLER, "/usr/sbin/bootweave", *_WAIT)
        found = report(end, "chkconfig")
        self.assertEqual((["0", "1", "2"], 0, 0), (found.descriptors, found.blocked, found.ignored))
        self.assertEqual((["-p"], ["a"]), (found.arguments, end.succeeded))

    def test_it_works_in_the_root_directory_and_with_the_programs_environment(self):
        host = self.host(init_scripts(a=10), probe(_A))
        end = host.shell(f"cd /usr; env -i A=1 PATH=/usr/bin:/bin /usr/sbin/bootweave {' '.join(_WAIT)}")
        found = report(end, "a")
        self.assertEqual(("/", ["A=1", "PATH=/usr/bin:/bin"]), (found.directory, sorted(found.variables)))

    def test_without_a_null_device_it_gets_the_root_and_the_log_says_so(self):
        end = self.host(init_scripts(a=10), probe(_A)).shell(
            f"umount /dev/null; rm -f /dev/null && bootweave {' '.join(_WAIT)}")
        self.assertEqual((0, [(WARNING, "opening /dev/null failed")]), (end.status, end.complaints))
        self.assertEqual(["/"] * 3, report(end, "a").streams)

    def test_a_name_that_a_shell_would_read_is_only_a_name(self):
        name = "a;touch$IFS'x&`id`"
        host = self.host(lister(f"{SCRIPTS}/{name} 10\n"), {PROFILE: "block\n"}, probe(f"{SCRIPTS}/{name}"))
        end = host.boot(*_WAIT)
        self.assertEqual([f"++group=init/{name}", "start"], report(end, name).arguments)
        self.assertEqual((0, [name], []), (end.status, end.succeeded, end.complaints))


# Gives the rest of the script a hierarchy of control groups that is a small part of the machine's own, and
# takes all of it away at the end. Ends with 77 where there are none.
_WITH_GROUPS = UNTIL + """
mkdir -p /mnt/groups
mount -t cgroup2 none /mnt/groups 2>/run/reason || { cat /run/reason; exit 77; }
place=/mnt/groups$(sed -n 's/^0:://p' /proc/self/cgroup)
own=$place/bootweave-test-%(token)s
mkdir "$own" 2>/run/reason || { cat /run/reason; exit 77; }
clean_up() {
    echo $$ >"$place/cgroup.procs"
    for directory in $(find "$own" -depth -type d); do
        until_ rmdir "$directory"
    done
}
trap clean_up EXIT
echo $$ >"$own/cgroup.procs" || exit 77
unshare --cgroup sh -c 'mount -t cgroup2 %(options)s none /sys/fs/cgroup && %(command)s'
"""

_NO_GROUPS = 77

_NOTE_GROUP = 'echo "$action $# $(sed -n s/^0:://p /proc/self/cgroup)" >>/run/group'


class ControlGroupTest(SystemTest):
    def _run(self, *commands, scripts, options=""):
        command = " && ".join(f"bootweave --daemon=wait --method={method}" for method in commands)
        host = self.host(init_scripts(**scripts))
        end = host.shell(_WITH_GROUPS % {"token": f"{os.getpid()}-{secrets.token_hex(4)}", "command": command,
                                         "options": options})
        if end.status == _NO_GROUPS:
            self.skipTest(f"no control groups to be had here: {end.stdout.strip()}")
        self.assertEqual(0, end.status)
        return end

    def test_a_script_starts_in_the_group_of_its_name_without_the_directive(self):
        end = self._run("start", scripts={"a": (10, _NOTE_GROUP), "b": (20, _NOTE_GROUP)})
        self.assertEqual("start 1 /init/a\nstart 1 /init/b\n", end.read("/run/group"))
        self.assertEqual([], end.complaints)

    def test_a_script_stops_in_the_programs_own_group(self):
        end = self._run("start", "stop", scripts={"a": (10, _NOTE_GROUP)})
        self.assertEqual("start 1 /init/a\nstop 1 /\n", end.read("/run/group"))

    def test_a_daemon_stays_in_the_group_of_its_script(self):
        # It looks when the script that has started it is long gone.
        daemon = "sh -c 'sleep 0.2; sed -n s/^0:://p /proc/self/cgroup >/run/group' &"
        end = self._run("start", scripts={"a": (10, daemon)})
        self.assertEqual("/init/a\n", end.read("/run/group"))

    def test_a_group_that_is_there_already_is_used(self):
        end = self._run("start", "start", scripts={"a": (10, _NOTE_GROUP)})
        self.assertEqual("start 1 /init/a\n" * 2, end.read("/run/group"))

    def test_where_no_group_can_be_made_the_directive_is_handed_on(self):
        end = self._run("start", scripts={"a": (10, _NOTE_GROUP)}, options="-o ro")
        self.assertEqual("start 2 /\n", end.read("/run/group"))
        self.assertEqual(([], [(NOTICE, "a started.")]), (end.complaints, end.said[-1:]))
