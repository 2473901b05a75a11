# SPDX-License-Identifier: Apache-2.0
"""The program's log on standard output and in the system log, and hosts on which one is in trouble."""

import re

from harness import (ALERT, ERROR, EXECUTOR_LOG, NOTICE, UNTIL, WARNING, Directory, File, SystemTest, command,
                     not_provided, plugin)

_STORE = "/usr/lib/corvane/configstore"
_LINE = re.compile(r"\d{4}-\d\d-\d\dT\d\d:\d\d:\d\d\.\d{3}Z bootweave\[\d+\]: \S.*")

# Binds /dev/log, runs a command, and prints what came in when it is told to (by SIGUSR1) and at the end.
_DEAF_DAEMON = {"/opt/deaf": File("""#!/usr/bin/python3 -IS
import os, signal, socket, subprocess, sys
log = socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM)
log.bind("/dev/log")
log.setblocking(False)
def drain(*_):
    try:
        while True:
            sys.stderr.write(log.recv(1 << 16).decode().rstrip() + "\\n")
    except BlockingIOError:
        open("/run/drained", "w")
signal.signal(signal.SIGUSR1, drain)
open("/run/deaf.pid", "w").write(str(os.getpid()))
status = subprocess.run(sys.argv[1:]).returncode
drain()
sys.exit(status)
""", 0o755)}

# Takes /dev/log over, and leaves a process behind that writes what comes in to a file.
_LOG_DAEMON = {"/opt/log-daemon": File("""#!/usr/bin/python3 -IS
import os, socket, sys
log = socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM)
if os.path.exists("/dev/log"):
    os.unlink("/dev/log")
log.bind("/dev/log")
if os.fork():
    os._exit(0)
os.closerange(0, 3)
with open(sys.argv[1] + ".pid", "w") as file:
    file.write(str(os.getpid()))
with open(sys.argv[1], "wb", buffering=0) as file:
    while True:
        file.write(log.recv(1 << 16))
""", 0o755)}


def _failing(count):
    """A plugin whose start is this many lines in the log, and more in the system log."""
    return plugin("a", [f"no such --n={number}" for number in range(count)])


# Makes descriptor 4 a pipe that nobody reads any more.
_BREAK_PIPE = "mkfifo /run/pipe; exec 3<>/run/pipe 4>/run/pipe 3<&-"
# A run that writes no other file below /var/log.
_INVOKE = "--invoke", "--method=start", "--plugin=a.json"
_LOST = "Failed to recieve command status from Executor: Connection reset by peer"
_NO_LOG = WARNING, f"Failed opening log file {EXECUTOR_LOG}"


