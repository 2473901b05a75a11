#!/usr/bin/python3
# SPDX-License-Identifier: Apache-2.0
"""The judge finds each thing that must not be, and nothing where all is well."""

import base64
import copy
import errno
import gzip
import os
import sys
import unittest

sys.path.insert(0, os.path.dirname(os.path.realpath(__file__)))

import oracle       # noqa: E402 (the path comes first)

_OLD_PROFILE = "the old one\n"
_STAMP = "2026-01-01 00:00:00.000000"
_SETTINGS = " Verbose: 0\n Parallel: 0\n Randomize: 0\n Interactive Mode: 0\n Random Seed: 7\n"
_BOOT_PROFILE = (f"Mantle Initialization Time: 1000000\n[{_STAMP} - {_STAMP}] sysboot: net\n"
                 f"=== Bootweave configuration info ===\n Start: {_STAMP}\n End: {_STAMP}\n{_SETTINGS}")
_DAEMON_PROFILE = (f"{_OLD_PROFILE}[{_STAMP} - {_STAMP}] daemon: clockd\n"
                   f"=== Daemon configuration info ===\n Start Daemon: {_STAMP}\n End Daemon: {_STAMP}\n"
                   f"{_SETTINGS}")


def _record(*keys):
    return base64.b64encode(gzip.compress(
        ("bootweave.run-once=" + "".join(key + "," for key in keys) + "\n").encode())).decode()


def _line(text, process=5):
    return f"2026-01-01T00:00:00.000Z bootweave[{process}]: {text}\n"


def _syslog(text, process=5):
    return f"<29>Jan  1 00:00:00 bootweave[{process}]: {text}\n"


def _boot():
    """What a boot without a fault leaves."""
    said = ["Launching Executor", "executing start plugin: net", "Executor has been Successfully Stopped"]
    return {
        "status": 0, "seconds": 0.1, "left": [], "others": [], "hanging": [], "reloads": 1, "stderr": "",
        "report": [["fault", "main", "openat", "3", ""], ["end", "main/1/1", "code", "0"],
                   ["end", "main", "code", "0"]],
        "stdout": "".join(map(_line, said)), "syslog": [_syslog(text) for text in said],
        "executor_log": _line("Executor Reset - polling for commands", 6),
        "kernel": "<5>bootweave: Activating Bootweave plugin net.\n"
                  "<5>bootweave: Bootweave plugin net activated.\n",
        "journal": "net.link.up --name=lo\n", "profile": _BOOT_PROFILE, "record": _record("net1"),
        "files": {"/bootbank/bootweav.gz": "-rw-r-----", "/var/log/sysboot.log": "-rw-r-----"},
    }


def _daemon_run():
    seen = _boot()
    said = "clockd started."
    seen.update(stdout=_line(said), syslog=[_syslog(said)], executor_log=None, journal="clockd start\n",
                kernel=seen["kernel"].replace("net", "clockd"), profile=_DAEMON_PROFILE,
                record=_record("old1"), reloads=0, report=[["end", "main", "code", "0"]])
    return seen


def _say(seen, text):
    seen["stdout"] += _line(text)
    seen["syslog"].append(_syslog(text))


class Verdicts(unittest.TestCase):
    """A boot in which something is different, and what is found in it."""

    arguments = ("--init",)
    undisturbed = staticmethod(_boot)

    def complaints(self, change, error=errno.EIO, name="main", phase="own", call="openat", site=""):
        is_daemon_run = "--daemon" in self.arguments
        judge = oracle.Judge(oracle.Run(self.undisturbed(), _OLD_PROFILE, is_daemon_run), ["old1"])
        seen = copy.deepcopy(self.undisturbed())
        change(seen)
        fault = oracle.Fault(self.arguments, name, phase, call, 3, error, site)
        return judge.complaints(fault, oracle.Run(seen, _OLD_PROFILE, is_daemon_run))

    def assert_found(self, expected, change, **fault):
        found = self.complaints(change, **fault)
        self.assertTrue(any(expected in complaint for complaint in found), found)

    def assert_fine(self, change, **fault):
        self.assertEqual([], self.complaints(change, **fault))


