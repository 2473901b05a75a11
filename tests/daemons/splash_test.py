# SPDX-License-Identifier: Apache-2.0
"""What the boot splash of Debian, in its text modes, shows of bootweave.

The host is a tree of Debian packages with the program and plugins added; the splash has a terminal that is
read from outside.
"""

import os

from harness import PLUGINS, PROGRAM, STAGE_VARIABLE, SystemTest, plugin
from packed import packed

PACKAGES_VARIABLE = "BOOTWEAVE_SPLASH_PACKAGES"

# Runs a command of a tree while the splash shows there; prints what its terminal got.
_TERMINAL = """
import fcntl, os, pty, select, struct, subprocess, sys, termios, time
root, theme, *command = sys.argv[1:]

def of_tree(*command, **options):
    return subprocess.run(["chroot", root, *command], **options).returncode

def read_for(seconds):      # a splash that moves never stops writing
    shown, end = b"", time.monotonic() + seconds
    while (left := end - time.monotonic()) > 0:
        if select.select([terminal], [], [], left)[0]:
            shown += os.read(terminal, 65536)
    return shown

terminal, line = pty.openpty()
fcntl.ioctl(line, termios.TIOCSWINSZ, struct.pack("HHHH", 25, 80, 0, 0))
os.makedirs(f"{root}/etc/plymouth", exist_ok=True)
with open(f"{root}/etc/plymouth/plymouthd.conf", "w") as file:
    file.write(f"[Daemon]\\nTheme={theme}\\nShowDelay=0\\n")
daemon = subprocess.Popen(
    ["chroot", root, "/usr/sbin/plymouthd", "--mode=boot", "--no-daemon", "--tty=" + os.ttyname(line),
     "--kernel-command-line=splash plymouth.ignore-serial-consoles plymouth.ignore-udev"],
    stdin=subprocess.DEVNULL)
while of_tree("plymouth", "--ping") != 0 and daemon.poll() is None:
    read_for(0.1)
showing = subprocess.Popen(["chroot", root, "plymouth", "show-splash"])
shown = read_for(0.5)
showing.wait()
status = of_tree(*command, stdout=sys.stderr)
shown += read_for(2)
sys.stdout.write(shown.decode(errors="replace"))
of_tree("plymouth", "quit")
read_for(0.2)
sys.exit(status)
"""

_SCRIPT = """
root=/srv/root
mkdir "$root"
tar -x --no-same-owner -C "$root" -f /srv/packages.tar || exit
tar -x --no-same-owner -C "$root" -f /srv/stage.tar || exit
for directory in dev proc sys run tmp bootbank var/log %(plugins)s; do mkdir -p "$root/$directory"; done
ln -s /run "$root/var/run"
mkdir -p "$root/run/corvane"
cp %(plugins)s/*.json "$root%(plugins)s/"
for directory in proc dev; do mount --rbind /$directory "$root/$directory"; done
exec python3 -IS /srv/terminal.py "$root" "$1" %(program)s
"""


class SplashTest(SystemTest):
    def _shown(self, theme):
        host = self.host({"/srv/packages.tar": packed(os.environ[PACKAGES_VARIABLE]),
                          "/srv/stage.tar": packed(os.environ[STAGE_VARIABLE]),
                          "/srv/terminal.py": _TERMINAL}, plugin("a"), syslog=False)
        end = host.shell(_SCRIPT % {"plugins": PLUGINS, "program": PROGRAM}, "sh", theme, timeout=120)
        self.assertEqual(0, end.status, end.stderr)
        return end.stdout

    def test_the_details_show_what_the_boot_is_doing(self):
        self.assertIn("Activating Bootweave Plugins\r\n", self._shown("details"))

    def test_the_splash_of_text_shows_it_too(self):
        self.assertIn("Activating Bootweave Plugins", self._shown("text"))
