# SPDX-License-Identifier: Apache-2.0
"""From the command line to the plugins and back to the exit status."""

from harness import ERROR, NOTICE, PLUGINS, WARNING, File, SystemTest, command, plugin
from init_scripts import PROFILE
from probe import DRIVER

_SOCKET = "/run/corvane/bootweaveExecutor.sock"
_NO_DIRECTORY = ("Failed to initialize bootweave: filesystem error: "
                 "directory iterator cannot open directory: {} [{}]")

# The program must not go on to any of these after a start that has failed.
_STORE = {f"/usr/lib/corvane/configstore/{name}": File(f"#!/bin/sh\necho {name} >>/run/store\n", 0o755)
          for name in ("end-auto-conf", "cleanup-boot-state")}

_NOTE_DRIVER = DRIVER + """
echo "directory $(readlink /proc/$(driver)/cwd)"
read -r process name state parent group session rest </proc/$(driver)/stat
[ "$process" = "$session" ] && echo leads a session
"""


class RunTest(SystemTest):
    def test_a_boot_logs_these_lines_on_standard_output_and_no_others(self):
        end = self.host(plugin("a", ["x"], provides=["up"]), plugin("b", requires=["up"]),
                        command("x", "true")).boot()
        self.assertEqual(["Launching Executor", "Setting up Executor - Reset Requested",
                          "executing start plugin: a", "executing start plugin: b",
                          "Executor has been Successfully Stopped"], end.messages)
        self.assertEqual(len(end.log), len(end.stdout.splitlines()))
        self.assertEqual("", end.stderr)

    def test_plugins_that_fail_do_not_change_the_exit_status(self):
        end = self.host(plugin("a", ["no such"]), {f"{PLUGINS}/b.json": ""}).boot("--init")
        self.assertEqual((0, ["a"]), (end.status, list(end.failed)))

    def test_the_program_works_in_the_root_directory_and_in_a_session_of_its_own(self):
        end = self.host(plugin("a", ["x"]), command("x", _NOTE_DRIVER)).shell("cd /usr; bootweave; true")
        self.assertEqual(["directory /", "leads a session"], end.command_output)

    def test_a_session_leader_says_that_it_cannot_lead_another_one_and_goes_on(self):
        end = self.host(plugin("a")).run("setsid", "--wait", "bootweave")
        self.assertIn((NOTICE, "unable to create session: Operation not permitted."), end.said)
        self.assertEqual((0, ["a"]), (end.status, end.succeeded))

    def test_invoke_mode_runs_the_named_plugins_only(self):
        end = self.host(plugin("a"), plugin("b"), plugin("c")).boot(
            "--invoke", "--method=start", "--plugin=c.json,a.json")
        self.assertEqual((0, ["c", "a"]), (end.status, end.succeeded))

    def test_invoke_mode_knows_the_run_once_names_that_it_is_given(self):
        files = [plugin(name, version=3, run_once=True, plugin_version="1") for name in "ab"]
        end = self.host(*files).boot("--invoke", "--method=start", "--plugin=a.json,b.json", "--run-once=a1")
        self.assertEqual(["b"], end.succeeded)

    def test_a_plugin_of_invoke_mode_does_not_wait_for_those_that_are_not_named(self):
        end = self.host(plugin("a", provides=["up"]), plugin("b", requires=["up"])).boot(
            "--invoke", "--method=start", "--plugin=b.json")
        self.assertEqual((0, ["b"]), (end.status, end.succeeded))


