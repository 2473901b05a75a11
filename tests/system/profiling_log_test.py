# SPDX-License-Identifier: Apache-2.0
"""The profile that a run leaves: its blocks, what they say, and where it cannot be written."""

import datetime
import re

from harness import ERROR, EXECUTOR_LOG, NOTICE, PLUGINS, WARNING, File, SystemTest, command, plugin
from init_scripts import PROFILE, init_scripts

_STAMP = r"(\d{4}-\d\d-\d\d \d\d:\d\d:\d\d\.\d{6})"
_ENTRY = re.compile(rf"\[{_STAMP} - {_STAMP}\] (sysboot|daemon): (.*)")
_NEVER = "1970-01-01 00:00:00.000000"

_LIST = "ls -A /var/log | grep sysboot"

_START, _STOP = ("--daemon=wait", "--method=start"), ("--daemon=wait", "--method=stop")


def _settings(verbose=0, parallel=0, randomize=0, interactive=0, seed=r"\d{10}"):
    return (rf" Verbose: {verbose}\n Parallel: {parallel}\n Randomize: {randomize}\n"
            rf" Interactive Mode: {interactive}\n Random Seed: {seed}\n")


def _boot_block(names, **settings):
    entries = "".join(rf"\[{_STAMP} - {_STAMP}\] sysboot: {re.escape(name)}\n" for name in names)
    return (rf"Mantle Initialization Time: \d+000000\n{entries}=== Bootweave configuration info ===\n"
            rf" Start: {_STAMP}\n End: {_STAMP}\n" + _settings(**settings))


def _daemon_block(names, **settings):
    entries = "".join(rf"\[{_STAMP} - {_STAMP}\] daemon: {re.escape(name)}\n" for name in names)
    return (rf"{entries}=== Daemon configuration info ===\n"
            rf" Start Daemon: {_STAMP}\n End Daemon: {_STAMP}\n" + _settings(**settings))


def _entries(text):
    """(name, start, end) of each plugin's line, the stamps as texts."""
    return [(found[4], found[1], found[2]) for found in map(_ENTRY.fullmatch, text.splitlines()) if found]


