# SPDX-License-Identifier: Apache-2.0
"""Writes the log in colours, and sums up what became of each run."""

import os
import re
import shutil
import sys
import textwrap

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


def _width_of(stream):
    """The columns of a terminal; other output is not wrapped."""
    return shutil.get_terminal_size().columns if stream.isatty() else None


def _wrap(text, width, indent=""):
    """The text in lines of at most so many columns, if given, that end between words where they can.

    :param indent: of all lines but the first
    """
    if width is None:
        return [text]
    return textwrap.wrap(text, max(width, 40), subsequent_indent=indent, break_on_hyphens=False) or [""]


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
        self._lines(text, "", "dim")
        self.raw("\n")

    def log_line(self, line):
        colour = next((colour for colour, kind in _KINDS if kind.search(line.message)), None)
        head = f"{line.clock} {line.name}[{line.process}] "
        width = _width_of(sys.stdout)
        first, *more = _wrap(head + line.message, width, "    ")
        self.raw(self._paint("dim", head) + self._paint(colour, first[len(head):]) + "\n")
        for text in more:
            self.raw(self._paint(colour, text) + "\n")

    def summary(self, run):
        """What became of a run; for a quiet one, in one line."""
        colour = "green" if run.status == 0 else "red"
        title = self._title(run)
        command = f"bootweave {' '.join(run.arguments)}"
        width = _width_of(sys.stdout)
        self.raw("\n" * (not run.is_quiet) + self._paint("bold", self._paint(colour, title)))
        if width is None or len(title) + 3 + len(command) <= width:
            self.raw("   " + self._paint("dim", command) + "\n")
        else:
            self.raw("\n")
            self._lines(command, "  ", "dim")
        if run.is_quiet and run.status is not None:
            self.raw("\n")
            return
        self._outcome(run)
        self._problems(run)
        self._profile(run)
        if run.record is not None and run.title not in ("start", "stop"):
            self._section("Run-once record", "cyan",
                          [("/bootbank/bootweav.gz", ", ".join(run.record) or "holds no plugin")])

    @staticmethod
    def _title(run):
        what = _VERBS.get(run.title, run.title)
        if run.status is None:
            return f"{what} was cut short"
        if not run.has_begun and run.status in (0, 1):
            done = "ran nothing" if run.status == 0 else "refused its arguments"
            return f"bootweave {done} and ended with status {run.status}"
        return f"{what} took {run.seconds:.2f} s and ended with status {run.status}"

    def _outcome(self, run):
        total = len(run.activated) + len(run.failed)
        if total > 0:
            what = f"{_count(total, 'daemon')} started" if run.title == "start" else (
                f"{_count(total, 'plugin')} activated")
            self.raw(f"\n  {len(run.activated)} of {what}\n")
        total = len(run.deactivated) + len(run.not_deactivated)
        if total > 0:
            self.raw("\n")
            self._lines(f"{len(run.deactivated)} of {_count(total, 'daemon')} stopped: "
                        f"{', '.join(run.deactivated)}", "  ")
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
                      [(name, text, None if is_well else "yellow") for name, is_well, text in rows])

    def kept(self, results, paths):
        """Names what lies in the results, of the paths given with what each is."""
        rows = []
        for path, what in paths:
            place = os.path.join(results, path)
            if os.path.exists(place) and os.path.getsize(place) > 0:
                with open(place, "rb") as file:
                    lines = file.read().count(b"\n")
                count = "" if path.endswith((".gz", ".svg")) else f", {_count(lines, 'line')}"
                rows.append((path, what + count))
        self._section(f"Kept in {os.path.relpath(results)}", "cyan", rows)
        self.raw("\n")

    def _lines(self, text, indent, colour=None):
        width = _width_of(sys.stdout)
        for line in _wrap(text, width and width - len(indent)):
            self.raw(f"{indent}{self._paint(colour, line)}\n")

    def _section(self, title, colour, rows):
        """A title, and rows of (name, text) or (name, text, the text's colour)."""
        if not rows:
            return
        self.raw("\n  " + self._paint(colour, title) + "\n")
        columns = _width_of(sys.stdout)
        # A name that would leave its text too little room has a line of its own.
        most = max(len(row[0]) for row in rows) if columns is None else columns // 2
        width = max((len(row[0]) for row in rows if len(row[0]) <= most), default=0)
        for name, text, *text_colour in rows:
            beside = len(name) <= width
            margin = " " * (4 + width + 2 if beside else 8)
            lines = _wrap(text, columns and columns - len(margin))
            if beside:
                self.raw(f"    {name:<{width}}  {self._paint(*text_colour or [None], lines.pop(0))}\n")
            else:
                self._lines(name, "    ")
            for line in lines:
                self.raw(f"{margin}{self._paint(*text_colour or [None], line)}\n")
