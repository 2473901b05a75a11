# SPDX-License-Identifier: Apache-2.0
"""Whether a run that met a fault went as it may, by comparison with one that met none."""

import base64
import collections
import dataclasses
import errno
import gzip
import re

import manual

_LINE = re.compile(r"\d{4}-\d\d-\d\dT\d\d:\d\d:\d\d\.\d{3}Z (\S+?)\[\d+\]: (.*)")
_SYSLOG_LINE = re.compile(r"<(\d+)>[A-Z][a-z]{2} [ \d]\d \d\d:\d\d:\d\d \S+?\[(\d+)\]: (.*)", re.DOTALL)
_KERNEL_LINE = re.compile(r"<(\d+)>bootweave: (.*)")
_STAMP = r"\d{4}-\d\d-\d\d \d\d:\d\d:\d\d\.\d{6}"
_SETTINGS = r" Verbose: 0\n Parallel: 0\n Randomize: 0\n Interactive Mode: 0\n Random Seed: \d+\n"
_BOOT_BLOCK = re.compile(
    rf"Mantle Initialization Time: \d+\n((?:\[{_STAMP} - {_STAMP}\] sysboot: \S+\n)*)"
    rf"=== Bootweave configuration info ===\n Start: {_STAMP}\n End: {_STAMP}\n{_SETTINGS}")
_DAEMON_BLOCK = re.compile(
    rf"((?:\[{_STAMP} - {_STAMP}\] daemon: \S+\n)*)"
    rf"=== Daemon configuration info ===\n Start Daemon: {_STAMP}\n End Daemon: {_STAMP}\n{_SETTINGS}")
_RECORD = re.compile(rb"bootweave\.run-once=((?:[-A-Za-z0-9._+]+,)*)\n")
# Native plugins and their programs have their own words, and the loader has, too.
_NATIVE_WORDS = re.compile(r"(nativeExecutor|cpu-power|hardware-inventory|watchdog-arm): ")

_DEBUG_CONFIGURATION = "/etc/corvane/bootweave/debug.conf"
_DEBUG_PLUGINS = ("slow-disk", "net-snapshot", "overlay-check")

# With these the run ends early, and says so. The latter leaves its executor.
_NOT_STARTED = "Failed to start executor"
_BROKEN_OFF = "Failed to initialize bootweave: "

_SIGABRT = 6
_SIGKILL = 9


@dataclasses.dataclass(frozen=True)
class Fault:
    """A call that fails."""
    arguments: tuple    # of the program
    name: str           # of the thread, as in tracer.h
    phase: str          # "start", "loader" or "own", as there
    call: str
    turn: int
    error: int
    site: str           # what it is done to, without what differs from run to run

    def __str__(self):
        return (f"bootweave {' '.join(self.arguments)}: {self.name} {self.call} {self.turn} "
                f"{errno.errorcode[self.error]}" + (f" ({self.site})" if self.site else ""))


class Broken(Exception):
    """A file of the run's is not whole."""


def _without_what_differs(text):
    text = re.sub(r"(sysboot\.log|bootweav\.gz)\.\w{6}\b", r"\1.XXXXXX", text)
    return text.replace("\n", "")


def _polling_first(text):
    """For sorting the executor's own first line to the front: one thread says it while another serves."""
    return text != "Executor Reset - polling for commands"


