# SPDX-License-Identifier: Apache-2.0
"""Daemons of Debian packages, started and stopped by the init scripts that their packages bring.

The host is a Debian tree (scripts/lib/debian-tree) to which nothing but the program and the link to its
lister is added. It is looked at from outside: what answers on its network, and what its processes are.
"""

import datetime
import hashlib
import json
import os
import re
import secrets
import tarfile

from harness import PROGRAM, STAGE_VARIABLE, UNTIL, SystemTest
from packed import packed

TREE_VARIABLE = "BOOTWEAVE_DEBIAN_TREE"

_HERE = os.path.dirname(os.path.realpath(__file__))
_LISTER = "/usr/libexec/bootweave/chkconfig"
_NO_GROUPS = 77
_PROFILE_LINE = re.compile(r"\[(\S+ \S+) - (\S+ \S+)\] daemon: (.*)")

# Init script -> the program that it starts, as its processes show it.
_DAEMONS = {
    "atd": "/usr/sbin/atd",
    "cron": "/usr/sbin/cron",
    "dbus": "/usr/bin/dbus-daemon",
    "haveged": "/usr/sbin/haveged",
    "inetutils-syslogd": "/usr/sbin/syslogd",
    "memcached": "/usr/bin/memcached",
    "nginx": "/usr/sbin/nginx",
    "redis-server": "/usr/bin/redis-check-rdb",      # one program with many names
    "ssh": "/usr/sbin/sshd",
}

# Standard input is the tree. Its control groups are a small part of the machine's own, taken away at the end.
_SCRIPT = UNTIL + """
root=/srv/root token=$1
shift
mkdir "$root"
tar -x -p --numeric-owner -C "$root" || exit
tar -x --no-same-owner -C "$root" -f /srv/stage.tar || exit
ln -s %(lister)s "$root/bin/chkconfig"
for directory in proc dev; do mount --rbind /$directory "$root/$directory"; done
mount -t tmpfs -o mode=755 none "$root/run"
mkdir -p "$root/run/lock"
mount -t tmpfs -o mode=755 none "$root/sys"
mkdir -p "$root/sys/fs/cgroup"
ip link set lo up
mkdir -p /mnt/groups
mount -t cgroup2 none /mnt/groups 2>/run/reason || { cat /run/reason; exit 77; }
place=/mnt/groups$(sed -n 's/^0:://p' /proc/self/cgroup)
own=$place/bootweave-test-$token
mkdir "$own" 2>/run/reason || { cat /run/reason; exit 77; }
clean_up() {
    echo $$ >"$place/cgroup.procs"
    find "$own" -name cgroup.procs -exec cat {} + | while read -r pid; do kill -9 "$pid"; done
    for directory in $(find "$own" -depth -type d); do
        until_ rmdir "$directory"
    done
}
trap clean_up EXIT
echo $$ >"$own/cgroup.procs" || exit 77
unshare --cgroup sh -c '
    root=$1
    shift
    mount -t cgroup2 none "$root/sys/fs/cgroup" || exit 77
    daemons() { chroot "$root" %(program)s --daemon=wait --method="$@" || exit; }
    look() { python3 -IS /srv/look.py "$root" >"/run/look.$1"; }
    eval "$1"
' sh "$root" "$@"
"""


def _moment(text):
    return datetime.datetime.fromisoformat(text)


def _name_of(process):
    """The init script that has started a process, by its program."""
    return {program: name for name, program in _DAEMONS.items()}.get(process["program"], process["program"])


def _names(end, pattern):
    """What a pattern finds in the messages of all runs."""
    found = (re.fullmatch(pattern, message) for message in end.messages)
    return [match[1] for match in found if match]


