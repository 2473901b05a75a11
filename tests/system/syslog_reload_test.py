# SPDX-License-Identifier: Apache-2.0
"""The end of a boot in init mode: old settings are upgraded, and the log daemon reloads."""

from harness import EXECUTOR_LOG, UNTIL, WARNING, File, SystemTest, plugin
from init_scripts import PROFILE, init_scripts

_UPGRADE = "/usr/lib/corvane/logrelay/bin/upgrade-syslog.conf.sh"
_PID_FILE = "/run/corvane/logrelayd.pid"
_NOTES = "/run/notes"
_NO_FILE = WARNING, "unable to open mantlesyslogd pid file."
_NO_PROCESS = WARNING, "failed to reload logrelayd: No such process."
# Services for a boot in init mode to start.
_SERVICES = {path: File("#!/bin/sh\n", 0o755)
             for path in ("/usr/lib/corvane/logrelay/bin/logrelayd", "/etc/init.d/obsvd")}
# A log daemon that notes each reload. It takes the signal of lower number first: when it has noted the other
# one, no reload is on its way.
_DAEMON = UNTIL + f"""
sh -c 'trap "echo reload >>{_NOTES}" USR1; trap "echo asked >>{_NOTES}" USR2
       printf " \\n%s \\n" $$ >{_PID_FILE}
       while :; do sleep 0.01; done' &
until_ test -s {_PID_FILE}
"""
_ASK = f"; status=$?; kill -USR2 $!; until_ grep -q asked {_NOTES} && exit $status"


class ReloadTest(SystemTest):
    def _notes(self, *files, arguments="--init"):
        """What the daemon and the upgrade have noted in a run without any complaint."""
        end = self.host(plugin("p"), init_scripts(s=10), _SERVICES, *files).shell(
            f"{_DAEMON} bootweave {arguments}{_ASK}")
        self.assertEqual((0, []), (end.status, end.complaints))
        return end.read(_NOTES).splitlines()[:-1]

    @staticmethod
    def _legacy(script):
        return {"/etc/syslog.conf": "", _UPGRADE: File(f"#!/bin/sh\n{script}\n", 0o755)}

    def test_the_upgrade_comes_first_behind_the_profile_and_before_the_executors_end(self):
        note = f"echo $(grep -c sysboot: {PROFILE}) $(grep -c 'signalled to stop' {EXECUTOR_LOG}) >>{_NOTES}"
        self.assertEqual(["1 0", "reload"], self._notes(self._legacy(note)))

    def test_without_old_settings_there_is_no_upgrade_and_the_daemon_reloads(self):
        upgrade = self._legacy(f"echo upgrade >>{_NOTES}")
        del upgrade["/etc/syslog.conf"]
        self.assertEqual(["reload"], self._notes(upgrade))

    def test_how_the_upgrade_ends_is_its_own_business(self):
        for script in "exit 3", "kill -9 $$":
            with self.subTest(script):
                self.assertEqual(["reload"], self._notes(self._legacy(script)))

    def test_an_upgrade_that_is_not_there_is_no_message_of_the_program(self):
        self.assertEqual(["reload"], self._notes({"/etc/syslog.conf": ""}))

    def test_old_settings_of_any_kind_count(self):
        for setup in "mkdir", "mkfifo":
            with self.subTest(setup):
                upgrade = self._legacy(f"echo upgrade >>{_NOTES}")
                del upgrade["/etc/syslog.conf"]
                end = self.host(_SERVICES, upgrade, setup=f"{setup} /etc/syslog.conf").boot("--init")
                self.assertEqual((0, "upgrade\n"), (end.status, end.read(_NOTES)))

    def test_no_other_mode_reloads_or_upgrades(self):
        for arguments in ("", "--invoke --method=start --plugin=p.json", "--daemon --method=start",
                          "--daemon --method=stop", "--dump-dependency-tree=/run/dot"):
            with self.subTest(arguments):
                upgrade = self._legacy(f"echo upgrade >>{_NOTES}")
                self.assertEqual([], self._notes(upgrade, arguments=arguments))

    def test_init_and_invoke_together_reload(self):
        self.assertEqual(["reload"], self._notes(arguments="--init --invoke --method=start --plugin=p.json"))


class NoReloadTest(SystemTest):
    """A daemon that cannot be told costs a line; the boot ends well all the same."""

    def _check(self, complaint, setup):
        end = self.host(plugin("p"), _SERVICES, setup=setup).boot("--init")
        self.assertEqual((0, ["p"], [complaint]), (end.status, end.succeeded, end.complaints))

    def test_a_missing_pid_file_is_a_line(self):
        self._check(_NO_FILE, None)

    def test_a_daemon_that_is_gone_is_a_line(self):
        self._check(_NO_PROCESS, f"sh -c 'echo $$' >{_PID_FILE}")

    def test_what_names_no_process_is_a_line_and_nobody_is_signalled(self):
        for text in ("", "none", "0", "1", "-1", "99999999999"):
            with self.subTest(text):
                self._check(_NO_PROCESS, f"echo '{text}' >{_PID_FILE}")