class Run:
    """What came of a run, without times and numbers of processes."""

    def __init__(self, seen, old_profile, is_daemon_run):
        self.seen = seen
        self.status = seen["status"]
        lines = [self._line(line) for line in (seen["stdout"] or "").splitlines()]
        self.stdout = [line for line in lines if not _NATIVE_WORDS.match(line)]
        self.executor_log = sorted((self._line(line) for line in (seen["executor_log"] or "").splitlines()),
                                   key=_polling_first)
        self.stderr = (seen["stderr"] or "").splitlines()
        self.syslog = self._syslog(seen["syslog"])
        self.kernel = [self._kernel_line(line) for line in (seen["kernel"] or "").splitlines()]
        self.journal = (seen["journal"] or "").splitlines()
        self.profile = self._profile(seen["profile"], old_profile, is_daemon_run)
        self.record = self._record(seen["record"])
        self.files = {_without_what_differs(path): mode for path, mode in seen["files"].items()}
        streams = collections.Counter(self.stdout + self.executor_log)
        # Each line goes to a stream and to the system log; one of them is enough.
        self.said = streams | collections.Counter(
            text for messages in self.syslog for _, text in messages)
        outcomes = self.kernel + [text for text in self.said.elements()]
        self.begun = self._names(r"(?:Activating Bootweave plugin|Deactivating Daemon) (\S+)\.", outcomes)
        self.ended = self._names(r"(?:Bootweave plugin|Daemon) (\S+) (?:de)?activat(?:ed\.|ion failed: .*)",
                                 outcomes)

    @staticmethod
    def _line(line):
        match = _LINE.fullmatch(line)
        return _without_what_differs(match[2] if match else line)

    @staticmethod
    def _syslog(messages):
        """[(priority, text), ...] of each process; the order between processes is a matter of chance."""
        found = collections.defaultdict(list)
        for message in messages:
            match = _SYSLOG_LINE.fullmatch(message)
            process, entry = (match[2], (int(match[1]), match[3])) if match else (None, (-1, message))
            found[process].append((entry[0], _without_what_differs(entry[1])))
        return sorted(sorted(lines, key=lambda line: _polling_first(line[1])) for lines in found.values())

    @staticmethod
    def _kernel_line(line):
        match = _KERNEL_LINE.fullmatch(line)
        return match[2] if match else line

    @staticmethod
    def _names(pattern, lines):
        matches = (re.fullmatch(pattern, line) for line in lines)
        return collections.Counter(match[1] for match in matches if match)

    @staticmethod
    def _profile(text, old, is_daemon_run):
        """The names in it, or "old"; None when it is neither."""
        if text == old:
            return "old"
        if is_daemon_run:
            match = _DAEMON_BLOCK.fullmatch((text or "").removeprefix(old))
            match = match if (text or "").startswith(old) else None
        else:
            match = _BOOT_BLOCK.fullmatch(text or "")
        return None if match is None else [line.rpartition(" ")[2] for line in match[1].splitlines()]

    @staticmethod
    def _record(packed):
        """The keys in it; None when it is not whole."""
        try:
            match = _RECORD.fullmatch(gzip.decompress(base64.b64decode(packed or "")))
        except (OSError, EOFError):
            return None
        return None if match is None else [key.decode() for key in match[1].split(b",") if key]

    @property
    def effects(self):
        """What the run did, besides saying so."""
        return {"status": self.status, "journal": self.journal, "profile": self.profile,
                "record": self.record, "kernel": self.kernel, "reloads": self.seen["reloads"],
                "files": self.files, "left": self.seen["left"]}

    @property
    def all(self):
        """Everything that may be compared."""
        return {**self.effects, "stdout": self.stdout, "stderr": self.stderr, "syslog": self.syslog,
                "executor's log": self.executor_log}

    def events(self, kind):
        """The events of this kind in the injector's report, without it."""
        return [fields[1:] for fields in self.seen["report"] if fields[0] == kind]

    def came_to_pass(self):
        return bool(self.events("fault"))

    def broke_off(self):
        return any(text.startswith(_BROKEN_OFF) for text in self.said)

    def was_not_started(self):
        return any(text.startswith(_NOT_STARTED) for text in self.said)


