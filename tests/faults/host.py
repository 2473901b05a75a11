# SPDX-License-Identifier: Apache-2.0
"""The hosts on which the program meets its faults.

The sample host's plugins, debug injections and native plugins, as they are. All that they run is replaced by
a small program that only notes that it ran: what it would do is not what is looked at, and takes time."""

import gzip
import json
import os
import shutil
import subprocess
import sys
import tempfile

_HERE = os.path.dirname(os.path.realpath(__file__))
_ROOT = os.path.join(_HERE, "..", "..")
_SAMPLE = os.path.join(_ROOT, "examples", "host", "root")
_RUNNER = os.path.join(_ROOT, "scripts", "lib", "throwaway-host")
sys.path.insert(0, os.path.join(_ROOT, "tests", "system"))

import harness          # noqa: E402 (the path comes first)
import native_build     # noqa: E402

# These fail on the sample host, too.
_FAILING = ("usr/lib/corvane/hostcli/int/ext/hw.sensors.probe", "etc/init.d/shared-folders")
_REPLACED = ("usr/lib/corvane/hostcli", "usr/lib/corvane/configstore", "usr/lib/corvane/logrelay/bin",
             "etc/init.d")
_KEPT = ("usr/libexec/bootweave/plugins", "etc/corvane/bootweave", "etc/syslog.conf")
_INIT_SCRIPTS = ((5, "entropy-seed"), (10, "heartbeatd"), (10, "timekeepd"), (40, "shared-folders"),
                 (90, "host-report"))

OLD_KEYS = ("old1.0",)
OLD_PROFILE = """\
Mantle Initialization Time: 12000000
[2026-01-01 00:00:00.000000 - 2026-01-01 00:00:00.000001] sysboot: old
=== Bootweave configuration info ===
 Start: 2026-01-01 00:00:00.000000
 End: 2026-01-01 00:00:00.000002
 Verbose: 0
 Parallel: 0
 Randomize: 0
 Interactive Mode: 0
 Random Seed: 1
"""


def _put(tree, path, content, mode=0o644):
    place = os.path.join(tree, path.lstrip("/"))
    os.makedirs(os.path.dirname(place), exist_ok=True)
    with open(place, "wb") as file:
        file.write(content if isinstance(content, bytes) else content.encode())
    os.chmod(place, mode)


def _read(path):
    with open(path, "rb") as file:
        return file.read()


def _files_below(path):
    if os.path.isfile(path):
        yield path
    for directory, _, names in os.walk(path):
        yield from (os.path.join(directory, name) for name in names)


def _make_tree(tree, tools):
    stand_ins = [_read(os.path.join(tools, f"standIn{status}")) for status in (0, 1)]
    for top in (*_REPLACED, *_KEPT):
        for source in _files_below(os.path.join(_SAMPLE, top)):
            path = os.path.relpath(source, _SAMPLE)
            if top in _KEPT:
                _put(tree, path, _read(source))
            else:
                _put(tree, path, stand_ins[path in _FAILING], 0o755)
    for path, content in native_build.sample_plugins().items():
        _put(tree, path, content)
    # Its three injections, with commands that leave a note.
    _put(tree, "/etc/corvane/bootweave/debug.conf", "".join(
        ":".join([*line.split(":")[:3], "exec /usr/lib/faults/note " + line.split(":")[0]]) + "\n"
        for line in _read(os.path.join(_SAMPLE, "etc/corvane/bootweave/debug.conf")).decode().splitlines()))
    _put(tree, "/usr/lib/faults/note", stand_ins[0], 0o755)
    _put(tree, "/bin/chkconfig", "#!/bin/sh\ncat <<'EOF'\n" + "".join(
        f"/etc/init.d/{name} {priority}\n" for priority, name in _INIT_SCRIPTS) + "EOF\n", 0o755)
    _put(tree, "/usr/lib/faults/faultInjector", _read(os.path.join(tools, "faultInjector")), 0o755)
    _put(tree, "/usr/lib/faults/on_host.py", _read(os.path.join(_HERE, "on_host.py")), 0o755)
    _put(tree, "/usr/lib/faults/seeds/sysboot.log", OLD_PROFILE)
    record = "bootweave.run-once=" + "".join(key + "," for key in OLD_KEYS) + "\n"
    _put(tree, "/usr/lib/faults/seeds/bootweav.gz", gzip.compress(record.encode(), mtime=0))
    for directory in ("bootbank", "var/log", "var/lib/corvane"):
        os.makedirs(os.path.join(tree, directory), exist_ok=True)


class Tree:
    """What lies on the hosts: a directory that all of them share, gone at the end."""

    def __init__(self, stage, tools):
        """
        :param stage: staging directory into which the program was installed
        :param tools: directory of the built faultInjector and stand-ins
        """
        os.environ[harness.STAGE_VARIABLE] = stage
        self.stage = stage
        self.path = tempfile.mkdtemp(prefix="bootweave-faults-")
        _make_tree(self.path, tools)

    def __enter__(self):
        return self

    def __exit__(self, *_):
        shutil.rmtree(self.path, ignore_errors=True)


class Host:
    """A host that runs jobs, one after the other; ended by close()."""

    def __init__(self, tree, number=0):
        """
        :param number: of this one among the hosts that run at the same time; each gets a processor
        """
        processors = sorted(os.sched_getaffinity(0))
        self._process = subprocess.Popen(
            [_RUNNER, "--die-with-parent", "--install", tree.stage, "--tree", tree.path, "--",
             "/usr/lib/faults/on_host.py", str(processors[number % len(processors)])],
            stdin=subprocess.PIPE, stdout=subprocess.PIPE, text=True)

    def run(self, arguments, fault=None, record=False):
        """Runs the program once; returns what on_host.py tells."""
        job = {"arguments": arguments, "fault": fault, "record": record}
        self._process.stdin.write(json.dumps(job) + "\n")
        self._process.stdin.flush()
        answer = self._process.stdout.readline()
        if not answer:
            raise RuntimeError("a throw-away host has ended before its time")
        return json.loads(answer)

    def close(self):
        """Ends the host."""
        self._process.stdin.close()
        self._process.wait()
        self._process.stdout.close()