class Boots(Verdicts):
    def test_a_boot_like_the_undisturbed_one_is_fine(self):
        self.assert_fine(lambda seen: None)
        self.assert_fine(lambda seen: None, error=errno.EINTR)

    def test_a_hang_is_found(self):
        self.assert_found("it hangs: bootweave (S)", lambda seen: seen.update(
            status=None, hanging=["bootweave (S)"]))

    def test_a_crash_is_found(self):
        for name, number in ("main", 11), ("main/1/1", 6), ("main/1/1", 9), ("main/4=nativeReader", 11):
            self.assert_found(f"{name} is killed by signal {number}", lambda seen, name=name, number=number:
                              seen["report"].append(["end", name, "signal", str(number)]))

    def test_a_child_that_is_killed_on_purpose_is_fine(self):
        self.assert_fine(lambda seen: seen["report"].append(["end", "main/4=nativeReader", "signal", "9"]))

    def test_a_program_that_the_loader_cannot_make_may_crash(self):
        self.assert_fine(lambda seen: seen["report"].append(["end", "main/4=nativeReader", "signal", "11"]),
                         name="main/4=nativeReader", phase="start")

    def test_a_zombie_is_found(self):
        self.assert_found("main ends with 2 children",
                          lambda seen: seen["report"].append(["zombies", "main", "2"]))

    def test_a_process_that_is_left_behind_is_found(self):
        self.assert_found("is left behind: standIn (S)", lambda seen: seen.update(others=["standIn (S)"]))
        self.assert_found("an executor is left behind: main/1/1", lambda seen: seen.update(left=["main/1/1"]))

    def test_an_executor_may_be_left_behind_by_a_boot_that_breaks_off(self):
        def break_off(seen):
            _say(seen, "Failed to initialize bootweave: no memory")
            seen.update(status=1, left=["main/1/1"])
        self.assert_fine(break_off)

    def test_two_executors_that_are_left_behind_are_found(self):
        def break_off(seen):
            _say(seen, "Failed to initialize bootweave: no memory")
            seen.update(status=1, left=["main/1/1", "main/2/1"])
        self.assert_found("several are left behind", break_off)

    def test_a_file_that_is_left_behind_is_found(self):
        self.assert_found("a file is left behind: /var/log/sysboot.log.XXXXXX", lambda seen:
                          seen["files"].update({"/var/log/sysboot.log.a1B2c3": "-rw-------"}))

    def test_an_exit_status_without_a_reason_is_found(self):
        self.assert_found("exit status 1", lambda seen: seen.update(status=1))
        self.assert_found("exit status 0",
                          lambda seen: _say(seen, "Failed to initialize bootweave: no memory"))

    def test_half_a_profile_is_found(self):
        for text in _BOOT_PROFILE[:-20], _BOOT_PROFILE + "more\n", "", None:
            self.assert_found("the profile is neither", lambda seen, text=text: seen.update(profile=text))

    def test_half_a_record_is_found(self):
        half = base64.b64encode(base64.b64decode(_record("net1"))[:-5]).decode()
        for packed in half, "", None:
            self.assert_found("the record is neither", lambda seen, packed=packed: seen.update(record=packed))

    def test_a_key_that_has_no_business_in_the_record_is_found(self):
        self.assert_found("the record has other1", lambda seen: seen.update(record=_record("other1")))

    def test_the_old_record_is_fine_where_it_cannot_be_written(self):
        def keep(seen):
            seen.update(record=_record("old1"))
        self.assert_fine(keep, site="/bootbank/bootweav.gz")
        self.assert_found("silently: record", keep, site="/dev/null")

    def test_words_that_the_manual_does_not_have_are_found(self):
        self.assert_found("is not in the manual: terminate called",
                          lambda seen: seen.update(stderr="terminate called without an active exception\n"))
        self.assert_found("is not in the manual: something else", lambda seen: _say(seen, "something else"))
        self.assert_found("is not in the manual: something else (kernel's log)",
                          lambda seen: seen.update(kernel=seen["kernel"] + "<5>bootweave: something else\n"))

    def test_words_of_the_manual_are_fine(self):
        self.assert_fine(lambda seen: _say(seen, "Failed connecting to executor Cannot allocate memory"))

    def test_a_plugin_that_is_missing_without_a_word_is_found(self):
        def lose(seen):
            seen.update(kernel="", profile=_BOOT_PROFILE.replace(f"[{_STAMP} - {_STAMP}] sysboot: net\n", ""))
        self.assert_found("net takes no part", lose)

        def lose_with_a_word(seen):
            lose(seen)
            _say(seen, "plugin `/usr/libexec/bootweave/plugins/net.json' is invalid: out of memory")
        self.assert_fine(lose_with_a_word)

    def test_a_plugin_that_is_begun_twice_is_found(self):
        self.assert_found("net is begun 2 times", lambda seen: seen.update(kernel=seen["kernel"] * 2))

    def test_a_plugin_that_does_not_end_is_found(self):
        self.assert_found("net is begun 1 times and ended 0 times", lambda seen: seen.update(
            kernel="<5>bootweave: Activating Bootweave plugin net.\n"))

    def test_a_command_that_runs_again_is_found(self):
        self.assert_found("not again: net.link.up --name=lo",
                          lambda seen: seen.update(journal=seen["journal"] * 2))

    def test_a_difference_without_a_word_is_found(self):
        self.assert_found("silently: journal", lambda seen: seen.update(journal=""))
        self.assert_found("silently: reloads", lambda seen: seen.update(reloads=0))
        self.assert_found("silently: files", lambda seen: seen["files"].pop("/var/log/sysboot.log"))

    def test_a_message_that_comes_nowhere_is_found(self):
        def lose_everywhere(seen):
            seen.update(stdout=seen["stdout"].replace(_line("Launching Executor"), ""),
                        syslog=seen["syslog"][1:])
        self.assert_found("is not said: Launching Executor", lose_everywhere)

    def test_a_message_that_comes_somewhere_is_fine(self):
        self.assert_fine(lambda seen: seen.update(syslog=seen["syslog"][1:]))
        self.assert_fine(lambda seen: seen.update(stdout=""))

    def test_when_the_executor_says_that_it_polls_is_left_open(self):
        def order(*texts):
            return lambda seen: seen.update(
                executor_log="".join(_line(text, 6) for text in texts),
                syslog=seen["syslog"][:3] + [_syslog(text, 6) for text in texts])
        polling, stop = "Executor Reset - polling for commands", "Bootweave executor signalled to stop"
        seen = _boot()
        order(polling, stop)(seen)
        undisturbed = oracle.Run(seen, _OLD_PROFILE, False)
        order(stop, polling)(seen)
        self.assertEqual(undisturbed.all, oracle.Run(seen, _OLD_PROFILE, False).all)

    def test_an_interrupted_call_must_make_no_difference(self):
        changes = {
            "syslog": lambda seen: seen.update(syslog=seen["syslog"][1:]),
            "stdout": lambda seen: _say(seen, "Failed connecting to executor Interrupted system call"),
            "journal": lambda seen: seen.update(journal=""),
        }
        for key, change in changes.items():
            self.assert_found(f"makes a difference: {key}", change, error=errno.EINTR)


