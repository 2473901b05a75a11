# SPDX-License-Identifier: Apache-2.0
"""bootweave-analyze on the profile of a run: what it says is what the profile has, read by other means."""

import datetime
import json
import os
import pty
import re

from harness import COMMANDS, PLUGINS, UNTIL, File, SystemTest, command, plugin
from init_scripts import PROFILE, init_scripts
from native_build import native
from sample_plugins import read_document

_SAMPLE_HOST = os.path.join(os.path.dirname(os.path.realpath(__file__)), "..", "..", "examples", "host")
_ANALYZE = "/usr/bin/bootweave-analyze"
_ENTRY = re.compile(r"\[(.{26}) - (.{26})\] (?:sysboot|daemon): (.*)")
_NEVER = "1970-01-01 00:00:00.000000"

# One plugin that took a second and one that took none, in a run of two seconds.
_LOG = {PROFILE: (
    "Mantle Initialization Time: 12000000\n"
    "[2026-11-15 15:00:00.500000 - 2026-11-15 15:00:01.500000] sysboot: storage\n"
    "[2026-11-15 15:00:01.500000 - 2026-11-15 15:00:01.500000] sysboot: motd\n"
    "=== Bootweave configuration info ===\n"
    " Start: 2026-11-15 15:00:00.000000\n"
    " End: 2026-11-15 15:00:02.000000\n"
    " Verbose: 0\n Parallel: 0\n Randomize: 0\n Interactive Mode: 0\n Random Seed: 1\n")}


def _instant(stamp):
    return datetime.datetime.strptime(stamp, "%Y-%m-%d %H:%M:%S.%f")


def _microseconds(start, end):
    return (_instant(end) - _instant(start)) // datetime.timedelta(microseconds=1)


def _taken(profile):
    """(plugin, microseconds) of those that ran, in the order of the profile."""
    entries = (_ENTRY.fullmatch(line) for line in profile.splitlines())
    return [(entry[3], _microseconds(entry[1], entry[2])) for entry in entries
            if entry and (entry[1], entry[2]) != (_NEVER, _NEVER)]


def _injections():
    """What the debug injections of the sample host require and provide, by name."""
    with open(os.path.join(_SAMPLE_HOST, "root/etc/corvane/bootweave/debug.conf"), encoding="utf-8") as file:
        fields = [line.split(":") for line in file if line.count(":") == 3]
    return {name: {"requires": re.split(", *", required), "provides": re.split(", *", provided)}
            for name, required, provided, _ in fields}


def _metadata(name):
    """What a plugin of the sample host says of itself."""
    if name in _injections():
        return _injections()[name]
    try:
        return read_document(f"{name}.json")["metadata"]
    except FileNotFoundError:
        return read_document(f"{name}.so")["metadata"]


def _number(profile, pattern):
    return int(re.search(pattern, profile, re.MULTILINE)[1])


class SampleHostTest(SystemTest):
    """The sample host's boot."""

    def _report(self, command):
        script = f"bootweave --init --parallel >/dev/null 2>&1 && exec {_ANALYZE} {command} --json"
        end = self.sample_host().shell(script)
        self.assertEqual((0, ""), (end.status, end.stderr))
        return json.loads(end.stdout), end.read(PROFILE)

    def test_time_adds_up_what_the_profile_has(self):
        report, profile = self._report("time")
        taken = [microseconds for _, microseconds in _taken(profile)]
        self.assertGreater(len(taken), 30)
        start, end = (re.search(rf"^ {name}: (.*)$", profile, re.MULTILINE)[1] for name in ("Start", "End"))
        total = _microseconds(start, end)
        self.assertAlmostEqual(sum(taken) / total, report.pop("plugins_at_a_time"), places=6)
        self.assertEqual({
            "profile": PROFILE, "block": 1, "blocks": 1, "kind": "boot", "start": start, "end": end,
            "kernel_us": _number(profile, r"^Mantle Initialization Time: (\d+)$"), "total_us": total,
            "plugins_us": sum(taken), "plugins_ran": len(taken),
            "plugins_idle": [],
            "settings": {"verbose": False, "parallel": True, "randomize": False, "interactive": False,
                         "seed": _number(profile, r"^ Random Seed: (-?\d+)$")},
        }, report)

    def test_blame_has_each_plugin_that_ran_longest_first(self):
        report, profile = self._report("blame")
        expected = sorted(_taken(profile), key=lambda entry: -entry[1])
        self.assertEqual(expected, [(entry["name"], entry["taken_us"]) for entry in report["plugins"]])
        self.assertAlmostEqual(1, sum(entry["share"] for entry in report["plugins"]), places=6)


    def test_the_critical_chain_goes_back_over_what_each_plugin_required(self):
        report, profile = self._report("critical-chain")
        entries = (_ENTRY.fullmatch(line) for line in profile.splitlines())
        ends = {entry[3]: _instant(entry[2]) for entry in entries if entry}
        documents = {name: _metadata(name) for name in ends}
        expected = [max(ends, key=ends.get)]
        while True:
            required = set(documents[expected[-1]]["requires"])
            providers = [name for name in ends if required.intersection(documents[name]["provides"])]
            if not providers:
                break
            expected.append(max(providers, key=ends.get))
        self.assertGreater(len(expected), 3)
        self.assertEqual(expected, [entry["name"] for entry in report["plugins"]])