class StandardOutputTest(SystemTest):
    def test_each_message_is_one_stamped_line(self):
        end = self.host(plugin("a", ["no such", ""])).boot("--trace", "--init")
        for line in end.stdout.splitlines():
            self.assertRegex(line, _LINE)
        self.assertGreater(len(end.stdout.splitlines()), 8)

    def test_the_stamp_is_the_time_in_utc_whatever_the_time_zone(self):
        end = self.host().shell("date -u +%FT%T; TZ=XYZ-9 bootweave; date -u +%FT%T")
        before, *_, after = end.stdout.splitlines()
        self.assertGreater(len(end.log), 2)
        for line in end.log:
            self.assertLessEqual(before, line.time[:19])
            self.assertLessEqual(line.time[:19], after)

    def test_lines_come_at_once_and_in_order_with_what_children_print(self):
        end = self.host({f"{_STORE}/end-auto-conf": File("#!/bin/sh\necho child\n", 0o755),
                         f"{_STORE}/cleanup-boot-state": File("#!/bin/sh\nexit 1\n", 0o755)}
                        ).shell("echo before; bootweave; echo after")
        lines = [line.split("]: ")[-1] for line in end.stdout.splitlines()]
        self.assertEqual(["before", "Launching Executor", "Setting up Executor - Reset Requested",
                          "Executor has been Successfully Stopped", "child",
                          f"{_STORE}/cleanup-boot-state exited with status 1", "after"], lines)

    def test_many_workers_never_mix_their_lines(self):
        plugins = [plugin(f"p{number:02}", ["no such"] * 5) for number in range(40)]
        end = self.host(*plugins).boot("--parallel", "--trace")
        self.assertEqual([], [line for line in end.stdout.splitlines() if not _LINE.fullmatch(line)])
        self.assertEqual(200, end.messages.count("Executor failed executing hostcli command: no such"))

    def test_a_closed_pipe_costs_the_lines_and_not_the_boot(self):
        end = self.host(plugin("a", ["no such"])).shell(
            f"{_BREAK_PIPE}; bootweave --init >&4")
        self.assertEqual((0, ["a"], ""), (end.status, list(end.failed), end.stderr))
        self.assertIn((NOTICE, "Executor has been Successfully Stopped"), end.said)

    def test_a_pipe_whose_reader_leaves_does_not_kill_the_boot_even_if_it_was_told_to_care(self):
        end = self.host(plugin("a", ["no such"])).shell("{ bootweave; echo $? >/run/status; } | head -n 1")
        self.assertEqual(("0\n", 1), (end.read("/run/status"), len(end.log)))

    def test_a_full_file_system_costs_the_lines_and_not_the_boot(self):
        end = self.host(plugin("a")).shell("bootweave >/dev/full")
        self.assertEqual((0, ["a"]), (end.status, end.succeeded))

    def test_a_file_that_has_reached_its_limit_costs_the_lines_and_not_the_boot(self):
        end = self.host(plugin("a", ["no such"] * 50), plugin("b", ["x"]), command("x", "true"),
                        setup="mount --bind /dev/null /dev/kmsg").shell(
            "ulimit -f 1; exec bootweave --plugin=a.json,b.json >/run/log")
        self.assertEqual(0, end.status)
        self.assertIn((NOTICE, "executing start plugin: b"), end.said)
        self.assertIn((NOTICE, "Executor has been Successfully Stopped"), end.said)
        self.assertNotIn(_LOST, [message for _, message in end.said])

    def test_help_into_a_closed_pipe_is_no_crash(self):
        end = self.host().shell(f"{_BREAK_PIPE}; bootweave --help >&4")
        self.assertEqual(0, end.status)


