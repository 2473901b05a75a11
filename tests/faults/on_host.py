#!/usr/bin/python3 -IS
# SPDX-License-Identifier: Apache-2.0
"""Runs the program on a throw-away host, again and again, and tells what came of each run.

Reads one JSON object per line, {"arguments": [...], "fault": [NAME, CALL, TURN, ERRNO] or null, "record":
bool}, and answers with one per line, with the keys of _observe(). Each run finds the host as the first one
did."""

import base64
import json
import os
import re
import select
import signal
import socket
import stat
import subprocess
import sys
import threading
import time

_PLACE = "/run/faults"
_JOURNAL = f"{_PLACE}/journal"
_REPORT = f"{_PLACE}/report"
_INJECTOR = "/usr/lib/faults/faultInjector"
_PROGRAM = "/usr/sbin/bootweave"
_OWN = ("/usr/lib/corvane/bootweave/nativeReader", "/usr/lib/corvane/bootweave/nativeExecutor")
_PROFILE = "/var/log/sysboot.log"
_RECORD = "/bootbank/bootweav.gz"
_EXECUTOR_LOG = "/var/log/bootweave-hostcli-stdout.log"
_RUN = "/run/corvane"
_SEEDS = "/usr/lib/faults/seeds"            # what an earlier boot has left: the profile and the record

# Longer than all that the program waits for by itself, several times over.
_MOST_SECONDS = 60
# For what the program has started and not waited for.
_SECONDS_TO_END = 10


class SystemLog(threading.Thread):
    """Takes what is sent to /dev/log."""

    def __init__(self):
        super().__init__(daemon=True)
        self._socket = socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM)
        self._socket.bind("/dev/log")
        self._messages = []

    def run(self):
        while True:
            message = self._socket.recv(1 << 16)
            self._messages.append(message)

    def take(self):
        """Returns what has come since the last time, and forgets it."""
        # A datagram of this process's own comes behind all that are there already.
        end = os.urandom(16)
        with socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM) as own:
            own.connect("/dev/log")
            own.send(end)
        while not self._messages or self._messages[-1] != end:
            time.sleep(0.0005)
        taken, self._messages = self._messages[:-1], []
        return [message.decode("utf-8", "replace") for message in taken]


class LogDaemon:
    """Stands in for the log daemon as far as it is told to reload."""

    def __init__(self):
        self.reloads = 0
        signal.signal(signal.SIGUSR1, self._reload)

    def _reload(self, *_):
        self.reloads += 1

    def take(self):
        reloads, self.reloads = self.reloads, 0
        return reloads


def _read(path):
    try:
        with open(path, "rb") as file:
            return file.read().decode("utf-8", "replace")
    except FileNotFoundError:
        return None


def _write(path, content):
    with open(path, "wb") as file:
        file.write(content)


def _clear(directory, pattern=r".*"):
    for name in os.listdir(directory):
        path = os.path.join(directory, name)
        if re.fullmatch(pattern, name) and not stat.S_ISDIR(os.lstat(path).st_mode):
            os.unlink(path)


def _prepare():
    _clear("/var/log", r"sysboot\.log.*|bootweave-hostcli-stdout\.log")
    for directory in ("/bootbank", _RUN, _PLACE, "/var/lib/corvane"):
        os.makedirs(directory, exist_ok=True)
        _clear(directory)
    for path in (_PROFILE, _RECORD):
        with open(os.path.join(_SEEDS, os.path.basename(path)), "rb") as seed:
            _write(path, seed.read())
        os.chmod(path, 0o640)
    _write(f"{_RUN}/logrelayd.pid", b"%d\n" % os.getpid())
    _write("/dev/kmsg", b"")


def _processes():
    """Everybody on the host but process 1 and this one: {pid: (state, command line)}."""
    found = {}
    for name in os.listdir("/proc"):
        if not name.isdigit() or int(name) in (1, os.getpid()):
            continue
        try:
            with open(f"/proc/{name}/stat", encoding="utf-8", errors="replace") as file:
                fields = file.read().rpartition(") ")[2].split()
            with open(f"/proc/{name}/cmdline", "rb") as file:
                words = file.read().decode("utf-8", "replace").replace("\0", " ").strip()
        except (FileNotFoundError, ProcessLookupError):
            continue
        found[int(name)] = (fields[0], words)
    return found


