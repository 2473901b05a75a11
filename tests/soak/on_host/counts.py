# SPDX-License-Identifier: Apache-2.0
"""What a throw-away host holds: files, processes, and what the kernel keeps for them."""

import collections
import os
import re
import stat
import time

import processes

# Grow with every boot, on purpose; nothing here rotates them. Their sizes are not counted.
_GROWING = (
    "/dev/kmsg",                                # the kernel's log, a plain file on this host
    processes.EXECUTOR_LOG,                     # what host commands print and why they fail
    "/var/log/syslog.log",                      # what the log daemon takes
    "/var/log/logrelayd.log",                   # the log daemon's own words
    "/var/log/obsvd.log",                       # the events of each boot
    "/run/corvane/load",                        # the last sixty samples; a soak is over before there are more
)
# Numbers of processes and the like may get a digit longer.
SLACK = {"bytes but for logs": 4096}

_MEMORY = ("/run", "/tmp", "/dev")
_CONTROL_GROUPS = "/sys/fs/cgroup"
_IPC = ("msg", "sem", "shm")


def _upper_layers():
    """(mount point, directory) of what was written over the machine's files.

    Process 1 holds a descriptor of each such directory, which have no path of their own any more.
    """
    held = {}
    for name in os.listdir("/proc/1/fd"):
        path = f"/proc/1/fd/{name}"
        held[os.readlink(path)] = path
    with open("/proc/self/mountinfo", encoding="utf-8") as table:
        for line in table:
            fields = line.split()
            found = re.search(r"\bupperdir=([^,]+)", fields[-1])
            if found:
                yield fields[4], held[found[1]]


def _below(point, directory):
    """(path on the host, lstat) of all that lies below a directory, but not on other file systems."""
    device = os.stat(directory).st_dev
    work = [directory + "/"]
    while work:
        with os.scandir(work.pop()) as entries:
            for entry in entries:
                try:
                    found = entry.stat(follow_symlinks=False)
                except FileNotFoundError:
                    continue
                yield os.path.join(point, os.path.relpath(entry.path, directory)), found
                if stat.S_ISDIR(found.st_mode) and found.st_dev == device:
                    work.append(entry.path)


def _written():
    """(path, lstat) of all that was written on this host, in memory or over the machine's files."""
    for point, directory in [*_upper_layers(), *((path, path) for path in _MEMORY)]:
        yield from _below(point, directory)


def _files():
    return collections.Counter(path for path, _ in _written())


def _bytes():
    return collections.Counter({path: found.st_size for path, found in _written()
                                if stat.S_ISREG(found.st_mode) and path not in _GROWING})


def _others():
    """All processes but this one, those that nobody has waited for included."""
    numbers = (int(name) for name in os.listdir("/proc") if name.isdigit())
    found = (processes.look_at(number) for number in numbers if number != os.getpid())
    return [process for process in found if process is not None]


def _title(process):
    """One line that tells what a process is."""
    return " ".join(" ".join(process.words).split())[:70] or f"({process.name}, {process.state})"


def _processes():
    return collections.Counter(map(_title, _others()))


def _descriptors():
    found = collections.Counter()
    for process in _others():
        directory = f"/proc/{process.number}/fd"
        try:
            targets = [os.readlink(f"{directory}/{name}") for name in os.listdir(directory)]
        except FileNotFoundError:       # it has ended
            continue
        found.update(f"{_title(process)}: {re.sub(r':.[0-9]+.$', '', target)}" for target in targets)
    return found


def _control_groups():
    """None where this host has none."""
    if not os.path.exists(f"{_CONTROL_GROUPS}/cgroup.procs"):
        return None
    return collections.Counter(path for path, _, _ in os.walk(_CONTROL_GROUPS))


def _sockets():
    with open("/proc/net/unix", encoding="utf-8") as table:
        lines = table.read().splitlines()[1:]
    return collections.Counter((line.split(None, 7) + [""])[7] or "one without a name" for line in lines)


def _ipc():
    found = collections.Counter()
    for kind in _IPC:
        with open(f"/proc/sysvipc/{kind}", encoding="utf-8") as table:
            found[f"System V {kind}"] = len(table.readlines()) - 1
    for directory in "/dev/shm", "/dev/mqueue":
        found.update(f"{directory}/{name}" for name in os.listdir(directory))
    return found


def _mounts():
    with open("/proc/self/mountinfo", encoding="utf-8") as table:
        return collections.Counter(line.split()[4] for line in table)


_KINDS = {"files": _files, "bytes but for logs": _bytes, "processes": _processes,
          "descriptors": _descriptors, "control groups": _control_groups, "sockets": _sockets,
          "IPC objects": _ipc, "mounts": _mounts}


def take():
    """Kind -> Counter of what there is; None for a kind that this host does not have."""
    return {kind: count() for kind, count in _KINDS.items()}


def take_at_rest(seconds=10):
    """The same, once three takes in a row are alike: daemons have then done what the boot has told them.

    Of a host that never comes to rest, the last one.
    """
    deadline = time.monotonic() + seconds
    last, alike = take(), 1
    while alike < 3 and time.monotonic() < deadline:
        time.sleep(0.05)
        before, last = last, take()
        alike = alike + 1 if before == last else 1
    return last


def growth(before, now):
    """Kind -> what has been added, as a text; without kinds of which there is no more than before."""
    texts = {kind: _growth_of(before, now, kind) for kind in before if before[kind] is not None}
    return {kind: text for kind, text in texts.items() if text is not None}


def _growth_of(before, now, kind):
    added = now[kind].total() - before[kind].total()
    if added <= SLACK.get(kind, 0):
        return None
    new = (now[kind] - before[kind]).most_common()
    listed = ", ".join(f"{name} ({number} more)" for name, number in new[:8])
    return f"{added} more: {listed}{', ...' if len(new) > 8 else ''}"