class SystemLogTest(SystemTest):
    def test_every_line_of_standard_output_arrives_from_the_same_process(self):
        end = self.host(plugin("a", ["no such"])).boot()
        self.assertEqual([(line.process, line.message) for line in end.log],
                         [(entry.process, entry.message) for entry in end.syslog
                          if entry.process == end.log[0].process])
        self.assertEqual({(3, "bootweave")}, {(entry.facility, entry.name) for entry in end.syslog})

    def test_the_executor_logs_under_the_same_name_from_its_own_process(self):
        end = self.host(plugin("a", ["no such"])).boot()
        executor = {entry.process for entry in end.syslog} - {end.log[0].process}
        self.assertEqual(1, len(executor))
        self.assertEqual(end.executor_messages, [entry.message for entry in end.syslog
                                                 if entry.process in executor])

    def test_levels_2_3_and_5_are_error_warning_and_notice(self):
        end = self.host(plugin("a", ["no such"], requires=["up"])).boot()
        said = dict((message, level) for level, message in end.said if level != ALERT)
        self.assertEqual((ERROR, WARNING, NOTICE),
                         (said["Executor failed executing hostcli command: no such"],
                          said[not_provided("up", "a")],
                          said["Launching Executor"]))

    def test_a_host_without_a_log_daemon_boots_the_same(self):
        end = self.host(plugin("a", ["no such"]), syslog=False).boot("--init")
        self.assertEqual((0, ["a"], ""), (end.status, list(end.failed), end.stderr))
        self.assertIn("Executor has been Successfully Stopped", end.messages)

    def test_a_daemon_that_comes_in_mid_boot_gets_what_is_said_from_then_on(self):
        host = self.host(plugin("a", ["start log"], provides=["log"]), plugin("b", requires=["log"]),
                         command("start.log", "/opt/log-daemon /run/received"), _LOG_DAEMON, syslog=False)
        end = host.shell(UNTIL + "bootweave; until_ grep -q Successfully /run/received")
        self.assertEqual((0, ["a", "b"]), (end.status, end.succeeded))
        self.assertIn("executing start plugin: b", end.read("/run/received"))
        self.assertNotIn("executing start plugin: a", end.read("/run/received"))

    def test_a_daemon_that_was_started_again_gets_what_is_said_from_then_on(self):
        # What a daemon has not read is lost with it.
        restart = (UNTIL + "until_ grep -q 'start plugin: a' /run/first\n"
                   "kill $(cat /run/first.pid); /opt/log-daemon /run/second")
        host = self.host(plugin("a", ["restart log"], provides=["log"]), plugin("b", requires=["log"]),
                         command("restart.log", restart), _LOG_DAEMON, syslog=False)
        end = host.shell(UNTIL + "/opt/log-daemon /run/first; until_ test -s /run/first.pid; bootweave;"
                                 "until_ grep -q Successfully /run/second")
        self.assertEqual((0, ["a", "b"]), (end.status, end.succeeded))
        self.assertIn("executing start plugin: a", end.read("/run/first"))
        self.assertIn("executing start plugin: b", end.read("/run/second"))

    def test_a_daemon_that_never_reads_costs_seconds_and_not_the_boot(self):
        end = self.host(_failing(400), _DEAF_DAEMON, syslog=False).run("/opt/deaf", "bootweave", "--init")
        self.assertEqual((0, ["a"]), (end.status, list(end.failed)))
        self.assertEqual(400, len([message for message in end.messages if "failed executing" in message]))
        self.assertLess(end.seconds, 30)

    def test_how_many_copies_were_dropped_is_logged_when_the_daemon_reads_again(self):
        drain = UNTIL + "kill -USR1 $(cat /run/deaf.pid); until_ test -e /run/drained"
        end = self.host(_failing(400), command("drain", drain), plugin("b", ["drain"]), _DEAF_DAEMON,
                        syslog=False).run("/opt/deaf", "bootweave", "--plugin=a.json,b.json")
        self.assertEqual((0, ["b"]), (end.status, end.succeeded))
        driver = end.log[0].process
        received = [line.split(f"bootweave[{driver}]: ")[1] for line in end.stderr.splitlines()
                    if f"bootweave[{driver}]: " in line]
        counts = [re.fullmatch("Messages not sent to the system log, its daemon reads too slowly: (.*)", line)
                  for line in received]
        dropped = sum(int(count[1]) for count in counts if count)
        self.assertGreater(dropped, 0)
        # Every message has arrived or is counted, and the notices are on standard output, too.
        self.assertEqual(len(end.log), len(received) + dropped)
        self.assertRegex(end.stderr, r"<28>\S+ +\d+ \S+ bootweave\[\d+\]: Messages not sent")

    def test_a_daemon_that_listens_on_a_stream_socket_gets_each_message(self):
        receive = """import os, socket
log = socket.socket(socket.AF_UNIX, socket.SOCK_STREAM)
log.bind("/dev/log")
log.listen(100)
if os.fork() == 0:
    os.closerange(0, 3)
    with open("/run/received", "wb", buffering=0) as file:
        while True:
            connection = log.accept()[0]
            while data := connection.recv(1 << 16):
                file.write(data.replace(b"\\0", b"|"))
"""
        end = self.host(plugin("a"), {"/opt/receive": receive}, syslog=False).shell(
            UNTIL + "python3 -IS /opt/receive; bootweave; until_ grep -q Successfully /run/received")
        self.assertEqual(0, end.status)
        self.assertRegex(end.read("/run/received"),
                         r"<29>\S+ +\d+ \S+ bootweave\[\d+\]: Launching Executor\n?\|")


