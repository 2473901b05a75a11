# SPDX-License-Identifier: Apache-2.0
"""The two programs of the configuration store, with which a run ends."""

from harness import WARNING, Directory, File, SystemTest, command, plugin
from probe import HOSTILE_CALLER, hostile_caller, probe, report

_STORE = "/usr/lib/corvane/configstore"
_END = f"{_STORE}/end-auto-conf"
_CLEAN_UP = f"{_STORE}/cleanup-boot-state"


def _program(path, script):
    return {path: File(f"#!/bin/sh\n{script}\n", 0o755)}


class ConfigStoreTest(SystemTest):
    def _check(self, complaints, *files):
        end = self.host(plugin("a"), *files).boot()
        self.assertEqual((0, ["a"], [(WARNING, text) for text in complaints]),
                         (end.status, end.succeeded, end.complaints))
        return end

    def test_automatic_configuration_ends_before_the_boot_state_is_cleaned_up(self):
        end = self._check([], _program(_END, "sleep 0.1; echo end >>/run/store"),
                          _program(_CLEAN_UP, "echo clean up >>/run/store"))
        self.assertEqual("end\nclean up\n", end.read("/run/store"))

    def test_both_run_when_the_executor_has_stopped_and_in_every_mode(self):
        count = "grep -c 'signalled to stop' /var/log/bootweave-hostcli-stdout.log >>/run/store"
        clean_up = _program(_CLEAN_UP, "echo clean up >>/run/store")
        host = self.host(plugin("a"), _program(_END, count), clean_up)
        for words in ((), ("--init",), ("--invoke", "--method=start", "--plugin=a.json"), ("--parallel",)):
            with self.subTest(words):
                self.assertEqual("1\nclean up\n", host.boot(*words).read("/run/store"))

    def test_both_run_without_arguments_under_their_own_path(self):
        end = self._check([], probe(_END), probe(_CLEAN_UP))
        for path in _END, _CLEAN_UP:
            found = report(end, path.rsplit("/", 1)[1])
            self.assertEqual((path, []), (found.name, found.arguments))

    def test_missing_programs_are_no_matter(self):
        self._check([])

    def test_a_program_that_fails_is_a_warning_that_says_how(self):
        self._check([f"{_END} exited with status 7", f"{_CLEAN_UP} killed by signal 9"],
                    _program(_END, "exit 7"), _program(_CLEAN_UP, "kill -9 $$"))

    def test_a_program_that_cannot_be_run_is_a_warning_that_says_why(self):
        self._check([f"{_END} could not be started: Permission denied",
                     f"{_CLEAN_UP} could not be started: Exec format error"],
                    {_END: "#!/bin/sh\n", _CLEAN_UP: File("no program\n", 0o755)})

    def test_a_program_whose_interpreter_is_missing_is_a_warning(self):
        self._check([f"{_END} could not be started: No such file or directory"],
                    {_END: File("#!/no/shell\n", 0o755)})

    def test_a_directory_in_a_programs_place_is_a_warning(self):
        self._check([f"{_END} could not be started: Permission denied"], {_END: Directory()})

    def test_a_program_that_leaves_a_process_behind_holds_up_nothing(self):
        end = self.host(_program(_END, "sleep 1000 &"), _program(_CLEAN_UP, "echo done >/run/done")).shell(
            "bootweave >/run/log", timeout=20)
        self.assertEqual((0, "done\n"), (end.status, end.read("/run/done")))

    def test_their_output_is_the_programs_and_they_read_nothing(self):
        end = self._check([], _program(_END, "readlink /proc/self/fd/0; echo out; echo err >&2"))
        self.assertEqual(["/dev/null", "out"], end.stdout.splitlines()[-2:])
        self.assertEqual("err\n", end.stderr)

    def test_they_have_the_programs_environment_and_work_in_the_root_directory(self):
        end = self.host(probe(_END)).shell("cd /usr; env -i A=1 PATH=/usr/bin:/usr/sbin bootweave")
        found = report(end, "end-auto-conf")
        self.assertEqual((["A=1", "PATH=/usr/bin:/usr/sbin"], "/"),
                         (sorted(found.variables), found.directory))

    def test_nothing_else_is_open_and_no_signal_blocked_or_ignored_whatever_the_caller_did(self):
        end = self.host(hostile_caller(), probe(_END), probe(_CLEAN_UP)).run(
            HOSTILE_CALLER, "/usr/sbin/bootweave", "--parallel")
        for name in "end-auto-conf", "cleanup-boot-state":
            found = report(end, name)
            self.assertEqual((["0", "1", "2"], 0, 0), (found.descriptors, found.blocked, found.ignored))

    def test_commands_that_fail_do_not_keep_them_from_running(self):
        end = self.host(plugin("a", ["stop", "x"]), command("x", "true"),
                        _program(_END, "echo ran >/run/store")).boot()
        self.assertEqual("ran\n", end.read("/run/store"))