class Judge:
    """Compares runs of one command line with the undisturbed one."""

    def __init__(self, undisturbed, old_keys):
        """
        :param undisturbed: a Run
        :param old_keys: in the record that was there before
        """
        self._undisturbed = undisturbed
        self._old_keys = list(old_keys)
        self._patterns = manual.message_patterns()

    def complaints(self, fault, run):
        """What must not be, one text each."""
        if run.status is None:
            return ["it hangs: " + "; ".join(run.seen["hanging"])]
        if (self._is_without_daemons(fault, run) or self._is_without_injections(fault, run)
                or self._is_without_record(fault, run) or self._is_panic(fault, run)):
            return []
        found = [*self._ends(fault, run), *self._leftovers(fault, run), *self._status(run), *self._files(run),
                 *self._messages(fault, run), *self._plugins(run)]
        if fault.error == errno.EINTR:
            found += self._differences(run, "an interrupted call makes a difference")
        else:
            found += self._silence(run)
        return found

    def _is_without_daemons(self, fault, run):
        """Whether the lister of init scripts could not be started: then there are none, without a word."""
        untouched = {**run.effects, "journal": [], "profile": [], "kernel": []}
        return (fault.arguments[0] == "--daemon" and fault.name in ("main", "main/1")
                and fault.error != errno.EINTR and run.effects == untouched and run.status == 0
                and run.record == self._old_keys and not self._new_messages(run))

    def _is_without_injections(self, fault, run):
        """Whether the debug configuration could not be read: then there are none, without a word."""
        return (fault.site == _DEBUG_CONFIGURATION and fault.error != errno.EINTR
                and not self._new_messages(run)
                and self._in_any_order(run) == self._in_any_order(self._undisturbed, _DEBUG_PLUGINS))

    @staticmethod
    def _in_any_order(run, without=()):
        """The run's effects but those of some plugins."""
        def rest(lines):
            return sorted(line for line in lines if not set(without) & set(line.strip(".").split()))
        return {**run.effects, "journal": rest(run.journal), "profile": rest(run.profile or ()),
                "kernel": rest(run.kernel)}

    def _is_without_record(self, fault, run):
        """Whether the record could not be written, or not be read first: without a word, it then stays as it
        was, or has only what this run adds."""
        outcomes = [self._old_keys]
        if fault.arguments[0] == "--invoke":
            outcomes.append([key for key in self._undisturbed.record if key not in self._old_keys])
        return ((fault.site.startswith("/bootbank") or fault.call in ("mmap", "brk"))
                and fault.error != errno.EINTR and run.said == self._undisturbed.said
                and run.effects in [{**self._undisturbed.effects, "record": keys} for keys in outcomes])

    def _is_panic(self, fault, run):
        """Whether a daemon run could not open the root directory, and ended as a failed assertion does."""
        return (fault.arguments[0] == "--daemon" and fault.call == "openat" and fault.site == "/"
                and run.events("end") == [["main", "signal", str(_SIGABRT)]] and run.profile == "old"
                and run.record == self._old_keys and not run.seen["left"] and not run.seen["others"]
                and [text.partition(" ")[0] for text in self._new_messages(run)] == ["VERIFY"])

    def _ends(self, fault, run):
        for name, how, number in run.events("end"):
            if fault.phase == "start" and fault.name == name:
                continue        # how the loader ends a program that it cannot make is its own affair
            # What was started and is not needed any more, or cannot be waited for, is killed.
            is_executor_or_main = "=" not in name and name.count("/") != 1
            if how == "signal" and (int(number) != _SIGKILL or is_executor_or_main):
                yield f"{name} is killed by signal {number}"
        for name, count in run.events("zombies"):
            yield f"{name} ends with {count} children that it has not waited for"

    def _leftovers(self, fault, run):
        for other in run.seen["others"]:
            yield f"is left behind: {other}"
        if run.seen["left"] and not run.broke_off():
            yield f"an executor is left behind: {' '.join(run.seen['left'])}"
        if len(run.seen["left"]) > 1:
            yield f"several are left behind: {' '.join(run.seen['left'])}"
        for path in run.files.keys() - self._undisturbed.files.keys():
            if not fault.call.startswith("unlink"):
                yield f"a file is left behind: {path}"

    def _status(self, run):
        ended_early = run.broke_off() or run.was_not_started()
        if run.status != (1 if ended_early else self._undisturbed.status):
            yield f"exit status {run.status}"

    def _files(self, run):
        if run.profile is None:
            yield f"the profile is neither the old one nor a whole one:\n{run.seen['profile']}"
        elif run.profile != "old" and sorted(set(run.profile)) != sorted(run.profile):
            yield "the profile names a plugin twice"
        if run.record is None:
            yield "the record is neither the old one nor a whole one"
        elif run.record != self._old_keys and not set(run.record) <= set(self._undisturbed.record):
            yield f"the record has {' '.join(run.record)}"
        for path, mode in run.files.items():
            if mode != self._undisturbed.files.get(path, mode) and not self._new_messages(run):
                yield f"{path} has the mode {mode}"

    def _new_messages(self, run):
        return list((run.said - self._undisturbed.said).elements())

    def _messages(self, fault, run):
        own_words = [line for line in run.stderr if line not in self._undisturbed.stderr]
        for text in self._new_messages(run) + own_words:
            if any(pattern.fullmatch(text) for pattern in self._patterns + manual.KERNEL_PATTERNS):
                continue
            if "=native" in fault.name and (fault.phase == "start" or _NATIVE_WORDS.match(text)):
                continue
            yield f"is not in the manual: {text}"
        for text in run.kernel:
            if not any(pattern.fullmatch(text) for pattern in manual.KERNEL_PATTERNS):
                yield f"is not in the manual: {text} (kernel's log)"

    def _plugins(self, run):
        for begun, count in run.begun.items():
            if count != 1 or run.ended[begun] != 1:
                yield f"{begun} is begun {count} times and ended {run.ended[begun]} times"
        for twice in (collections.Counter(run.journal) - collections.Counter(self._undisturbed.journal)):
            yield f"was not to run, or not again: {twice}"
        if run.status != 0:
            return
        new = self._new_messages(run)
        for missing in self._undisturbed.begun - run.begun:
            if not any(missing in text for text in new):
                yield f"{missing} takes no part, and nothing says why"

    def _differences(self, run, what):
        for key, value in self._undisturbed.all.items():
            if run.all[key] != value:
                yield f"{what}: {key} {self._difference(value, run.all[key])}"

    @staticmethod
    def _difference(expected, actual):
        if isinstance(expected, list) and isinstance(actual, list):
            gone = [entry for entry in expected if entry not in actual]
            new = [entry for entry in actual if entry not in expected]
            if gone or new:
                return f"lacks {gone}, has {new}"
        return f"was {expected}, is {actual}"

    def _silence(self, run):
        """A difference without a message; a message that has not come anywhere."""
        if self._new_messages(run):
            return
        for text in self._undisturbed.said.keys() - run.said.keys():
            yield f"is not said: {text}"
        # What the kernel's log lacks may be in the program's own.
        effects = {**run.effects, "kernel": [text for text in self._undisturbed.kernel
                                             if text in run.kernel or text in run.said]}
        for key, value in self._undisturbed.effects.items():
            if effects[key] != value:
                yield f"silently: {key} {self._difference(value, effects[key])}"