class DaemonRuns(Verdicts):
    arguments = ("--daemon", "--method=start")
    undisturbed = staticmethod(_daemon_run)

    @staticmethod
    def _without_daemons(seen):
        seen.update(stdout="", syslog=[], journal=None, kernel="",
                    profile=_DAEMON_PROFILE.replace(f"[{_STAMP} - {_STAMP}] daemon: clockd\n", ""))

    @staticmethod
    def _panic(seen):
        seen.update(status=134, stdout=_line("VERIFY fork_exec.cpp:55"), syslog=[], profile=_OLD_PROFILE,
                    kernel="<5>bootweave: Activating Bootweave plugin clockd.\n", journal=None,
                    report=[["end", "main", "signal", "6"]])

    def test_a_run_like_the_undisturbed_one_is_fine(self):
        self.assert_fine(lambda seen: None)

    def test_a_lister_that_cannot_be_started_means_no_daemons(self):
        self.assert_fine(self._without_daemons, call="clone3", name="main")
        self.assert_found("clockd takes no part", self._without_daemons, name="main:1")

    def test_the_root_directory_that_cannot_be_opened_is_a_panic(self):
        self.assert_fine(self._panic, site="/")
        self.assert_found("main is killed by signal 6", self._panic, site="/dev/null")

    def test_half_a_block_is_found(self):
        self.assert_found("the profile is neither",
                          lambda seen: seen.update(profile=_DAEMON_PROFILE[:-20]))
        self.assert_found("the profile is neither",
                          lambda seen: seen.update(profile=_DAEMON_PROFILE.removeprefix(_OLD_PROFILE)))


if __name__ == "__main__":
    unittest.main()