class BootBlockTest(SystemTest):
    def _check(self, pattern, *files, arguments=()):
        end = self.host(*files).boot(*arguments)
        self.assertEqual(0, end.status)
        self.assertRegex(end.read(PROFILE), rf"\A{pattern}\Z")
        return end

    def test_it_has_a_line_for_each_plugin_in_the_order_of_the_graph(self):
        files = [plugin("a", requires=["x"]), plugin("b", provides=["x"]), plugin("c", ["no.such"])]
        names = "a.json,b.json,c.json"
        self._check(_boot_block("abc"), *files, arguments=[f"--plugin={names}"])
        self._check(_boot_block("cabc"), *files, arguments=[f"--plugin=c.json,{names}"])

    def test_debug_injections_come_behind_the_plugins(self):
        self._check(_boot_block(["a", "z", "d d"]), plugin("a"),
                    {"/etc/corvane/bootweave/debug.conf": "z:x:y:true\nd d:x:y:true\n"})

    def test_without_plugins_it_has_its_other_lines(self):
        self._check(_boot_block([]))

    def test_the_settings_are_those_that_the_run_was_made_with(self):
        for arguments, settings in ((("--init",), {}),
                                    (("--verbose",), {"verbose": 1}),
                                    (("--parallel",), {"parallel": 1}),
                                    (("--randomize",), {"randomize": 1}),
                                    (("--randomize=-5",), {"randomize": 1, "seed": -5}),
                                    (("--randomize=2147483647",), {"randomize": 1, "seed": 2147483647}),
                                    (("--randomize=x",), {"randomize": 1}),
                                    (("--interactive", "--interactive-mode-requires=z"), {"interactive": 1})):
            with self.subTest(arguments):
                self._check(_boot_block("a", **settings), plugin("a"), arguments=arguments)

    def test_a_stateless_host_ran_serially_whatever_was_asked_for(self):
        for entry in ({"/stateless.tgz": ""}, {"/stateless.tgz/file": ""}):
            with self.subTest(entry):
                self._check(_boot_block("a", parallel=0), plugin("a"), entry, arguments=["--parallel"])

    def test_the_first_line_is_the_uptime_at_the_start(self):
        end = self.host(plugin("a", ["wait"]), command("wait", "sleep 1.2")).shell(
            "cut -d. -f1 /proc/uptime; bootweave >/run/log")
        begin = int(end.stdout)
        self.assertIn(end.read(PROFILE).splitlines()[0],
                      [f"Mantle Initialization Time: {seconds}000000" for seconds in (begin, begin + 1)])

    def test_the_stamps_enclose_what_happened_in_utc_whatever_the_time_zone(self):
        end = self.host(plugin("a", ["wait"], provides=["x"]), plugin("b", requires=["x"]),
                        command("wait", "sleep 0.3")).shell(
                            "date -u '+%F %T.%6N'; TZ=XYZ-9 bootweave >/run/log; date -u '+%F %T.%6N'")
        before, after = end.stdout.split("\n")[:2]
        text = end.read(PROFILE)
        times = {name: (start, stop) for name, start, stop in _entries(text)}
        stamps = [before, re.search(rf"^ Start: {_STAMP}$", text, re.MULTILINE)[1], *times["a"], *times["b"],
                  re.search(rf"^ End: {_STAMP}$", text, re.MULTILINE)[1], after]
        self.assertEqual(sorted(stamps), stamps)
        start, stop = (datetime.datetime.fromisoformat(stamp) for stamp in times["a"])
        self.assertGreaterEqual((stop - start).total_seconds(), 0.3)

    def test_a_plugin_that_failed_has_its_times_too(self):
        end = self._check(_boot_block("a"), plugin("a", ["no.such"]))
        self.assertNotIn(_NEVER, end.read(PROFILE))

    def test_a_plugin_that_has_run_before_has_a_line_of_no_time(self):
        once = plugin("a", version=3, run_once=True, plugin_version="1")
        end = self._check(_boot_block("a"), once, arguments=["--run-once=a1"])
        self.assertEqual([("a", _NEVER, _NEVER)], _entries(end.read(PROFILE)))

    def test_what_takes_no_part_has_no_line(self):
        self._check(_boot_block("a"), plugin("a"), plugin("b"), {f"{PLUGINS}/c.json": ""},
                    arguments=["--disable-plugins=b"])

    def test_a_name_with_odd_characters_is_written_as_it_is(self):
        self._check(_boot_block(["%s é \"q\""]), plugin("%s é \"q\""))


    def test_a_name_with_control_characters_forges_no_line(self):
        forged = f"a\n[{_NEVER} - {_NEVER}] sysboot: forged\r\x1b[2J\tb"
        harmless = f"a\\x0a[{_NEVER} - {_NEVER}] sysboot: forged\\x0d\\x1b[2J\tb"
        self._check(_boot_block([harmless]), plugin(forged))


class DaemonBlockTest(SystemTest):
    def test_a_boot_and_two_daemon_mode_runs_leave_one_boot_block_and_two_daemon_blocks(self):
        end = self.host(plugin("p"), init_scripts(b=20, a=10)).shell(
            f"bootweave && bootweave {' '.join(_START)} && bootweave {' '.join(_STOP)} --parallel --verbose")
        self.assertEqual(0, end.status)
        self.assertRegex(end.read(PROFILE), rf"\A{_boot_block('p')}{_daemon_block('ab')}"
                                            rf"{_daemon_block('ab', parallel=1, verbose=1)}\Z")

    def test_a_boot_afterwards_starts_anew(self):
        end = self.host(plugin("p"), init_scripts(a=10)).shell(f"bootweave {' '.join(_START)} && bootweave")
        self.assertRegex(end.read(PROFILE), rf"\A{_boot_block('p')}\Z")

    def test_what_is_there_stays_whatever_it_is(self):
        for old in (b"no newline", bytes(range(256)) * 1000, b"\n"):
            with self.subTest(old[:10]):
                end = self.host(init_scripts(a=10), {PROFILE: File(old)}).boot(*_START)
                data = end.read_bytes(PROFILE)
                self.assertEqual(old, data[:len(old)])
                self.assertRegex(data[len(old):].decode(), rf"\A{_daemon_block('a')}\Z")

    def test_a_stop_has_its_times_as_a_start_has(self):
        for arguments in (_START, _STOP):
            end = self.host(init_scripts(a=(10, "sleep 0.2"), b=20)).boot(*arguments)
            times = {name: (start, stop) for name, start, stop in _entries(end.read(PROFILE))}
            start, stop = (datetime.datetime.fromisoformat(stamp) for stamp in times["a"])
            self.assertGreaterEqual((stop - start).total_seconds(), 0.2)
            first, last = ("a", "b") if arguments == _START else ("b", "a")
            self.assertLessEqual(times[first][1], times[last][0])

    def test_scripts_that_fail_have_their_times_too(self):
        for arguments in (_START, _STOP):
            end = self.host(init_scripts(a=(10, "exit 1"))).boot(*arguments)
            self.assertRegex(end.read(PROFILE), _daemon_block("a") + r"\Z")
            self.assertNotIn(_NEVER, end.read(PROFILE))

    def test_without_scripts_it_has_its_other_lines(self):
        end = self.host(init_scripts()).boot(*_START)
        self.assertRegex(end.read(PROFILE), _daemon_block("") + r"\Z")

    def test_the_settings_are_those_of_the_run(self):
        for argument, settings in (("--randomize=7", {"randomize": 1, "seed": 7}),
                                   ("--parallel", {"parallel": 1})):
            end = self.host(init_scripts(a=10)).boot(*_START, argument)
            self.assertRegex(end.read(PROFILE), _daemon_block("a", **settings) + r"\Z")