class BlockTest(SystemTest):
    """Which run a report is about."""

    def _kinds(self, *choices):
        runs = " && ".join(["bootweave", "bootweave --daemon=wait --method=start",
                            "bootweave --daemon=wait --method=stop"])
        reports = "; ".join(f"{_ANALYZE} --json {choice}" for choice in choices)
        host = self.host(plugin("a"), init_scripts(one=10))
        end = host.shell(f"{{ {runs}; }} >/dev/null; {reports}")
        self.assertEqual((0, ""), (end.status, end.stderr))
        reports = [json.loads(line) for line in end.stdout.splitlines()]
        return [(report["block"], report["blocks"], report["kind"]) for report in reports]

    def test_daemon_runs_are_blocks_of_their_own_and_can_be_chosen(self):
        self.assertEqual([(1, 3, "boot"), (3, 3, "daemon"), (2, 3, "daemon"), (1, 3, "boot")],
                         self._kinds("", "--boot=last", "--boot=2", "--boot=boot"))


    def test_a_list_has_each_run(self):
        host = self.host(plugin("a"), init_scripts(one=10, two=20))
        end = host.shell(f"""{{ bootweave && bootweave --daemon=wait --method=start; }} >/dev/null &&
            exec {_ANALYZE} list""")
        self.assertEqual((0, ""), (end.status, end.stderr))
        rows = [line.split("\t") for line in end.stdout.splitlines()]
        self.assertEqual([["1", "boot", "1", "1"], ["2", "daemon", "2", "2"]],
                         [[row[0], row[1], row[4], row[5]] for row in rows])

    def test_a_daemon_waits_for_those_of_the_next_lower_priority(self):
        host = self.host(init_scripts(late=30, early=10, also=10, slow=(20, "sleep 0.3")))
        end = host.shell(f"""bootweave >/dev/null && bootweave --daemon=wait --method=start >/dev/null &&
            exec {_ANALYZE} critical-chain --boot last""")
        self.assertEqual((0, ""), (end.status, end.stderr))
        rows = [line.split("\t")[3:] for line in end.stdout.splitlines()]
        self.assertEqual([["late", "priority 20"], ["slow", "priority 10"]], rows[:2])
        self.assertIn(rows[2], [["early", "-"], ["also", "-"]])

    def test_a_daemon_that_is_stopped_waits_for_those_of_the_next_higher_priority(self):
        host = self.host(init_scripts(one=10, two=20, three=30))
        end = host.shell(f"""bootweave >/dev/null && bootweave --daemon=wait --method=stop >/dev/null &&
            exec {_ANALYZE} critical-chain --boot last""")
        self.assertEqual((0, ""), (end.status, end.stderr))
        self.assertEqual([["one", "priority 20"], ["two", "priority 30"], ["three", "-"]],
                         [line.split("\t")[3:] for line in end.stdout.splitlines()])

    def test_without_the_lister_the_order_of_daemons_is_unknown_and_one_line_says_why(self):
        failures = {"rm /bin/chkconfig": "No such file or directory",
                    "chmod -x /bin/chkconfig": "Permission denied",
                    "printf '#!/bin/sh\\nexit 3' >/bin/chkconfig": "exited with status 3",
                    "printf '#!/bin/sh\\nkill -9 $$' >/bin/chkconfig": "killed by signal 9"}
        for spoil, reason in failures.items():
            with self.subTest(spoil):
                end = self.host(init_scripts(one=10, two=20)).shell(
                    f"""{{ bootweave && bootweave --daemon=wait --method=start; }} >/dev/null && {spoil} &&
                    exec {_ANALYZE} critical-chain --boot last""")
                said = f"bootweave-analyze: cannot list the init scripts: /bin/chkconfig: {reason}\n"
                self.assertEqual((0, said), (end.status, end.stderr))

