# SPDX-License-Identifier: Apache-2.0
"""Starting and stopping the host's init scripts: which ones, in which order, and what is left alone."""

import re

from harness import (ERROR, EXECUTOR_LOG, NOTICE, PLUGINS, UNTIL, WARNING, File, KernelRecord, SystemTest,
                     plugin)
from init_scripts import (ORDER, PROFILE, SCRIPTS, begun, init_scripts, lister, script, start_line, stop_line)

START = "--daemon=wait", "--method=start"
STOP = "--daemon=wait", "--method=stop"

_LOG_RELAY = "/usr/lib/corvane/logrelay/bin"



def _meet(name):
    """Lines that wait until another script has noted that it runs."""
    return UNTIL + f'until_ grep -qx "$action {name}" {ORDER}'


def _kernel(*texts):
    return [KernelRecord(NOTICE, f"bootweave: {text}") for text in texts]


class StartTest(SystemTest):
    def test_scripts_start_by_priority_as_a_number_whatever_the_lister_s_order(self):
        host = self.host(init_scripts(a=100, b=9, c=20, d=0))
        end = host.boot(*START)
        self.assertEqual((0, ["start d", "start b", "start c", "start a"]), (end.status, begun(end)))
        self.assertEqual([], end.complaints)

    def test_serially_scripts_of_one_priority_start_in_the_lister_s_order(self):
        end = self.host(init_scripts(c=20, z=10, a=20, m=10, b=20)).boot(*START)
        self.assertEqual(["start z", "start m", "start c", "start a", "start b"], begun(end))

    def test_each_start_is_told_to_the_log_and_the_kernel_log(self):
        end = self.host(init_scripts(a=10, b=20)).boot(*START)
        self.assertEqual(["executing start plugin: a", "a started.",
                          "executing start plugin: b", "b started."], end.messages)
        self.assertEqual([(NOTICE, message) for message in end.messages], end.said)
        self.assertEqual(_kernel("Activating Bootweave plugin a.", "Bootweave plugin a activated.",
                                 "Activating Bootweave plugin b.", "Bootweave plugin b activated."),
                         end.kernel)
        self.assertEqual(("", 0), (end.stderr, end.status))

    def test_in_parallel_scripts_of_one_priority_run_at_the_same_time(self):
        end = self.host(init_scripts(a=(10, _meet("b")), b=(10, _meet("a")))).boot(
            *START, "--parallel")
        self.assertEqual((["a", "b"], []), (sorted(end.succeeded), end.complaints))

    def test_in_parallel_a_script_starts_when_all_of_every_lower_priority_have_ended(self):
        slow = "sleep 0.2"
        names = dict(a=(10, slow), b=10, c=(20, slow), d=(20, slow), e=30)
        end = self.host(init_scripts(**names)).boot(*START, "--parallel")
        begins, ended = {}, set()
        for record in end.kernel:
            if found := re.fullmatch(r"bootweave: Activating Bootweave plugin (.*)\.", record.text):
                begins[found[1]] = set(ended)
            elif found := re.fullmatch(r"bootweave: Bootweave plugin (.*) activated\.", record.text):
                ended.add(found[1])
        self.assertEqual({"a", "b", "c", "d", "e"}, ended)
        self.assertEqual((set(), set()), (begins["a"], begins["b"] - {"a"}))
        self.assertLessEqual({"a", "b"}, begins["c"] & begins["d"])
        self.assertEqual({"a", "b", "c", "d"}, begins["e"])

    def test_a_priority_that_is_listed_late_still_comes_between_those_around_it(self):
        end = self.host(init_scripts(a=10, c=30, b=20, e=25)).boot(*START, "--parallel", "--randomize")
        self.assertEqual(["start a", "start b", "start e", "start c"], begun(end))

    def test_on_a_stateless_host_scripts_run_one_after_the_other(self):
        # Each leaves a mark while it runs, and none finds another's.
        alone = "mkdir /run/alone || exit 1; sleep 0.1; rmdir /run/alone"
        host = self.host(init_scripts(a=(10, alone), b=(10, alone), c=(10, alone)), {"/stateless.tgz": ""})
        end = host.boot(*START, "--parallel")
        self.assertEqual(["a", "b", "c"], end.succeeded)

    def test_tracing_tells_when_a_script_begins_and_how_long_it_took(self):
        end = self.host(init_scripts(a=10)).boot(*START, "--trace")
        self.assertEqual("starting execution of plugin: a", end.messages[0])
        self.assertRegex(end.messages[-1], r"completed execution of plugin: a \(took \d+ us\)")

    def test_a_script_that_starts_a_daemon_is_not_waited_for_longer_than_it_runs(self):
        daemon = "sleep 1000 & echo $! >/run/daemon"        # which keeps the script's streams open
        end = self.host(init_scripts(a=(10, daemon))).shell(
            f"bootweave {' '.join(START)} && kill -0 $(cat /run/daemon)", timeout=20)
        self.assertEqual((0, ["a"]), (end.status, end.succeeded))

    def test_the_boot_screen_is_told_which_service_starts(self):
        receive = ("import socket, sys; s = socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM); "
                   "s.bind('/run/notify'); open('/run/bound', 'w')\n"
                   "while True: print(s.recv(4096).decode(), flush=True)")
        end = self.host(init_scripts(a=10, b=20), {"/opt/receive.py": receive}).shell(
            UNTIL + "python3 /opt/receive.py >/run/told & until_ test -e /run/bound && "
            f"NOTIFY_SOCKET=/run/notify bootweave {' '.join(START)} && until_ grep -q ' b' /run/told")
        self.assertEqual((0, "STATUS=Starting service a\nSTATUS=Starting service b\n"),
                         (end.status, end.read("/run/told")))


