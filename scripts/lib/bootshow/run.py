# SPDX-License-Identifier: Apache-2.0
"""What is learnt of one run of the program, from its log, the kernel log and boot-on-host's reports."""

import datetime
import re

_ACTIVATED = re.compile(r"Bootweave plugin (.+) activated\.$")
_FAILED = re.compile(r"Bootweave plugin (.+?) activation failed: (.*)")
_DEACTIVATED = re.compile(r"Daemon (.+) deactivated\.$")
_NOT_DEACTIVATED = re.compile(r"Daemon (.+?) deactivation failed: (.*)")
_NOBODY = re.compile(r'Bootweave dependency error: Initialization barrier "(.*)" is not provided '
                     r"by any plugin but the following plugins require it: (.*)")
_COMMAND = re.compile(r"execution of '(.*)' failed : (.*)")
_START_FAILED = re.compile(r"Bootweave failed to start: (.*?) reason: (.*)")
_INJECTION = re.compile(r"debug injection '(.*)' returned (.*)")
_LEFT_OUT = (
    (re.compile(r"ignoring plugin '(.*)' of (unspecified type)\.\.\.$"), "file of {}"),
    (re.compile(r"ignoring plugin '(.*)' of (unknown type \(.*\))\.\.\.$"), "file of {}"),
    (re.compile(r"ignoring plugin '(.*)' due to (denylist)\.$"), "on the {}"),
    (re.compile(r"ignoring plugin '(.*)', disabled due to boot flags: (.*) \.$"),
     "disabled by boot flags: {}"),
    (re.compile(r"ignoring plugin '(.*)', disabled due to missing required boot flags: (.*) \.$"),
     "needs boot flags: {}"),
    (re.compile(r"ignoring plugin '(.*)' because version '(.*)'  has already been run\.$"),
     "version {} has been run before"),
    (re.compile(r"plugin `.*/(.*)' is invalid: (.*)$"), "{}"),
    (re.compile(r"skipping plugin (.*) (\(interactive mode request\))$"), "skipped at the console"),
)

# Said of arguments by which nothing can be run.
_REFUSAL = re.compile(r"Invalid combination of options passed|invoke requires a method and plugin specified")

_PROFILE_ENTRY = re.compile(r"\[(.{26}) - (.{26})\] (?:sysboot|daemon): (.*)")
_DOT_NODE = re.compile(r'(\d+) \[label="((?:[^"\\]|\\.)*)"( shape=\w+)?\];')
_DOT_EDGE = re.compile(r"(\d+) -> (\d+);")


def _instant(text):
    return datetime.datetime.strptime(text, "%Y-%m-%d %H:%M:%S.%f")


class Profile:
    """The profiling log, line by line; the entries are those of its last block."""

    def __init__(self):
        self.entries = []       # (plugin, seconds) of those that ran
        self._in_entries = False

    def take(self, line):
        found = _PROFILE_ENTRY.fullmatch(line)
        if found is None:
            self._in_entries = False
            return
        if not self._in_entries:
            self.entries, self._in_entries = [], True
        start, end = _instant(found[1]), _instant(found[2])
        if start.year > 1970 and end.year > 1970:
            self.entries.append((found[3], (end - start).total_seconds()))

    def slowest(self, count):
        return sorted(self.entries, key=lambda entry: -entry[1])[:count]


class Dot:
    """The graph, line by line."""

    def __init__(self):
        self.names = {}         # identifier -> name
        self.barriers = set()   # identifiers
        self.edges = []         # (before, after), identifiers

    def take(self, line):
        node, edge = _DOT_NODE.fullmatch(line), _DOT_EDGE.fullmatch(line)
        if node is not None:
            self.names[node[1]] = re.sub(r"\\(.)", r"\1", node[2])
            if node[3]:
                self.barriers.add(node[1])
        elif edge is not None:
            self.edges.append((edge[1], edge[2]))

    def not_provided(self):
        """Name of each barrier that nobody provides -> names of those that require it."""
        provided = {after for _, after in self.edges}
        return {self.names[barrier]: [self.names[after] for before, after in self.edges if before == barrier]
                for barrier in self.barriers - provided}


class Run:
    """One run of the program. Its status is None while it has not come to its end."""

    def __init__(self, title, arguments, is_quiet):
        self.title = title
        self.arguments = arguments
        self.is_quiet = is_quiet
        self.has_begun = is_quiet   # whether it got further than its arguments; a quiet one always does
        self.activated = []
        self.failed = []            # (plugin, reason)
        self.deactivated = []
        self.not_deactivated = []   # (daemon, reason)
        self.left_out = []          # (plugin or file, reason)
        self.nobody = {}            # barrier -> the plugins that require it, in a text
        self.commands = []          # (command, error)
        self.injections = []        # (debug injection, what it returned)
        self.profile = Profile()
        self.record = None          # the run-once record's keys
        self.dot = Dot()
        self.status = None
        self.seconds = None
        self._reasons = {}          # daemon -> why it did not start

    def failures(self):
        """(plugin, reason) of all that failed; for a daemon the log says more than the kernel log."""
        failed = self.failed + self.not_deactivated
        return [(name, self._reasons.get(name, reason)) for name, reason in failed]

    def take_message(self, message):
        """A message of the program's log."""
        self.has_begun = self.has_begun or not _REFUSAL.match(message)
        for pattern, reason in _LEFT_OUT:
            found = pattern.match(message)
            if found:
                words = ", ".join(found[2].split()) if "flags" in reason else found[2]
                self.left_out.append((found[1], reason.format(words)))
                return
        if found := _START_FAILED.match(message):
            self._reasons[found[1]] = found[2]
        if found := _INJECTION.match(message):
            self.injections.append((found[1], found[2]))
        self._take_dependency_error(message)

    def take_report(self, kind, text):
        """A report of boot-on-host's."""
        if kind == "command" and (found := _COMMAND.match(text)):
            self.commands.append((found[1], found[2]))
        elif kind == "profile":
            self.profile.take(text)
        elif kind == "record":
            self.record = [key for key in text.partition("=")[2].split(",") if key]
        elif kind == "dot":
            self.dot.take(text)
        elif kind == "ended":
            status, milliseconds = text.split()
            self.status, self.seconds = int(status), int(milliseconds) / 1000

    def take_kernel_record(self, record):
        """A record of the kernel log."""
        text = record.partition("bootweave: ")[2]
        for pattern, place in ((_ACTIVATED, self.activated), (_DEACTIVATED, self.deactivated)):
            if found := pattern.match(text):
                place.append(found[1])
        for pattern, place in ((_FAILED, self.failed), (_NOT_DEACTIVATED, self.not_deactivated)):
            if found := pattern.match(text):
                place.append((found[1], found[2]))
        self._take_dependency_error(text)

    def _take_dependency_error(self, text):
        found = _NOBODY.search(text)
        if found:
            self.nobody[found[1]] = found[2].replace('"', "")