class DifferenceTest(SystemTest):
    """Two boots compared."""

    def test_a_plugin_that_got_slower_comes_first(self):
        host = self.host(plugin("a", start=["nap"]), plugin("b"), command("nap", "exec sleep 0.1"))
        script = UNTIL + f"""bootweave >/dev/null && mv {PROFILE} /tmp/old.log &&
            until_ sh -c '! pidof -q bootweave' && rm -f /run/corvane/bootweaveExecutor.sock &&
            printf '#!/bin/sh\nexec sleep 0.6\n' >{COMMANDS}/nap && rm {PLUGINS}/b.json &&
            bootweave >/dev/null && exec {_ANALYZE} diff /tmp/old.log {PROFILE} --json"""
        end = host.shell(script)
        self.assertEqual((0, ""), (end.status, end.stderr))
        report = json.loads(end.stdout)
        slower, gone = report["plugins"]
        self.assertEqual("a", slower["name"])
        self.assertGreater(slower["change_us"], 400_000)
        self.assertEqual(slower["new_us"] - slower["old_us"], slower["change_us"])
        self.assertEqual(("b", None), (gone["name"], gone["new_us"]))
        self.assertEqual(report["new"]["total_us"] - report["old"]["total_us"], report["total_change_us"])


class NativePluginTest(SystemTest):
    """Native plugins, whose metadata only the reader program can read."""

    def test_without_the_reader_the_chain_ends_at_a_native_plugin_with_a_warning(self):
        host = self.host(plugin("a", provides=["x"]), native("b", requires=["x"]))
        reader, library = "/usr/lib/corvane/bootweave/nativeReader", f"{PLUGINS}/b.so"
        script = f"""bootweave >/dev/null && {_ANALYZE} critical-chain && rm {reader} &&
            exec {_ANALYZE} critical-chain"""
        end = host.shell(script)
        self.assertEqual(0, end.status)
        self.assertEqual(["b", "a", "b"], [line.split("\t")[3] for line in end.stdout.splitlines()])
        self.assertEqual("bootweave-analyze: b: what it waited for is unknown: "
                         f"plugin `{library}' is invalid: "
                         "metadata reader failed to spawn: No such file or directory\n", end.stderr)


class TextTest(SystemTest):
    """What people and pipes get."""

    def _on_terminal(self, *environment):
        master, slave = pty.openpty()
        self.addCleanup(os.close, master)
        try:
            end = self.host(_LOG).run("/usr/bin/env", *environment, _ANALYZE, "blame", stdout=slave)
        finally:
            os.close(slave)
        self.assertEqual(0, end.status)
        return os.read(master, 4096).decode().replace("\r\n", "\n")

    def test_a_pipe_gets_tabs_and_no_header(self):
        end = self.host(_LOG).run(_ANALYZE, "blame")
        self.assertEqual((0, "1.000s\t100.0%\tstorage\n0us\t0.0%\tmotd\n", ""),
                         (end.status, end.stdout, end.stderr))

    def test_a_terminal_gets_columns_and_colours_unless_it_cannot_or_must_not_have_them(self):
        columns = (f"Block 1 of 1 in {PROFILE}: boot\n\n"
                   "          TIME  SHARE  PLUGIN\n"
                   "        1.000s 100.0%  storage\n"
                   "           0us   0.0%  motd\n")
        coloured = (columns.replace("Block", "\033[1mBlock").replace("boot\n\n", "boot\033[0m\n\n")
                    .replace("1.000s", "\033[31m1.000s\033[0m"))
        self.assertEqual(coloured, self._on_terminal("TERM=linux"))
        self.assertEqual(coloured, self._on_terminal("TERM=linux", "NO_COLOR="))
        self.assertEqual(columns, self._on_terminal("TERM=linux", "NO_COLOR=1"))
        self.assertEqual(columns, self._on_terminal("TERM=dumb"))
        self.assertEqual(columns, self._on_terminal("--unset=TERM"))


class FailureTest(SystemTest):
    """What cannot be done is said in one line of standard error."""

    def _assert_error(self, status, text, *files, arguments=()):
        end = self.host(*files).run(_ANALYZE, *arguments)
        self.assertEqual((status, "", f"bootweave-analyze: {text}\n"), (end.status, end.stdout, end.stderr))

    def test_without_a_profile_there_is_no_report(self):
        self._assert_error(1, f"cannot read {PROFILE}: No such file or directory")

    def test_wrong_usage_has_status_2(self):
        self._assert_error(2, "unknown command 'chain'; see --help", _LOG, arguments=["chain"])

    def test_a_full_device_is_an_error(self):
        end = self.host(_LOG).shell(f"exec {_ANALYZE} >/dev/full")
        self.assertEqual((1, "bootweave-analyze: cannot write the report\n"), (end.status, end.stderr))

    def test_a_user_without_privileges_reads_a_profile_that_may_be_read(self):
        self.need_users()
        script = f"chmod 644 {PROFILE} && exec setpriv --reuid=65534 --clear-groups {_ANALYZE} blame"
        end = self.host({PROFILE: File(_LOG[PROFILE], 0o600)}).shell(script)
        self.assertEqual((0, "1.000s\t100.0%\tstorage\n0us\t0.0%\tmotd\n"), (end.status, end.stdout))
