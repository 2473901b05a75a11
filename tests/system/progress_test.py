# SPDX-License-Identifier: Apache-2.0
"""What the service manager and the boot splash get to see of a boot."""

from harness import UNTIL, File, SystemTest, command, plugin

_STATUS = "STATUS=Activating Bootweave Plugins"

# Binds a datagram socket of this name, runs the program, and prints each message that came.
_MANAGER = {"/opt/manager": File("""#!/usr/bin/python3 -IS
import os, socket, subprocess, sys
name = sys.argv[1]
with socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM) as notify:
    notify.bind("\\0" + name[1:] if name.startswith("@") else name)
    if len(sys.argv) > 2:       # fill it up first
        with socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM) as sender:
            try:
                while True:
                    sender.sendto(b"full", socket.MSG_DONTWAIT, notify.getsockname())
            except BlockingIOError:
                pass
    status = subprocess.run(["bootweave", "--init"], env=dict(os.environ, NOTIFY_SOCKET=name),
                            stdout=subprocess.DEVNULL).returncode
    try:
        while True:
            print(notify.recv(4096, socket.MSG_DONTWAIT).decode())
    except BlockingIOError:
        sys.exit(status)
""", 0o755)}

# Listens where the splash's daemon does, and then runs a command.
_SPLASH = {"/opt/splash": File("""#!/usr/bin/python3 -IS
import socket, subprocess, sys
with socket.socket(socket.AF_UNIX) as splash:
    splash.bind("\\0/org/freedesktop/plymouthd")
    splash.listen()
    sys.exit(subprocess.run(sys.argv[1:]).returncode)
""", 0o755)}


class ServiceManagerTest(SystemTest):
    def test_the_progress_text_is_sent_and_the_empty_status_is_not(self):
        for name in "/run/notify", "@manager/notify":
            with self.subTest(name):
                end = self.host(_MANAGER, plugin("a")).run("/opt/manager", name)
                self.assertEqual((0, [_STATUS], ["a"]), (end.status, end.stdout.splitlines(), end.succeeded))

    def test_a_manager_that_never_reads_holds_up_nothing(self):
        end = self.host(_MANAGER, plugin("a")).run("/opt/manager", "/run/notify", "full", timeout=20)
        self.assertEqual((0, ["a"], {"full"}), (end.status, end.succeeded, set(end.stdout.splitlines())))

    def test_a_socket_that_is_not_there_or_no_name_at_all_is_no_matter(self):
        for name in "/run/nowhere", "@nobody", "", "@", "relative", "/" + "x" * 200, "/dev/null", "vsock:2:1":
            with self.subTest(name):
                end = self.host(plugin("a")).boot(environment={"NOTIFY_SOCKET": name})
                self.assertEqual((0, ["a"], []), (end.status, end.succeeded, end.complaints))


class SplashTest(SystemTest):
    def _client(self, script):
        return {"/usr/bin/plymouth": File(f"#!/bin/sh\n{script}\n", 0o755)}

    def test_the_progress_text_goes_to_the_splash(self):
        end = self.host(_SPLASH, plugin("a"), self._client('echo "$*" >>/run/shown')).run(
            "/bin/sh", "-c", UNTIL + "/opt/splash bootweave; until_ test -s /run/shown")
        self.assertEqual(0, end.status)
        self.assertEqual("display-message --text=Activating Bootweave Plugins",
                         end.read("/run/shown").splitlines()[0])

    def test_a_client_that_hangs_holds_up_nothing(self):
        end = self.host(_SPLASH, plugin("a"), self._client("exec sleep 1000")).run(
            "/opt/splash", "bootweave", timeout=20)
        self.assertEqual((0, ["a"]), (end.status, end.succeeded))

    def test_without_a_client_the_boot_is_the_same(self):
        end = self.host(_SPLASH, plugin("a", ["x"]), command("x", "true")).run("/opt/splash", "bootweave")
        self.assertEqual((0, ["a"], []), (end.status, end.succeeded, end.complaints))

    def test_without_a_splash_no_client_runs(self):
        end = self.host(plugin("a"), self._client("touch /run/shown")).boot()
        self.assertIsNone(end.read("/run/shown"))