class StopTest(SystemTest):
    def test_scripts_stop_in_the_reverse_order_of_their_priorities(self):
        end = self.host(init_scripts(a=100, b=9, c=20, d=0)).boot(*STOP)
        self.assertEqual((0, ["stop a", "stop c", "stop b", "stop d"]), (end.status, begun(end)))
        self.assertEqual([], end.complaints)

    def test_each_stop_is_told_to_the_log_and_the_kernel_log(self):
        end = self.host(init_scripts(a=10, b=20)).boot(*STOP)
        self.assertEqual(["executing stop for daemon b.", "b stopped.", "executing stop for daemon a.",
                          "a stopped."], end.messages)
        self.assertEqual([(NOTICE, message) for message in end.messages], end.said)
        self.assertEqual(_kernel("Deactivating Daemon b.", "Daemon b deactivated.", "Deactivating Daemon a.",
                                 "Daemon a deactivated."), end.kernel)
        self.assertEqual(("", 0), (end.stderr, end.status))

    def test_in_parallel_scripts_of_one_priority_stop_at_the_same_time(self):
        end = self.host(init_scripts(a=(10, _meet("b")), b=(10, _meet("a")), c=20)).boot(
            *STOP, "--parallel")
        self.assertEqual(("stop c", ["stop a", "stop b"], []),
                         (begun(end)[0], sorted(begun(end)[1:]), end.complaints))

    def test_in_parallel_a_script_stops_when_all_of_every_higher_priority_have_ended(self):
        slow = "sleep 0.2; echo ended $action >>/run/ended"
        end = self.host(init_scripts(a=(10, "[ $(wc -l </run/ended) = 3 ]"), b=(20, slow), c=(20, slow),
                                     d=(30, "[ ! -e /run/ended ]; " + slow))).boot(*STOP, "--parallel")
        self.assertEqual((["stop d", "stop a"], []), ([begun(end)[0], begun(end)[3]], end.complaints))
        self.assertIn((NOTICE, "a stopped."), end.said)

    def test_a_stop_that_fails_is_told_and_the_others_are_stopped_all_the_same(self):
        end = self.host(init_scripts(a=10, b=(20, "exit 1"), c=30)).boot(*STOP)
        reason = f"Execution of command: {stop_line('b')} failed with status: 1"
        self.assertEqual((0, [(WARNING, f"Bootweave failed to stop: b reason: {reason}")]),
                         (end.status, end.complaints))
        self.assertEqual(_kernel("Deactivating Daemon b.", f"Daemon b deactivation failed: {reason}"),
                         end.kernel[2:4])
        self.assertEqual(["stop c", "stop b", "stop a"], begun(end))

    def test_what_was_started_is_stopped(self):
        daemon = ("case $action in start) sleep 1000 & echo $! >/run/daemon ;; "
                  "stop) kill $(cat /run/daemon) ;; esac")
        end = self.host(init_scripts(a=(10, daemon))).shell(
            UNTIL + "gone() { ! kill -0 $(cat /run/daemon); }\n"
            f"bootweave {' '.join(START)} && ! gone && bootweave {' '.join(STOP)} && until_ gone")
        self.assertEqual((0, ["start a", "stop a"]), (end.status, begun(end)))


