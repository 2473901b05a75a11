# SPDX-License-Identifier: Apache-2.0
"""Runs on a throw-away host: takes a JSON object that says what to measure, and prints one for each result.

Contender and floor take turns (A B A B). Time is the wall clock; CPU is that of all processes that the
contender has started, daemonised ones, too: this process is where orphans go.
"""

import ctypes
import json
import os
import resource
import subprocess
import sys
import time

import paths
import peers

_PR_SET_CHILD_SUBREAPER = 36
_SOCKET = "/run/corvane/bootweaveExecutor.sock"


def _reap():
    while True:
        try:
            os.wait()
        except ChildProcessError:
            return


def _cpu():
    usage = resource.getrusage(resource.RUSAGE_CHILDREN)
    return usage.ru_utime + usage.ru_stime


def measure(argv):
    """Wall and CPU seconds, until the last process of it is gone for the latter."""
    if os.path.exists(_SOCKET):
        os.unlink(_SOCKET)
    before, started = _cpu(), time.monotonic()
    process = subprocess.Popen(argv, stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL,
                               stderr=subprocess.DEVNULL)
    status = process.wait()
    wall = time.monotonic() - started
    _reap()
    if status != 0:
        raise SystemExit(f"{' '.join(argv)}: exit status {status}")
    return wall, _cpu() - before


class WrongRun(Exception):
    """What a contender did with the units that it should not have done."""


def check(path, argv):
    """Runs noting units. Raises WrongRun unless each ran once, after all that it waits for had ended."""
    if os.path.exists(paths.NOTES):
        os.unlink(paths.NOTES)
    measure(argv)
    begun, ended = {}, {}
    with open(paths.NOTES, encoding="utf-8") as notes:
        for place, line in enumerate(notes):
            what, unit = line.split()
            times = begun if what == "b" else ended
            if int(unit) in times:
                raise WrongRun(f"ran {unit} twice")
            times[int(unit)] = place
    if sorted(ended) != list(range(path.count)) or sorted(begun) != sorted(ended):
        raise WrongRun(f"ran {len(ended)} of {path.count}")
    for unit in range(path.count):
        late = [other for other in path.providers(unit) if ended[other] > begun[unit]]
        if late:
            raise WrongRun(f"ran {unit} too early")


def _take_turns(argv, floor, pairs):
    """One turn of each first: both are in the caches from the first pair on."""
    measure(argv)
    measure(floor)
    return [[*measure(argv), *measure(floor)] for _ in range(pairs)]


def orchestration(path, shape, units, mode, pairs, contenders):
    """The same units by bootweave and by each peer, against a spawn-and-wait loop over them."""
    way = paths.PATHS[path](shape, units, mode == "parallel")
    commands = {"bootweave": lambda _: way.argv(), **peers.PEERS}
    for contender in contenders:
        way.prepare(noting=True)
        command = commands[contender](way)
        if command is None:
            continue
        try:
            check(way, command)
        except WrongRun as error:
            if contender == "bootweave":
                raise SystemExit(f"bootweave {error}") from error
            yield {"contender": contender, "failure": str(error)}
            continue
        way.prepare(noting=False)
        yield {"contender": contender, "pairs": _take_turns(commands[contender](way), way.floor(), pairs)}


def schedule(shape, pairs, contenders):
    """Sleeping units, as shell commands: how near the best possible schedule a run comes."""
    processors = "/sys/devices/system/cpu/online"
    way = paths.SLEEPERS[shape]()
    with open("/run/online", "w", encoding="ascii") as file:
        file.write(f"0-{way.jobs // 2 - 1}\n")         # two workers for each
    subprocess.run(["mount", "--bind", "/run/online", processors], check=True)
    commands = {"bootweave": lambda _: way.argv(), **peers.PEERS}
    for contender in contenders:
        way.prepare(noting=True)
        check(way, commands[contender](way))
        way.prepare(noting=False)
        yield {"contender": contender, "bound": way.bound(),
               "pairs": _take_turns(commands[contender](way), way.floor(), pairs)}


def _peak_memory(argv):
    """The most that the program itself has had resident, in KiB."""
    if os.path.exists(_SOCKET):
        os.unlink(_SOCKET)
    peak = subprocess.run([f"{paths.TOOLS}/peak", *argv], stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
                          check=True)
    _reap()
    return int(peak.stdout)


def fixed(pairs):
    """What a run costs before its first plugin, and what it keeps in memory."""
    way = paths.Json("wide", 1000, True)
    way.prepare(noting=False)
    many = [_peak_memory(way.argv()) for _ in range(pairs)]
    small = [_peak_memory(["/bin/true"]) for _ in range(pairs)]
    yield {"what": "memory", "pairs": [[a, b] for a, b in zip(many, small)]}
    paths.empty_plugins()
    # One of them is too short for the clock, but an executor's socket is in the way of a second plain run.
    hundred = [f"{paths.TOOLS}/floor", "100", "1"]
    true = [*hundred, "/bin/true"]
    yield {"what": "help", "pairs": _take_turns([*hundred, paths.PROGRAM, "--help"], true, pairs)}
    yield {"what": "empty", "pairs": [[*measure([paths.PROGRAM]), *(value / 100 for value in measure(true))]
                                      for _ in range(pairs)]}
    way = paths.Json("layers", 10000, False)
    way.prepare(noting=False)
    yield {"what": "discovery", "pairs": _take_turns([paths.PROGRAM, "--dump-dependency-tree=/dev/null"],
                                                     [f"{paths.TOOLS}/load_files", paths.PLUGINS], pairs)}


def growth(shape, units, pairs):
    """Plugins that do nothing: time per plugin, and what the records of them take."""
    paths.prepare_idle(shape, units)
    run, dump = [], []
    for _ in range(pairs):
        run.append(measure([paths.PROGRAM, "--init"]))
        dump.append(measure([paths.PROGRAM, "--dump-dependency-tree=/run/graph"]))
    yield {"run": run, "dump": dump, "log_bytes": os.path.getsize("/var/log/sysboot.log"),
           "dot_bytes": os.path.getsize("/run/graph")}


def main():
    wanted = json.loads(sys.argv[1])
    ctypes.CDLL(None).prctl(_PR_SET_CHILD_SUBREAPER, 1, 0, 0, 0)
    for directory in "/run/corvane", "/bootbank", "/etc/corvane/bootweave":
        os.makedirs(directory, exist_ok=True)
    kinds = {"orchestration": orchestration, "schedule": schedule, "fixed": fixed, "growth": growth}
    for result in kinds[wanted.pop("kind")](**wanted):
        print(json.dumps(result), flush=True)


main()
