# SPDX-License-Identifier: Apache-2.0
"""Hosts that boot many times in a row."""

import json
import os
import re
import secrets
import subprocess

from harness import UNTIL, File
from sample_plugins import read_document

_HERE = os.path.dirname(os.path.realpath(__file__))
_TESTS = os.path.dirname(_HERE)
_EXAMPLE = os.path.join(_TESTS, "..", "examples", "host")
_PLACE = "/opt/soak"
_BORROWED = ("deaths/on_host/processes.py", "deaths/on_host/records.py", "system/reference_order.py")

# Gives the command a hierarchy of control groups that is a small part of the machine's own, where there is
# one to be had, and takes all of it away at the end.
_WITH_GROUPS = UNTIL + """
name=$1
shift
mkdir -p /mnt/groups
mount -t cgroup2 none /mnt/groups 2>/dev/null || exec "$@"
place=/mnt/groups$(sed -n 's/^0:://p' /proc/self/cgroup)
own=$place/$name
mkdir "$own" 2>/dev/null || exec "$@"
clean_up() {
    echo $$ >"$place/cgroup.procs"
    find "$own" -name cgroup.procs -exec cat {} + | while read -r left; do
        kill -9 "$left"
    done
    for directory in $(find "$own" -depth -type d); do
        until_ rmdir "$directory"
    done
}
trap clean_up EXIT
echo $$ >"$own/cgroup.procs"
unshare --cgroup sh -c 'mount -t cgroup2 none /sys/fs/cgroup 2>/dev/null; exec "$@"' sh "$@"
"""


def _read(path):
    with open(path, encoding="utf-8") as file:
        return file.read()


def _host(case, files):
    """The sample host with the programs of on_host/ and what they need to know."""
    own = [os.path.join("soak/on_host", name) for name in sorted(os.listdir(os.path.join(_HERE, "on_host")))
           if name.endswith(".py")]
    programs = {f"{_PLACE}/{os.path.basename(path)}": File(_read(os.path.join(_TESTS, path)), 0o755)
                for path in [*own, *_BORROWED]}
    native = {name: read_document(name) for name in
              (re.sub(r"\.c(pp)?$", ".so", source) for source in os.listdir(os.path.join(_EXAMPLE, "native")))
              if name.endswith(".so")}
    programs[f"{_PLACE}/native.json"] = json.dumps(native)
    setup = _read(os.path.join(_EXAMPLE, "setup"))
    programs[f"{_PLACE}/setup"] = File(setup, 0o755)
    return case.sample_host(programs, files, setup=setup)


def soak(case, boots, *files, show=lambda line: None):
    """Boots a sample host so many times; see on_host/boot_again.py.

    :param files: more files for the host, as for SystemTest.host()
    :param show: is called with each line as it is printed
    :return: the exit status, and all lines
    """
    merged = {}
    for mapping in files:
        merged.update(mapping)
    running = _host(case, merged).start(
        "/bin/sh", "-c", _WITH_GROUPS, "sh", f"bootweave-soak-{os.getpid()}-{secrets.token_hex(4)}",
        f"{_PLACE}/boot_again.py", str(boots), timeout=120 + 10 * boots, stderr=subprocess.STDOUT)
    lines = []
    for line in running.process.stdout:
        lines.append(line.decode("utf-8", "replace").rstrip("\n"))
        show(lines[-1])
    return running.finish().status, lines