class ListTest(SystemTest):
    def _begun(self, text, *files, arguments=START, status=0):
        end = self.host({PROFILE: "block\n"}, lister(text, status), *files).boot(*arguments)
        self.assertEqual((0, []), (end.status, end.complaints))
        return begun(end)

    def test_the_two_services_that_the_boot_starts_itself_are_left_out(self):
        names = ["logrelayd", "obsvd", "a"]
        text = "".join(f"{SCRIPTS}/{name} 10\n" for name in names) + "/opt/obsvd 5\n"
        files = [script(name) for name in names] + [script("obsvd", directory="/opt")]
        self.assertEqual(["start a"], self._begun(text, *files))
        self.assertEqual(["stop a"], self._begun(text, *files, arguments=STOP))

    def test_only_their_whole_names_count(self):
        names = ["obsvd.sh", "obsv", "Obsvd", "logrelayd2", "xlogrelayd"]
        found = self._begun("".join(f"{SCRIPTS}/{name} 10\n" for name in names), *map(script, names))
        self.assertEqual([f"start {name}" for name in names], found)

    def test_no_other_denylist_counts(self):
        found = self._begun(f"{SCRIPTS}/a 10\n", script("a"), arguments=[*START, "--disable-plugins=a"])
        self.assertEqual(["start a"], found)

    def test_two_scripts_of_one_name_are_both_run(self):
        text = f"{SCRIPTS}/a 10\n/opt/a 20\n{SCRIPTS}/a 30\n"
        end = self.host({PROFILE: "block\n"}, lister(text), script("a"),
                        script("a", "echo opt", directory="/opt")).boot(*START)
        self.assertEqual((["start a"] * 3, ["a"] * 3, []), (begun(end), end.succeeded, end.complaints))

    def test_lines_that_do_not_hold_a_word_and_a_number_are_skipped(self):
        text = (f"\n   \n{SCRIPTS}/a\n{SCRIPTS}/a x10\n10 {SCRIPTS}/a\n{SCRIPTS}/a 99999999999\n"
                f"{SCRIPTS}/a on 10\n  {SCRIPTS}/b\t 20 and more\n{SCRIPTS}/c 30")
        self.assertEqual(["start b", "start c"], self._begun(text, *map(script, "abc")))

    def test_a_long_list_is_read_to_its_end(self):
        text = "x\n" * 50000 + f"{SCRIPTS}/a 10\n" + "y\n" * 50000 + f"{SCRIPTS}/b 20\n"
        self.assertEqual(["start a", "start b"], self._begun(text, *map(script, "ab")))

    def test_how_the_lister_ends_makes_no_difference(self):
        self.assertEqual(["start a"], self._begun(f"{SCRIPTS}/a 10\n", script("a"), status=3))

    def test_a_lister_that_is_killed_has_listed_what_it_has_listed(self):
        killed = {"/bin/chkconfig": File(f"#!/bin/sh\necho {SCRIPTS}/a 10\nkill -9 $$\n", 0o755)}
        self.assertEqual(["start a"], self._begun("", script("a"), killed))

    def test_an_empty_list_is_a_run_without_daemons(self):
        self.assertEqual([], self._begun(""))

    def test_a_host_without_a_lister_has_no_daemons_and_no_error(self):
        for options in (START, STOP):
            end = self.host({PROFILE: "block\n"}, setup="rm -f /bin/chkconfig").boot(*options)
            self.assertEqual((0, [], [], []), (end.status, end.said, end.log, end.kernel))
            self.assertIn("=== Daemon configuration info ===", end.read(PROFILE))

    def test_a_lister_that_may_not_be_executed_is_none(self):
        host = self.host(init_scripts(a=10), {"/bin/chkconfig": File("#!/bin/sh\necho x 1\n", 0o644)})
        end = host.boot(*START)
        self.assertEqual((0, [], []), (end.status, end.said, begun(end)))


