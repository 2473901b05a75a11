# SPDX-License-Identifier: Apache-2.0
"""What the service unit does before it runs the program, and with the manual's drop-in."""

import os
import re
import shlex

from harness import EXECUTOR_LOG, PLUGINS, STAGE_VARIABLE, UNTIL, SystemTest, command, plugin

_UNIT = "/usr/lib/systemd/system/bootweave.service"
_PAGE = "usr/share/man/man8/bootweave.8"
_SOCKET = "/var/run/corvane/bootweaveExecutor.sock"
# Runs the unit's command as its manager does, for whom $$ stands for one $.
_PREPARE = f"""
prepare() {{
    sed -n 's/^ExecStartPre=//p' {_UNIT} | sed 's/[$][$]/$/g' >/run/prepare
    test -s /run/prepare && sh -e /run/prepare
}}
"""
_STARTED = "Executor Reset - polling for commands"


class ExecStartPreTest(SystemTest):
    def _run(self, script):
        host = self.host(plugin("p", ["note"]), command("note", "echo noted"))
        return host.shell(UNTIL + _PREPARE + script)

    def test_a_socket_on_which_nobody_listens_is_removed_and_the_next_run_starts_its_own_executor(self):
        end = self._run(f"bootweave >/dev/null; until_ sh -c '! pidof -q bootweave'; test -S {_SOCKET} &&"
                        f"prepare && test ! -e {_SOCKET} && bootweave")
        self.assertEqual((0, ["noted"] * 2), (end.status, end.command_output))
        self.assertEqual(2, end.executor_messages.count(_STARTED))

    def test_the_socket_of_a_killed_executor_is_removed_while_its_clients_still_hold_it(self):
        hold = f'import socket, time; s = socket.socket(socket.AF_UNIX); s.connect("{_SOCKET}"); ' \
               'open("/run/held", "w"); time.sleep(1000)'
        end = self._run(f"""
            bootweave --plugin-directory=/no/where >/dev/null
            python3 -ISc '{hold}' & until_ test -e /run/held
            kill -9 $(pidof bootweave); until_ sh -c '! pidof -q bootweave'
            test -S {_SOCKET} && prepare && test ! -e {_SOCKET}""")
        self.assertEqual(0, end.status)

    def test_the_socket_of_an_executor_that_listens_stays_and_the_next_run_uses_it(self):
        end = self._run(f"bootweave --plugin-directory=/no/where >/dev/null; prepare && test -S {_SOCKET} &&"
                        "bootweave; status=$?; until_ sh -c '! pidof -q bootweave'; exit $status")
        self.assertEqual((0, ["noted"]), (end.status, end.command_output))
        self.assertEqual(1, end.executor_messages.count(_STARTED))

    def test_without_a_socket_it_succeeds(self):
        end = self._run(f"prepare; echo status $?; test -e {_SOCKET}")
        self.assertEqual("status 0\n", end.stdout)


def _drop_in():
    """The manual's drop-in that hands a boot the keys of what has run, as an administrator types it."""
    with open(os.path.join(os.environ[STAGE_VARIABLE], _PAGE), encoding="utf-8") as page:
        section = page.read().split("\n.SS Plugins that run once\n")[1].split("\n.SS ")[0]
    example = re.search(r"^\.EX\n(.*?)^\.EE$", section, re.MULTILINE | re.DOTALL)[1]
    return example.replace(r"\-", "-").replace(r"\e", "\\")


def _command_of(drop_in):
    """What the manager runs: the words of the last command, with each $$ a $."""
    lines = re.sub(r"\\\n *", " ", drop_in).splitlines()
    commands = [line.removeprefix("ExecStart=") for line in lines if line.startswith("ExecStart=")]
    if commands[0] != "":
        raise AssertionError("the unit's own command stays: " + drop_in)
    return shlex.split(commands[1].replace("$$", "$"))


class RunOnceDropInTest(SystemTest):
    """The drop-in that the manual shows under "Plugins that run once"."""

    _ONCE = {"version": 3, "run_once": True}

    def _boots(self, *between):
        """What the command in the drop-in comes to: a boot, and one more behind each of these scripts."""
        host = self.host(plugin("once", ["note --of=once"], plugin_version="1.0-a", **self._ONCE),
                         plugin("other", ["note --of=other"], plugin_version="2", **self._ONCE),
                         plugin("always", ["note --of=always"]), command("note", "echo $1"))
        boot = f'prepare && "$@" || exit; until_ sh -c "! pidof -q bootweave"; echo -- >>{EXECUTOR_LOG}'
        end = host.shell(UNTIL + _PREPARE + "\n".join([boot, *(f"{script}\n{boot}" for script in between)]),
                         "sh", *_command_of(_drop_in()))
        self.assertEqual(0, end.status, end.stderr)
        ran = [[]]
        for line in end.command_output:
            if line == "--":
                ran.append([])
            else:
                ran[-1].append(line.removeprefix("--of="))
        return [sorted(names) for names in ran[:-1]], end

    def test_what_has_run_on_one_boot_does_not_on_those_behind_it(self):
        ran, end = self._boots(":", ":")
        self.assertEqual([["always", "once", "other"], ["always"], ["always"]], ran)
        # The first had no record, and said so.
        self.assertEqual("gzip: /bootbank/bootweav.gz: No such file or directory\n", end.stderr)

    def test_a_new_version_runs_once_more(self):
        ran, _ = self._boots(f"sed -i 's/1[.]0-a/1.1/' {PLUGINS}/once.json", ":")
        self.assertEqual([["always", "once", "other"], ["always", "once"], ["always"]], ran)

    def test_a_record_that_cannot_be_read_costs_the_boot_nothing_but_their_running_again(self):
        ran, end = self._boots("echo no record >/bootbank/bootweav.gz", ":")
        self.assertEqual([["always", "once", "other"]] * 2 + [["always"]], ran)
        self.assertIn("not in gzip format", end.stderr)

    def test_the_manager_takes_it(self):
        place = "/etc/systemd/system/bootweave.service.d"
        end = self.host({f"{place}/override.conf": _drop_in()}).shell(
            f"systemctl --version >/dev/null || exit 77; systemd-analyze verify --man=no {_UNIT}")
        if end.status == 77:
            self.skipTest("there is no systemd here")
        self.assertEqual((0, ""), (end.status, end.stderr))
