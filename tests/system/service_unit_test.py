# SPDX-License-Identifier: Apache-2.0
"""What the service unit does before it runs the program."""

from harness import UNTIL, SystemTest, command, plugin

_UNIT = "/usr/lib/systemd/system/bootweave.service"
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