class AloneTest(SystemTest):
    """What a boot has and a daemon-mode run has not."""

    _STORE = {f"/usr/lib/corvane/configstore/{name}": File(f"#!/bin/sh\necho {name} >>/run/store\n", 0o755)
              for name in ("end-auto-conf", "cleanup-boot-state")}
    _BOOT = {**_STORE, **plugin("p", ["x"], version=3, run_once=True, plugin_version="1"),
             f"{PLUGINS}/README": "",
             "/etc/corvane/bootweave/debug.conf": "malformed\nd:x:y:touch /run/debug\n",
             "/etc/syslog.conf": "",
             f"{_LOG_RELAY}/logrelayd": File("#!/bin/sh\nid >/run/early\n", 0o755),
             f"{_LOG_RELAY}/upgrade-syslog.conf.sh": File("#!/bin/sh\nid >/run/upgrade\n", 0o755)}

    def test_neither_the_executor_nor_the_store_nor_plugins_nor_records_are_touched(self):
        for options in (START, STOP):
            with self.subTest(options):
                end = self.host(init_scripts(a=10), self._BOOT).shell(
                    "sleep 1000 & echo $! >/run/corvane/logrelayd.pid; "
                    f"bootweave {' '.join(options)} && kill -0 $!")      # a reload would have ended it
                self.assertEqual((0, [], 1), (end.status, end.complaints, len(begun(end))))
                self.assertEqual({line.process for line in end.log},
                                 {message.process for message in end.syslog})   # one process, and no executor
                for path in ("/run/store", "/run/debug", "/run/early", "/run/upgrade",
                             "/bootbank/bootweav.gz", EXECUTOR_LOG):
                    self.assertIsNone(end.read(path), path)

    def test_a_socket_file_of_an_executor_is_not_in_the_way_and_left_alone(self):
        path = "/run/corvane/bootweaveExecutor.sock"
        bind = f"import socket; socket.socket(socket.AF_UNIX).bind('{path}')"
        end = self.host(init_scripts(a=10)).shell(
            f'python3 -c "{bind}" && bootweave {" ".join(START)} && test -S {path}')
        self.assertEqual((0, [], ["start a"]), (end.status, end.complaints, begun(end)))

    def test_an_own_plugin_directory_need_not_exist(self):
        end = self.host(init_scripts(a=10)).boot(*START, "--plugin-directory=/no/where")
        self.assertEqual((0, ["start a"]), (end.status, begun(end)))

    def test_barriers_of_priorities_are_never_missed_as_not_provided(self):
        end = self.host(init_scripts(a=10, b=20)).boot(*START, "--trace")
        self.assertEqual([], [message for message in end.messages if "barrier" in message])

    def test_a_start_leaves_the_error_of_one_script_to_that_script(self):
        end = self.host(init_scripts(a=10, b=(20, "exit 3"), c=30)).boot(*START)
        reason = f"Execution of command: {start_line('b')} failed with status: 3"
        self.assertEqual((0, ["start a", "start b", "start c"]), (end.status, begun(end)))
        self.assertEqual([(WARNING, f"Bootweave failed to start: b reason: {reason}"),
                          (ERROR, f"Method invocation failed: b->start() failed: {reason}")], end.complaints)
        self.assertEqual({"b": "Method invocation failed"}, end.failed)
