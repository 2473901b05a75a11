# SPDX-License-Identifier: Apache-2.0
"""Writes the log in colours, and sums up what became of each run."""

import os
import re
import sys

_SLOWEST = 5
_PROFILE = "/var/log/sysboot.log"

# The first pattern that matches a message gives it its colour.
_KINDS = (
    ("red", re.compile(r"fail|unable|exception|stalled|Invalid|is invalid", re.IGNORECASE)),
    ("magenta", re.compile(r"Bootweave dependency error")),
    ("yellow", re.compile(r"ignoring|skipping|debug injection")),
    ("green", re.compile(r"executing (start|host profile) plugin|executing stop for daemon")),
    ("cyan", re.compile(r"Executor|executor")),
)
_COLOURS = {"red": 31, "green": 32, "yellow": 33, "magenta": 35, "cyan": 36, "bold": 1, "dim": 2}

_VERBS = {"boot": "The boot", "invocation": "The invocation", "start": "Starting the daemons",
          "stop": "Stopping the daemons", "dump": "The dump"}


class _Paint:
    """Colours text when the output is a terminal and nobody has asked for none."""

    def __init__(self, stream):
        self._on = stream.isatty() and "NO_COLOR" not in os.environ and os.environ.get("TERM") != "dumb"

    def __call__(self, colour, text):
        return f"\033[{_COLOURS[colour]}m{text}\033[0m" if self._on and colour else text


def _count(number, what):
    return f"{number} {what}" if number == 1 else f"{number} {what}s"


class Show:
    """Writes to standard output."""

    def __init__(self):
        self._paint = _Paint(sys.stdout)

    def raw(self, text):
        sys.stdout.write(text)
        sys.stdout.flush()

    def hint(self, text):
        self.raw(self._paint("dim", text) + "\n\n")

    def log_line(self, line):
        colour = next((colour for colour, kind in _KINDS if kind.search(line.message)), None)
        self.raw(self._paint("dim", f"{line.clock} {line.name}[{line.process}] ")
                 + self._paint(colour, line.message) + "\n")

    def summary(self, run):
        """What became of a run; for a quiet one, in one line."""
        what = _VERBS.get(run.title, run.title)
        if run.status is None:
            title = f"{what} was cut short"
        else:
            title = f"{what} took {run.seconds:.2f} s and ended with status {run.status}"
        colour = "green" if run.status == 0 else "red"
        command = self._paint("dim", f"   bootweave {' '.join(run.arguments)}")
        self.raw("\n" * (not run.is_quiet) + self._paint("bold", self._paint(colour, title)) + command + "\n")
        if run.is_quiet and run.status is not None:
            self.raw("\n")
            return
        self._outcome(run)
        self._problems(run)
        self._profile(run)
        if run.record is not None and run.title not in ("start", "stop"):
            self._section("Run-once record", "cyan",
                          [("/bootbank/bootweav.gz", ", ".join(run.record) or "holds no plugin")])

    def _outcome(self, run):
        total = len(run.activated) + len(run.failed)
        if total > 0:
            what = f"{_count(total, 'daemon')} started" if run.title == "start" else (
                f"{_count(total, 'plugin')} activated")
            self.raw(f"\n  {len(run.activated)} of {what}\n")
        total = len(run.deactivated) + len(run.not_deactivated)
        if total > 0:
            self.raw(f"\n  {len(run.deactivated)} of {_count(total, 'daemon')} stopped: "
                     f"{', '.join(run.deactivated)}\n")
        if run.dot.names:
            plugins = len(run.dot.names) - len(run.dot.barriers)
            self.raw(f"\n  {_count(plugins, 'plugin')}, {_count(len(run.dot.barriers), 'barrier')}, "
                     f"{_count(len(run.dot.edges), 'edge')}\n")

    def _problems(self, run):
        nobody = {**run.nobody, **{name: ", ".join(plugins)
                                   for name, plugins in run.dot.not_provided().items()}}
        self._section("Failed", "red", run.failures())
        self._section("Commands that failed", "red", run.commands)
        self._section("Debug injections that failed", "yellow", run.injections)
        self._section("Barriers that nobody provides", "magenta",
                      [(name, f"required by {plugins}") for name, plugins in sorted(nobody.items())])
        self._section("Left out", "yellow", sorted(run.left_out))

    def _profile(self, run):
        self._section(f"Slowest, by {_PROFILE}", "cyan",
                      [(name, f"{seconds:.3f} s") for name, seconds in run.profile.slowest(_SLOWEST)])

    def init_scripts(self, rows):
        """What init scripts say of themselves: (script, whether it is well, text)."""
        self._section("What the init scripts say now", "cyan",
                      [(name, self._paint(None if is_well else "yellow", text))
                       for name, is_well, text in rows])

    def kept(self, results, paths):
        """Names what lies in the results, of the paths given with what each is."""
        rows = []
        for path, what in paths:
            place = os.path.join(results, path)
            if os.path.exists(place):
                with open(place, "rb") as file:
                    lines = file.read().count(b"\n")
                count = "" if path.endswith((".gz", ".svg")) else f", {_count(lines, 'line')}"
                rows.append((os.path.relpath(place), what + count))
        self._section("Kept", "cyan", rows)
        self.raw("\n")

    def _section(self, title, colour, rows):
        if not rows:
            return
        self.raw("\n  " + self._paint(colour, title) + "\n")
        width = max(len(name) for name, _ in rows)
        for name, text in rows:
            self.raw(f"    {name:<{width}}  {text}\n")