class ExecutorLogTest(SystemTest):
    def test_the_log_is_made_for_all_to_read_and_its_owner_to_write(self):
        end = self.host(command("x", f"stat -c '%a %U' {EXECUTOR_LOG}"), plugin("a", ["x"])).boot()
        self.assertEqual(["644 root"], end.command_output)

    def test_an_earlier_log_is_kept_and_added_to(self):
        end = self.host({EXECUTOR_LOG: "before\n"}, plugin("a", ["x"]), command("x", "echo now")).boot()
        self.assertEqual(["before", "now"], end.command_output)

    def test_without_a_place_for_the_log_the_commands_print_where_the_program_does(self):
        end = self.host({EXECUTOR_LOG: Directory()}, plugin("a", ["x"]),
                        command("x", "echo seen; readlink /proc/self/fd/0")).boot()
        self.assertEqual((0, [_NO_LOG]), (end.status, end.complaints))
        self.assertEqual(["seen", "/dev/null"],
                         [line for line in end.stdout.splitlines() if not _LINE.fullmatch(line)])
        self.assertIn("Executor Reset - polling for commands", end.messages)

    def test_a_missing_directory_for_the_log_is_one_line(self):
        end = self.host(plugin("a", ["x"]), command("x", "true"), setup="rm -rf /var/log").boot(*_INVOKE)
        self.assertEqual((0, [_NO_LOG]), (end.status, end.complaints))

    def test_a_read_only_log_directory_is_one_line(self):
        end = self.host(plugin("a", ["x"]), command("x", "true"),
                        setup="mount -t tmpfs -o ro none /var/log").boot(*_INVOKE)
        self.assertEqual((0, ["a"], [_NO_LOG]),
                         (end.status, end.succeeded, end.complaints))

    def test_a_full_log_directory_costs_the_log_and_not_the_boot(self):
        fill = "mount -t tmpfs -o size=16k none /var/log; cat /dev/zero >/var/log/full || true"
        end = self.host(plugin("a", ["x", "no such"]), command("x", "echo lost || echo good >/run/x"),
                        setup=fill).boot()
        self.assertEqual((0, ["a"], "good\n"), (end.status, list(end.failed), end.read("/run/x")))
        self.assertIn((ERROR, "execution of 'no such' failed : unknown command: no such"), end.complaints)
        self.assertIn((NOTICE, "Executor has been Successfully Stopped"), end.said)

    def test_a_fifo_in_the_logs_place_does_not_hold_up_the_boot(self):
        end = self.host(plugin("a", ["x"]), command("x", "true"),
                        setup=f"mkfifo {EXECUTOR_LOG}").boot(timeout=10)
        self.assertEqual((0, ["a"], [_NO_LOG]),
                         (end.status, end.succeeded, end.complaints))


class KernelLogTest(SystemTest):
    """A kernel log that cannot be written makes an error in the system log of each record."""

    def _check(self, reason, setup):
        end = self.host(plugin("a"), setup=setup).boot()
        self.assertEqual((0, []), (end.status, end.kernel))
        failure = (ERROR, f"Exception occurred while logging msg: {reason}")
        self.assertEqual([failure, (ERROR, "Activating Bootweave plugin a."),
                          failure, (ERROR, "Bootweave plugin a activated.")], end.complaints)
        self.assertNotIn("Activating", end.stdout)

    def test_a_missing_node_is_told_to_the_system_log(self):
        self._check("No such file or directory", "umount /dev/kmsg; rm /dev/kmsg")

    def test_a_full_node_is_told_to_the_system_log(self):
        self._check("No space left on device", "mount --bind /dev/full /dev/kmsg")

    def test_a_directory_in_the_nodes_place_is_told_to_the_system_log(self):
        self._check("Is a directory", "umount /dev/kmsg; rm /dev/kmsg; mkdir /dev/kmsg")

    def test_each_record_is_one_write_and_ends_in_one_newline(self):
        end = self.host(*[plugin(f"p{number:03}") for number in range(100)]).boot("--parallel")
        records = end.read("kmsg").split("\n")
        self.assertEqual((201, ""), (len(records), records[-1]))
        pattern = r"<5>bootweave: (Activating Bootweave plugin p\d{3}\.|Bootweave plugin p\d{3} activated\.)"
        self.assertEqual([], [record for record in records[:-1] if not re.fullmatch(pattern, record)])

    def test_a_record_that_the_kernel_would_refuse_is_cut(self):
        end = self.host(plugin("a", requires=["x" * 2000])).boot()
        alert = end.read("kmsg").split("\n")[0]
        self.assertEqual((899, "xxx..."), (len(alert), alert[-6:]))
        self.assertRegex(alert, '<1>bootweave: Bootweave dependency error: Initialization barrier "xxx')