class DaemonsTest(SystemTest):
    def _run(self, script):
        self.need_users()
        with open(os.path.join(_HERE, "look.py"), encoding="utf-8") as look:
            host = self.host({"/srv/stage.tar": packed(os.environ[STAGE_VARIABLE]),
                              "/srv/look.py": look.read()}, syslog=False)
        with open(os.environ[TREE_VARIABLE], "rb") as tree:
            end = host.shell(_SCRIPT % {"lister": _LISTER, "program": PROGRAM}, "sh",
                             f"{os.getpid()}-{secrets.token_hex(4)}", script, timeout=300, stdin=tree)
        if end.status == _NO_GROUPS:
            self.skipTest(f"no control groups to be had here: {end.stdout.strip()}")
        self.assertEqual(0, end.status, end.stderr)
        return end

    def _looks(self, script):
        """What was seen when the script wrote "look NAME", by that name; and the run's end."""
        end = self._run(script)
        names = re.findall(r"\blook (\w+)", script)
        return {name: json.loads(end.read(f"/run/look.{name}")) for name in names}, end

    def test_the_init_scripts_are_those_of_the_packages(self):
        with tarfile.open(os.environ[TREE_VARIABLE]) as tree:
            books = tree.extractfile("./var/lib/dpkg/status").read().decode()
            digests = dict(re.findall(r"^ /etc/init\.d/(\S+) ([0-9a-f]{32})$", books, re.MULTILINE))
            for name in _DAEMONS:
                script = tree.extractfile(f"./etc/init.d/{name}").read()
                self.assertEqual(digests[name], hashlib.md5(script, usedforsecurity=False).hexdigest(), name)

    def test_each_runs_and_answers_in_a_control_group_of_its_own(self):
        looks, end = self._looks("daemons start; look started")
        self.assertEqual({f"{name}: /init/{name}" for name in _DAEMONS},
                         {f"{_name_of(process)}: {process['group']}"
                          for process in looks["started"]["processes"]})
        answers = looks["started"]["answers"]
        self.assertRegex(answers["nginx"], r"^HTTP/1\.1 200 OK\r\n")
        self.assertRegex(answers["ssh"], r"^SSH-2\.0-")
        self.assertEqual("+PONG\r\n", answers["redis-server"])
        self.assertRegex(answers["memcached"], r"^VERSION \d")
        self.assertRegex(answers["dbus"], r"^OK [0-9a-f]{32}\r\n")
        running = {str(process["pid"]): _name_of(process) for process in looks["started"]["processes"]}
        self.assertEqual(["cron", "atd", "haveged"],
                         [running.get(looks["started"]["pid_files"][name])
                          for name in ("crond.pid", "atd.pid", "haveged.pid")])
        self.assertEqual(sorted(_DAEMONS), sorted(_names(end, r"(.*) started\.")))

    def test_the_program_s_own_messages_are_in_the_log_of_the_daemon_that_it_has_started(self):
        end = self._run("daemons start; cat $root/var/log/daemon.log >/run/daemon.log")
        log = end.read("/run/daemon.log")
        for name in _DAEMONS:
            self.assertRegex(log, rf"bootweave\[\d+\]: {name} started\.")

    def test_a_second_start_leaves_them_as_they_are(self):
        looks, end = self._looks("daemons start; look once; daemons start; look twice")
        self.assertEqual(looks["once"]["processes"], looks["twice"]["processes"])
        self.assertNotEqual([], looks["once"]["processes"])
        self.assertEqual(sorted(2 * list(_DAEMONS)), sorted(_names(end, r"(.*) started\.")))

    def test_after_a_stop_all_are_gone_and_can_be_started_again(self):
        looks, end = self._looks("daemons start; daemons stop; look stopped; daemons start; look again")
        self.assertEqual([], looks["stopped"]["processes"])
        self.assertEqual({None}, set(looks["stopped"]["answers"].values()))
        self.assertEqual(sorted(_DAEMONS), sorted(_names(end, r"(.*) stopped\.")))
        self.assertEqual(set(_DAEMONS), set(map(_name_of, looks["again"]["processes"])))
        self.assertNotIn(None, looks["again"]["answers"].values())

    def test_the_packages_own_priorities_are_the_order_of_starts_and_the_opposite_one_of_stops(self):
        priorities = self._priorities_of_the_packages()
        self.assertLess(priorities["inetutils-syslogd"], priorities["cron"])
        self._check_order("", priorities)

    def test_the_priorities_of_the_host_s_owner_are_the_order_too(self):
        # Others than those that the packages chose, and not in the order of the names.
        priorities = {name: 90 - 7 * place for place, name in enumerate(sorted(_DAEMONS))}
        self._check_order("rm $root/etc/rc[2-5].d/S*\n" + "".join(
            f"ln -s ../init.d/{name} $root/etc/rc2.d/S{priority}{name}\n"
            for name, priority in priorities.items()), priorities)

    def _check_order(self, setup, priorities):
        end = self._run(setup + """
            echo block >$root/var/log/sysboot.log      # as a boot leaves one
            daemons start --parallel; daemons stop --parallel; cat $root/var/log/sysboot.log >/run/profile""")
        blocks = end.read("/run/profile").split("=== Daemon configuration info ===")
        for block, sign in zip(blocks, (1, -1)):
            runs = [(sign * priorities[name], _moment(start), _moment(stop))
                    for start, stop, name in _PROFILE_LINE.findall(block)]
            self.assertEqual(len(_DAEMONS), len(runs), block)
            for first, _, stop in runs:
                for second, start, _ in runs:
                    if first < second:
                        self.assertLessEqual(stop, start, block)

    @staticmethod
    def _priorities_of_the_packages():
        with tarfile.open(os.environ[TREE_VARIABLE]) as tree:
            links = re.findall(r"^\./etc/rc2\.d/S(\d\d)(.+)$", "\n".join(tree.getnames()), re.MULTILINE)
        return {name: int(priority) for priority, name in links}