class FileTest(SystemTest):
    def _mode_after(self, *arguments, files=()):
        end = self.host(plugin("p"), init_scripts(a=10), *files).shell(
            f"bootweave {' '.join(arguments)}; stat -c %a {PROFILE} >/run/mode; {_LIST} >/run/names")
        self.assertEqual("sysboot.log\n", end.read("/run/names"))       # and no temporary file beside it
        return end.read("/run/mode").strip()

    def test_the_mode_of_the_old_log_is_kept(self):
        for mode in (0o644, 0o600, 0o640):
            for arguments in ((), _START):
                with self.subTest(mode=mode, arguments=arguments):
                    found = self._mode_after(*arguments, files=[{PROFILE: File("x\n", mode)}])
                    self.assertEqual(f"{mode:o}", found)

    def test_a_new_log_may_be_read_by_its_owner_only(self):
        end = self.host(plugin("p")).shell(f"bootweave; stat -c %a {PROFILE} >/run/mode")
        self.assertEqual("600\n", end.read("/run/mode"))

    def test_the_owner_of_the_old_log_is_not_kept(self):
        self.need_users()
        host = self.host(plugin("p"), {PROFILE: File("x\n", 0o640)}, setup=f"chown 65534:65533 {PROFILE}")
        end = host.shell(f"bootweave; stat -c '%u %g %a' {PROFILE} >/run/owner")
        self.assertEqual("0 0 640\n", end.read("/run/owner"))

    def test_an_invoke_mode_run_leaves_it_alone(self):
        invoke = "--invoke", "--method=start", "--plugin=p.json"
        self.assertIsNone(self.host(plugin("p")).boot(*invoke).read(PROFILE))
        for more in ((), ("--init",)):
            end = self.host(plugin("p"), {PROFILE: "old\n"}).boot(*invoke, *more)
            self.assertEqual("old\n", end.read(PROFILE))

    def test_it_is_there_before_the_log_daemon_reloads_and_the_store_ends(self):
        end = self.host(plugin("p"), {"/usr/lib/corvane/configstore/end-auto-conf":
                                      File(f"#!/bin/sh\ncp {PROFILE} /run/seen\n", 0o755)}).boot()
        self.assertEqual(end.read(PROFILE), end.read("/run/seen"))