class FailedStartTest(SystemTest):
    """An executor that cannot be started ends the run at once with status 1; nothing else has been done."""

    def _check(self, reason, setup=None, last="Failed to start executor Bootweave executor failed to start"):
        host = self.host(plugin("a"), _STORE, setup=setup)
        end = host.boot("--init", "--plugin=a.json")
        self.assertEqual((1, []), (end.status, end.kernel))
        self.assertEqual([(ERROR, f"Unable to start executor: {reason}"), (WARNING, last)],
                         end.complaints[2:])        # the first two are about the missing services
        self.assertEqual(["Launching Executor", "Setting up Executor - Reset Requested", last], end.messages)
        self.assertEqual([f"Unable to start executor: {reason}"], end.executor_messages)
        self.assertIsNone(end.read("/run/store"))

    def test_a_socket_file_that_was_left_behind_is_not_removed(self):
        self._check("Failed to bind to executor control socket: Address already in use",
                    f"python3 -c 'import socket; socket.socket(socket.AF_UNIX).bind(\"{_SOCKET}\")'")

    def test_any_file_in_the_sockets_place_is_in_the_way(self):
        self._check("Failed to bind to executor control socket: Address already in use", f"touch {_SOCKET}")

    def test_the_sockets_directory_is_not_made(self):
        self._check("Failed to bind to executor control socket: No such file or directory",
                    "rmdir /run/corvane")

    def test_the_sockets_directory_may_be_read_only(self):
        self._check("Failed to bind to executor control socket: Read-only file system",
                    "mount -t tmpfs -o ro,mode=755 none /run/corvane")

    def test_the_sockets_directory_may_be_full(self):
        self._check("Failed to bind to executor control socket: No space left on device",
                    "mount -t tmpfs -o nr_inodes=1,mode=755 none /run/corvane")

    def test_a_second_boot_needs_the_socket_file_removed(self):
        end = self.host(plugin("a")).shell(
            f"bootweave >/dev/null && ! bootweave && rm {_SOCKET} && bootweave")
        self.assertEqual(0, end.status)
        self.assertEqual(["a", "a"], end.succeeded)
        self.assertEqual((ERROR, "Unable to start executor: Failed to bind to executor control socket: "
                                 "Address already in use"), end.complaints[0])


class OutermostHandlerTest(SystemTest):
    """What nobody else handles ends the run with one line and status 1; what comes later is left out."""

    def _check(self, message, *arguments, files=()):
        end = self.host(_STORE, *files).boot(*arguments)
        self.assertEqual((1, [(WARNING, message)], []), (end.status, end.complaints, end.kernel))
        self.assertEqual(["Launching Executor", "Setting up Executor - Reset Requested", message],
                         end.messages)
        self.assertIsNone(end.read("/run/store"))
        return end

    def test_a_missing_plugin_directory_ends_the_run(self):
        self._check(_NO_DIRECTORY.format("No such file or directory", "/no/where"),
                    "--plugin-directory=/no/where")

    def test_a_plugin_directory_that_is_a_file_ends_the_run(self):
        self._check(_NO_DIRECTORY.format("Not a directory", "/opt/file"), "--plugin-directory=/opt/file",
                    files=[{"/opt/file": ""}])

    def test_a_missing_plugin_directory_does_not_matter_when_plugins_are_named(self):
        end = self.host().boot("--plugin-directory=/no", "--plugin=a.json")
        self.assertEqual(0, end.status)
        self.assertEqual([(ERROR, "plugin `/no/a.json' is invalid: no such file or directory")],
                         end.complaints)

    def test_neither_records_are_written_nor_the_log_daemon_told_to_reload(self):
        upgrade = "/usr/lib/corvane/logrelay/bin/upgrade-syslog.conf.sh"
        end = self.host({"/etc/syslog.conf": "", upgrade: File("#!/bin/sh\ntouch /run/upgraded\n", 0o755),
                         PROFILE: "old\n"}).boot("--init", "--plugin-directory=/no/where")
        self.assertEqual((1, "old\n", None, None), (end.status, end.read(PROFILE), end.read("/run/upgraded"),
                                                    end.read("/bootbank/bootweav.gz")))
        self.assertEqual((WARNING, _NO_DIRECTORY.format("No such file or directory", "/no/where")),
                         end.complaints[-1])

    def test_the_executor_is_left_running(self):
        end = self.host(plugin("a", ["x"]), command("x", "echo ran")).shell(
            "bootweave --plugin-directory=/no/where; bootweave")
        self.assertEqual((0, ["ran"]), (end.status, end.command_output))
        self.assertEqual(1, end.messages.count("Setting up Executor - Reset Requested"))
        # The second start finds it by a connection that says nothing, which is a request like any other.
        self.assertEqual(["Executor Reset - polling for commands",
                          "Executor was unable to parse command: empty command",
                          "Executor failed to parse command ",
                          "Sending command status to bootweave failed",
                          "Bootweave executor signalled to stop"], end.executor_messages)
