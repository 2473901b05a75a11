# SPDX-License-Identifier: Apache-2.0
"""The ways to run a unit: what lies on the host for it, and the floor that it is measured against."""

import json
import os
import shutil

import shapes

TOOLS = "/opt/bench"
UNIT = f"{TOOLS}/unit"
PLUGINS = "/usr/libexec/bootweave/plugins"
COMMANDS = "/usr/lib/corvane/hostcli"
SCRIPTS = "/etc/init.d"
PROGRAM = "/usr/sbin/bootweave"
NOTES = "/run/bench-notes"


def _empty(*directories):
    for directory in directories:
        shutil.rmtree(directory, ignore_errors=True)
        os.makedirs(directory)


def _install(source, target):
    if os.path.lexists(target):
        os.unlink(target)
    shutil.copyfile(source, target)
    os.chmod(target, 0o755)


class Path:
    """One way to run units. `jobs` is how many may run at once, in the floor as in the run."""

    def __init__(self, shape, count, parallel):
        self.shape = shape
        self.count = count
        self.parallel = parallel
        self.jobs = 2 * os.cpu_count() if parallel else 1

    def providers(self, unit):
        return shapes.providers(self.shape, self.count, unit)

    def _mode(self):
        return ["--parallel"] if self.parallel else []

    def argv(self):
        return [PROGRAM, "--init", *self._mode()]

    def floor(self):
        jobs = 1 if self.shape == "chain" else self.jobs        # more never run at once in a chain
        return [f"{TOOLS}/floor", str(self.count), str(jobs), *self.words("%")]


class Json(Path):
    """JSON plugins with one host command each. The executor runs one command at a time."""

    def __init__(self, shape, count, parallel):
        super().__init__(shape, count, parallel)
        self.jobs = 1

    def words(self, unit):
        return [f"{COMMANDS}/unit", f"--n={unit}"]

    def prepare(self, noting):
        _empty(PLUGINS, COMMANDS)
        os.makedirs(f"{COMMANDS}/int/ext")
        os.makedirs(f"{COMMANDS}/ext")
        _install(f"{TOOLS}/noting_unit" if noting else UNIT, f"{COMMANDS}/unit")
        for unit in range(self.count):
            plugin = {
                "metadata": {"version": 1, "requires": [f"u{name}" for name in self.providers(unit)],
                             "provides": [] if self.shape == "wide" else [f"u{unit}"]},
                "operations": {"start": [f"unit --n={unit}"]},
            }
            with open(f"{PLUGINS}/u{unit}.json", "w", encoding="utf-8") as file:
                json.dump(plugin, file)


class Debug(Path):
    """Debug injections: a shell command each. The list of what they require may not be empty."""

    def words(self, unit):
        return ["/bin/sh", "-c", f"{TOOLS}/command {unit}"]

    def prepare(self, noting):
        _empty(PLUGINS, "/etc/corvane/bootweave")
        _install(f"{TOOLS}/noting_unit" if noting else UNIT, f"{TOOLS}/command")
        with open("/etc/corvane/bootweave/debug.conf", "w", encoding="utf-8") as file:
            for unit in range(self.count):
                required = ",".join(f"u{name}" for name in self.providers(unit)) or "go"
                file.write(f"d{unit}:{required}:u{unit}:{TOOLS}/command {unit}\n")


class Native(Path):
    """Native plugins: a shared object each."""

    def words(self, unit):
        return [f"{TOOLS}/load_object", f"{PLUGINS}/u{unit}.so"]

    def prepare(self, noting):
        _empty(PLUGINS, "/etc/corvane/bootweave")
        for unit in range(self.count):
            names = self.providers(unit)
            kind = "noting" if noting else "plain"
            with open(f"{TOOLS}/native_{kind}_{len(names)}.so", "rb") as file:
                content = file.read()
            for place, name in enumerate(names):
                content = _fill(content, f"REQUIRED-{place}", f"u{name}")
            with open(f"{PLUGINS}/u{unit}.so", "wb") as file:
                file.write(_fill(content, "PROVIDED-0", f"u{unit}"))


def _fill(content, place, name):
    assert content.count(place.encode()) == 1 and len(name) <= len(place)
    return content.replace(place.encode(), name.encode().ljust(len(place), b"\0"))


class Daemon(Path):
    """Init scripts that end at once, each waited for; a layer of the graph is a start priority."""

    def words(self, unit):
        return [f"{SCRIPTS}/u{unit}", "start"]

    def providers(self, unit):
        above = shapes.layer(self.shape, self.count, unit) - 1
        return [other for other in range(unit) if shapes.layer(self.shape, self.count, other) == above]

    def argv(self):
        return [PROGRAM, "--daemon=wait", "--method=start", *self._mode()]

    def prepare(self, noting):
        _empty(SCRIPTS)
        with open(f"{TOOLS}/list", "w", encoding="utf-8") as file:
            for unit in range(self.count):
                _install(f"{TOOLS}/noting_unit" if noting else UNIT, f"{SCRIPTS}/u{unit}")
                file.write(f"{SCRIPTS}/u{unit} {shapes.layer(self.shape, self.count, unit)}\n")
        with open("/bin/chkconfig", "w", encoding="utf-8") as file:
            file.write(f"#!/bin/sh\nexec cat {TOOLS}/list\n")
        os.chmod("/bin/chkconfig", 0o755)


class Sleeper(Debug):
    """Debug injections that wait 20 milliseconds each. `jobs` is set by the number of processors seen."""

    SECONDS = 0.02

    def __init__(self, shape, count, jobs):
        super().__init__(shape, count, True)
        self.jobs = jobs

    def prepare(self, noting):
        super().prepare(noting)
        if not noting:
            _install(f"{TOOLS}/sleeping_unit", f"{TOOLS}/command")

    def floor(self):
        """What the programs cost without the sleep."""
        return [f"{TOOLS}/floor", str(self.count), str(self.jobs), "/bin/sh", "-c", UNIT]

    def bound(self):
        """The seconds that no schedule can beat."""
        depth = [0] * self.count
        for unit in range(self.count):
            depth[unit] = 1 + max((depth[name] for name in self.providers(unit)), default=0)
        return max(max(depth), self.count / self.jobs) * self.SECONDS


class Skewed(Sleeper):
    """75 free units, listed before a chain of 25, with 4 jobs: who begins with what is listed first loses."""

    FREE = 75

    def __init__(self):
        super().__init__("skewed", 100, 4)

    def providers(self, unit):
        return [unit - 1] if unit > self.FREE else []


SLEEPERS = {"layers": lambda: Sleeper("layers", 1000, 16), "skewed": Skewed}


def empty_plugins():
    _empty(PLUGINS)


def prepare_idle(shape, count):
    """JSON plugins without a command; "barrier" is one barrier between two halves of them."""
    _empty(PLUGINS)
    for unit in range(count):
        if shape == "barrier":
            required, provided = ([], ["b"]) if unit < count // 2 else (["b"], [])
        else:
            required = [f"u{name}" for name in shapes.providers(shape, count, unit)]
            provided = [] if shape == "wide" else [f"u{unit}"]
        with open(f"{PLUGINS}/u{unit}.json", "w", encoding="utf-8") as file:
            json.dump({"metadata": {"version": 1, "requires": required, "provides": provided},
                       "operations": {"start": []}}, file)


PATHS = {"json": Json, "debug": Debug, "native": Native, "daemon": Daemon}