def _end_all():
    """Ends whoever is left; returns once they are gone."""
    while processes := _processes():
        for process in processes:
            try:
                os.kill(process, signal.SIGKILL)
            except ProcessLookupError:
                pass
        time.sleep(0.001)


def _await_others(left):
    """Waits for what ends by itself; returns those that do not and are not known to be left."""
    deadline = time.monotonic() + _SECONDS_TO_END
    while True:
        others = {process: what for process, what in _processes().items() if process not in left}
        if not others or time.monotonic() > deadline:
            return [f"{words} ({state})" for state, words in others.values()]
        time.sleep(0.001)


def _await_end(process):
    """Whether a process ends in time. Not Popen.wait, which looks every twentieth of a second."""
    descriptor = os.pidfd_open(process)
    try:
        return bool(select.select([descriptor], [], [], _MOST_SECONDS)[0])
    finally:
        os.close(descriptor)


def _inject(job):
    """Runs the program once; returns (exit status or None, report)."""
    words = [_INJECTOR, "--report", _REPORT]
    for path in _OWN:
        words += ["--own", path]
    if job["record"]:
        words += ["--record"]
    if job["fault"] is not None:
        words += ["--fault", *map(str, job["fault"])]
    words += ["--", _PROGRAM, *job["arguments"]]
    with open(f"{_PLACE}/stdout", "wb") as stdout, open(f"{_PLACE}/stderr", "wb") as stderr:
        process = subprocess.Popen(words, stdin=subprocess.DEVNULL, stdout=stdout, stderr=stderr, cwd="/",
                                   env={"PATH": "/usr/sbin:/usr/bin:/sbin:/bin", "LANG": "C.UTF-8"})
        ended = _await_end(process.pid)
        if not ended:
            process.kill()
        status = process.wait() if ended else None
    report = [line.split("\t") for line in (_read(_REPORT) or "").splitlines()]
    return status, report


def _observe(job, system_log, log_daemon):
    _prepare()
    started = time.monotonic()
    status, report = _inject(job)
    seconds = time.monotonic() - started
    left = {int(fields[2]): fields[1] for fields in report if fields[0] == "left"}
    others = [] if status is None else _await_others(left)
    hanging = [f"{words} ({state})" for state, words in _processes().values()] if status is None else []
    _end_all()
    record = None
    if os.path.exists(_RECORD):
        with open(_RECORD, "rb") as file:
            record = base64.b64encode(file.read()).decode()
    return {
        "status": status,               # None: it hung
        "seconds": seconds,
        "report": report,               # of the injector, see tracer.h
        "left": sorted(left.values()),  # of the program's own processes
        "others": others,               # other processes that do not end
        "hanging": hanging,
        "stdout": _read(f"{_PLACE}/stdout"),
        "stderr": _read(f"{_PLACE}/stderr"),
        "executor_log": _read(_EXECUTOR_LOG),
        "syslog": system_log.take(),
        "kernel": _read("/dev/kmsg"),
        "journal": _read(_JOURNAL),
        "profile": _read(_PROFILE),
        "record": record,
        "reloads": log_daemon.take(),
        "files": {path: stat.filemode(os.lstat(path).st_mode)
                  for directory in ("/bootbank", _RUN, "/var/lib/corvane", "/var/log")
                  for path in sorted(os.path.join(directory, name) for name in os.listdir(directory))
                  if directory != "/var/log" or path.startswith((_PROFILE, _EXECUTOR_LOG))},
    }


def main():
    # A process that is followed stops at each call: five times as fast where that wakes no other processor.
    os.sched_setaffinity(0, {int(sys.argv[1])})
    system_log = SystemLog()
    system_log.start()
    log_daemon = LogDaemon()
    for line in sys.stdin:
        print(json.dumps(_observe(json.loads(line), system_log, log_daemon)), flush=True)


if __name__ == "__main__":
    main()