class FailureTest(SystemTest):
    """A profile that cannot be written costs one line; the run goes on, and what was there stays whole."""

    def _check(self, message, *arguments, setup, old="old\n"):
        """The old log and nothing beside it is there after a run with just this complaint."""
        host = self.host(plugin("p"), init_scripts(a=10), {PROFILE: old or ""}, setup=setup)
        end = host.shell(f"bootweave {' '.join(arguments)}; status=$?; {_LIST} >/run/names; "
                         f"cp {PROFILE} /run/old; exit $status")
        self.assertEqual((0, [(ERROR, message)]), (end.status, end.complaints))
        self.assertEqual(("" if old is None else "sysboot.log\n", old),
                         (end.read("/run/names"), end.read("/run/old")))
        if arguments[:1] != _START[:1]:
            self.assertIn((NOTICE, "Executor has been Successfully Stopped"), end.said)

    def _check_both(self, reason, setup):
        self._check(f"unable to open profiling log ({PROFILE}): {reason}.", setup=setup)
        self._check(f"unable to reopen profiling log ({PROFILE}): {reason}.", *_START, setup=setup)

    # The executor's own log lies beside the profile, so the directory of both cannot simply be taken away.
    _TMPFS = (f"cp {PROFILE} /root/old; mount -t tmpfs -o {{options}} none /var/log; "
              f"cp /root/old {PROFILE}; : >{EXECUTOR_LOG}; ")

    _FILL = "dd if=/dev/zero of=/var/log/full bs=4k count=1 status=none"

    def test_where_no_file_can_be_made(self):
        self._check_both("No space left on device", self._TMPFS.format(options="nr_inodes=3"))

    def test_where_no_content_can_be_written(self):
        # Two pages, both taken; what the stream keeps in memory is missed only when it is written.
        full = self._TMPFS.format(options="size=8k") + self._FILL
        for arguments in ((), _START):
            self._check(f"unable to write profiling log ({PROFILE}): No space left on device.", *arguments,
                        setup=full)

    def test_where_the_old_content_has_no_room(self):
        # Six pages, all taken; an old log of five is more than the stream keeps in memory.
        full = self._TMPFS.format(options="size=24k") + self._FILL
        self._check(f"unable to reopen profiling log ({PROFILE}): No space left on device.", *_START,
                    setup=full, old="old\n" * 5000)

    def test_where_the_old_content_has_room_and_the_new_has_not(self):
        # Two pages: the old log has one, the copy of it in front of the new block another.
        room = self._TMPFS.format(options="size=8k")
        self._check(f"unable to write profiling log ({PROFILE}): No space left on device.", *_START,
                    setup=room, old="x" * 4000 + "\n")

    def test_a_log_that_is_missing_cannot_be_added_to(self):
        self._check(f"unable to reopen profiling log ({PROFILE}): No such file or directory.", *_START,
                    setup=f"rm {PROFILE}", old=None)

    def test_what_is_no_file_cannot_be_added_to_and_holds_nothing_up(self):
        for put in (f"mkfifo {PROFILE}", f"mkfifo /run/fifo; ln -s /run/fifo {PROFILE}",
                    f"ln -s /dev/zero {PROFILE}"):
            with self.subTest(put):
                host = self.host(init_scripts(a=10), setup=f"rm {PROFILE}; {put}")
                end = host.shell(f"stat -c %i {PROFILE} >/run/old; bootweave {' '.join(_START)}; status=$?;"
                                 f"stat -c %i {PROFILE} >/run/new; {_LIST} >/run/names; exit $status",
                                 timeout=20)
                message = f"unable to reopen profiling log ({PROFILE}): No such file or directory."
                self.assertEqual((0, [(ERROR, message)]), (end.status, end.complaints))
                self.assertEqual((end.read("/run/old"), "sysboot.log\n"),
                                 (end.read("/run/new"), end.read("/run/names")))

    def test_an_empty_log_cannot_be_added_to(self):
        host = self.host(init_scripts(a=10), {PROFILE: ""})
        end = host.shell(f"bootweave {' '.join(_START)}; {_LIST} >/run/names")
        (level, message), = end.complaints
        self.assertEqual(ERROR, level)
        self.assertRegex(message, rf"\Aunable to reopen profiling log \({PROFILE}\): .+\.\Z")
        self.assertEqual(("", "sysboot.log\n"), (end.read(PROFILE), end.read("/run/names")))

    def test_a_read_only_place(self):
        # All but the executor's log in it.
        self._check_both("Read-only file system", self._TMPFS.format(options="size=1m") +
                         f"mount --bind {EXECUTOR_LOG} {EXECUTOR_LOG}; mount -o remount,bind,ro /var/log")

    def test_a_missing_place(self):
        end = self.host(plugin("p"), setup="rm -rf /var/log").boot()
        self.assertEqual(0, end.status)
        self.assertIn((ERROR, f"unable to open profiling log ({PROFILE}): No such file or directory."),
                      end.complaints)

    def test_a_finished_profile_that_cannot_be_put_in_place_ends_the_run(self):
        end = self.host(plugin("p"), setup=f"mkdir {PROFILE}").shell(
            f"bootweave; status=$?; {_LIST} >/run/names; exit $status")
        self.assertEqual(1, end.status)
        self.assertEqual(WARNING, end.complaints[0][0])
        self.assertRegex(end.complaints[0][1], r"\AFailed to initialize bootweave: unable to rename "
                         rf"'{PROFILE}\.\w{{6}}' to '{PROFILE}': Is a directory\Z")
        self.assertEqual((1, "sysboot.log\n"), (len(end.complaints), end.read("/run/names")))
