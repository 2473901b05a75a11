# SPDX-License-Identifier: Apache-2.0
"""Boots throw-away hosts for system tests.

A test case says what lies on the host, runs the installed program there, and looks at what came of it:

    class Activation(SystemTest):
        def test_a_plugin_that_requires_a_barrier_runs_after_its_provider(self):
            host = self.host(plugin("b", requires=["up"]), plugin("a", provides=["up"]))
            end = host.boot()
            self.assertEqual(0, end.status)
            self.assertEqual(["a", "b"], end.activated)

Every host is new, has nothing of another's, and ends with its command. Nothing on the machine changes. The
program comes from the staging directory that tests/system/run was given, or from the test's own files.
Cases run at the same time, in threads of one process: they share no state, and setUpClass is not called.
"""

import dataclasses
import json
import os
import re
import shutil
import subprocess
import tempfile
import time
import unittest

_SCRIPTS = os.path.join(os.path.dirname(os.path.realpath(__file__)), "..", "..", "scripts", "lib")
_RUNNER = os.path.join(_SCRIPTS, "throwaway-host")
_SAMPLE_HOST = os.path.join(os.path.dirname(os.path.realpath(__file__)), "..", "..", "examples", "host")

PROGRAM = "/usr/sbin/bootweave"
PLUGINS = "/usr/libexec/bootweave/plugins"
COMMANDS = "/usr/lib/corvane/hostcli"
EXECUTOR_LOG = "/var/log/bootweave-hostcli-stdout.log"

# The levels of the program's messages, as the system log and the kernel log number them.
ALERT, ERROR, WARNING, NOTICE = 1, 3, 4, 5
_DAEMON = 3             # the facility

TIMED_OUT = 124         # exit status of a host whose time was up
BROKEN = 125            # exit status when the host itself could not be made
STAGE_VARIABLE = "BOOTWEAVE_STAGE"
PRESET_VARIABLE = "BOOTWEAVE_PRESET"    # how the program was built; "release" unless it says another

# What a program built with a sanitizer is told: a plugin that crashes ends by its signal, as it does without,
# and so does the program itself; a race ends it at once; the child of a fork among threads may have threads.
_SANITIZER_OPTIONS = {
    "asan": {"ASAN_OPTIONS": ":".join(f"handle_{name}=0" for name in ("segv", "sigbus", "sigfpe", "sigill",
                                                                      "abort"))},
    "tsan": {"TSAN_OPTIONS": "halt_on_error=1:die_after_fork=0:" + ":".join(
        f"handle_{name}=0" for name in ("segv", "sigbus", "sigfpe", "sigill", "abort"))},
}

# Names the directory of a build that counts what runs. The program writes its counts below that path, on the
# host; they are kept in a directory each below "hosts" there.
COVERAGE_VARIABLE = "BOOTWEAVE_COVERAGE"

# For scripts on the host: "until_ COMMAND..." repeats a command until it succeeds, for ten seconds at most.
UNTIL = """
until_() {
    tries=500
    until "$@" 2>/dev/null; do
        tries=$((tries - 1))
        [ "$tries" -gt 0 ] || { echo "in vain: $*" >&2; return 1; }
        sleep 0.02
    done
}
"""

# Below these, what the host has changed is always kept for Ending.read().
_KEPT = ("/var/log", "/bootbank", "/run", "/var/lib/corvane")

_LOG_LINE = re.compile(r"(\d{4}-\d\d-\d\dT\d\d:\d\d:\d\d\.\d{3}Z) (.+?)\[(\d+)\]: (.*)")
_KERNEL_RECORD = re.compile(r"<(\d+)>(.*)")
_SYSLOG_MESSAGE = re.compile(
    r"<(\d+)>(?:[A-Z][a-z]{2} [ \d]\d \d\d:\d\d:\d\d )?(?:([^\s:\[]+)(?:\[(\d+)\])?: )?(.*)")


@dataclasses.dataclass(frozen=True)
class File:
    """A file of the host: its text or bytes, and its mode."""
    content: str | bytes
    mode: int = 0o644


@dataclasses.dataclass(frozen=True)
class Link:
    """A symbolic link of the host."""
    target: str


@dataclasses.dataclass(frozen=True)
class Directory:
    """A directory of the host, possibly empty."""
    mode: int = 0o755


def plugin(name, start=(), requires=(), provides=(), version=1, operations=None, **metadata):
    """Files for one JSON plugin; more keys of "operations" and "metadata" may be given."""
    document = {
        "metadata": {"version": version, "requires": list(requires), "provides": list(provides), **metadata},
        "operations": {"start": list(start), **(operations or {})},
    }
    return {f"{PLUGINS}/{name}.json": json.dumps(document, indent=2) + "\n"}


def command(name, script, directory=COMMANDS, mode=0o755):
    """Files for one host command, such as "net.link.up", given as the lines of a shell script."""
    return {f"{directory}/{name}": File(f"#!/bin/sh\n{script}\n", mode)}


def not_provided(barrier, *names):
    """The message about a barrier that these plugins require and none provides."""
    return (f'Bootweave dependency error: Initialization barrier "{barrier}" is not provided by any plugin '
            "but the following plugins require it: " + ", ".join(f'"{name}"' for name in names))


def program(script):
    """Files that put a shell script in the program's place."""
    return {PROGRAM: File(f"#!/bin/sh\n{script}\n", 0o755)}


@dataclasses.dataclass(frozen=True)
class LogLine:
    """A line of the program's log on standard output."""
    time: str
    name: str
    process: int
    message: str


@dataclasses.dataclass(frozen=True)
class KernelRecord:
    """One record written to /dev/kmsg."""
    level: int
    text: str


@dataclasses.dataclass(frozen=True)
class SyslogMessage:
    """One datagram received at /dev/log; level and facility are numbers, name and process may be None."""
    facility: int
    level: int
    name: str | None
    process: int | None
    message: str


class Ending:
    """What a host has left behind."""

    def __init__(self, results, status, stdout, stderr, seconds):
        self._results = results
        self.status = status        # of the command; 128 + N when signal N ended it
        self.stdout = stdout        # text
        self.stderr = stderr        # text, the throw-away host's own complaints included
        self.seconds = seconds      # from the making of the host to its end

    @property
    def log(self):
        """The program's log lines on standard output."""
        return [LogLine(found[1], found[2], int(found[3]), found[4])
                for found in map(_LOG_LINE.fullmatch, self.stdout.splitlines()) if found]

    @property
    def messages(self):
        """The messages of the program's log on standard output, in their order."""
        return [line.message for line in self.log]

    @property
    def executor_messages(self):
        """The messages in the executor's log, in their order."""
        lines = (self.read(EXECUTOR_LOG) or "").splitlines()
        return [found[4] for found in map(_LOG_LINE.fullmatch, lines) if found]

    @property
    def command_output(self):
        """The lines in the executor's log that are no messages: what commands have written there."""
        lines = (self.read(EXECUTOR_LOG) or "").splitlines()
        return [line for line in lines if not _LOG_LINE.fullmatch(line)]

    @property
    def said(self):
        """(level, message) of all that the program sent to /dev/log, from each of its processes.

        The executor's own come at any time between the others."""
        return [(message.level, message.message) for message in self.syslog
                if (message.facility, message.name) == (_DAEMON, "bootweave")]

    @property
    def complaints(self):
        """What of "said" is more than a notice."""
        return [(level, message) for level, message in self.said if level < NOTICE]

    @property
    def kernel(self):
        """The records written to /dev/kmsg."""
        lines = (self.read("kmsg") or "").splitlines()
        found = [_KERNEL_RECORD.fullmatch(line) for line in lines]
        return [KernelRecord(int(match[1]), match[2]) if match else KernelRecord(-1, line)
                for match, line in zip(found, lines)]

    @property
    def syslog(self):
        """The messages that arrived at /dev/log, unless a log daemon of the test's own received them."""
        lines = (self.read("syslog") or "").splitlines()
        return [self._syslog_message(line) for line in lines]

    @staticmethod
    def _syslog_message(line):
        found = _SYSLOG_MESSAGE.fullmatch(line)
        if found is None:
            return SyslogMessage(-1, -1, None, None, line)
        priority = int(found[1])
        process = None if found[3] is None else int(found[3])
        return SyslogMessage(priority >> 3, priority & 7, found[2], process, found[4])

    @property
    def activated(self):
        """The plugins' names in the order in which they were begun."""
        return self._plugins(r"bootweave: Activating Bootweave plugin (.*)\.")

    @property
    def succeeded(self):
        """The plugins' names in the order in which they ended well."""
        return self._plugins(r"bootweave: Bootweave plugin (.*) activated\.")

    @property
    def failed(self):
        """Plugin name -> reason, for those that failed."""
        pattern = re.compile(r"bootweave: Bootweave plugin (.*?) activation failed: (.*)")
        found = (pattern.fullmatch(record.text) for record in self.kernel)
        return {match[1]: match[2] for match in found if match}

    def _plugins(self, pattern):
        found = (re.fullmatch(pattern, record.text) for record in self.kernel)
        return [match[1] for match in found if match]

    def read(self, path):
        """The text of a kept file of the host, by its path there; None when there was none."""
        data = self.read_bytes(path)
        return None if data is None else data.decode("utf-8", "replace")

    def read_bytes(self, path):
        place = os.path.join(self._results, self._inside(path))
        if not os.path.isfile(place):
            return None
        with open(place, "rb") as file:
            return file.read()

    @staticmethod
    def _inside(path):
        # As on the host, where /var/run is a link.
        return re.sub(r"^/?var/run/", "run/", path).lstrip("/")

    def describe(self):
        """For the report on a failed test."""
        parts = [f"exit status {self.status} after {self.seconds:.2f} s"]
        for title, text in (("standard output", self.stdout), ("standard error", self.stderr),
                            ("kmsg", self.read("kmsg")), ("syslog", self.read("syslog")),
                            ("executor's log", self.read(EXECUTOR_LOG))):
            if text:
                shown = text if len(text) <= 4000 else "...\n" + text[-4000:]
                parts.append(f"{title}:\n" + "\n".join("    " + line for line in shown.splitlines()))
        return "\n".join(parts)


class Running:
    """A host whose command runs; made by Host.start()."""

    def __init__(self, process, results, timeout, ended):
        self.process = process      # the subprocess.Popen of the throw-away host
        self.results = results      # directory in which "kmsg" and "syslog" grow meanwhile
        self._timeout = timeout
        self._ended = ended
        self._started = time.monotonic()

    def finish(self):
        """Waits for the host's end and returns what it left behind."""
        try:
            stdout, stderr = self.process.communicate(timeout=self._timeout + 30)
        except subprocess.TimeoutExpired:
            self.process.kill()
            self.process.communicate()
            raise
        ending = Ending(self.results, self.process.returncode, (stdout or b"").decode("utf-8", "replace"),
                        (stderr or b"").decode("utf-8", "replace"), time.monotonic() - self._started)
        self._keep_counts()
        self._ended(ending)
        if ending.status == BROKEN and "throwaway-host:" in ending.stderr:
            raise RuntimeError(f"the host could not be made: {ending.stderr.strip()}")
        return ending

    def _keep_counts(self):
        build = os.environ.get(COVERAGE_VARIABLE)
        counts = self.results + (build or "")
        if build is not None and os.path.isdir(counts):
            os.makedirs(f"{build}/hosts", exist_ok=True)
            shutil.move(counts, tempfile.mkdtemp(dir=f"{build}/hosts"))


class Host:
    """A host to be: what lies on it, and how it is run. Each run is a new host with the same files."""

    def __init__(self, case, files, trees, setup, keep, syslog):
        self._case = case
        self._directory = tempfile.mkdtemp(prefix="bootweave-system-")
        case.addCleanup(shutil.rmtree, self._directory, ignore_errors=True)
        self._trees = list(trees)
        self._keep = [*_KEPT, *keep]
        self._syslog = syslog
        self._setup = None
        self._runs = 0
        self._own_program = PROGRAM in files or any(
            os.path.exists(os.path.join(tree, PROGRAM.lstrip("/"))) for tree in self._trees)
        # What a host has before the program runs, beside what is installed.
        self.write({"/run/corvane": Directory(), "/bootbank": Directory(), **files})
        if setup is not None:
            self._setup = os.path.join(self._directory, "setup")
            with open(self._setup, "w", encoding="utf-8") as file:
                file.write("#!/bin/sh\nset -e\n" + setup + "\n")

    def write(self, files):
        """Adds files to those that every later run of this host has."""
        for path, entry in files.items():
            place = os.path.join(self._directory, "tree", path.lstrip("/"))
            os.makedirs(os.path.dirname(place), exist_ok=True)
            if isinstance(entry, Directory):
                os.makedirs(place, exist_ok=True)
                os.chmod(place, entry.mode)
            elif isinstance(entry, Link):
                os.symlink(entry.target, place)
            else:
                file = entry if isinstance(entry, File) else File(entry)
                content = file.content.encode() if isinstance(file.content, str) else file.content
                with open(place, "wb") as stream:
                    stream.write(content)
                os.chmod(place, file.mode)

    def boot(self, *arguments, **options):
        """Runs the program with these arguments to its end; options as for start()."""
        return self.run(PROGRAM, *arguments, **options)

    def shell(self, script, *arguments, **options):
        """Runs a shell script on the host, for cases that do something before or after the program.

        :param arguments: what the script finds in $0, $1 and so on
        """
        return self.run("/bin/sh", "-c", script, *arguments, **options)

    def run(self, *argv, **options):
        return self.start(*argv, **options).finish()

    def start(self, *argv, timeout=60, environment=None, stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
              stderr=subprocess.PIPE, console=None):
        """Starts a command on the host.

        :param timeout: seconds after which the host ends with status TIMED_OUT
        :param environment: variables added to PATH, HOME and LANG, the only others
        :param console: path of a terminal for the host's /dev/console
        """
        stage = os.environ.get(STAGE_VARIABLE)
        if stage is None and not self._own_program and PROGRAM in " ".join(argv):
            raise RuntimeError("no program to test: run this through tests/system/run --stage DIRECTORY")
        self._runs += 1
        results = os.path.join(self._directory, f"results-{self._runs}")
        words = [_RUNNER, "--die-with-parent", "--results", results, "--timeout", str(timeout)]
        if stage is not None:
            words += ["--install", stage]
        for tree in [*self._trees, os.path.join(self._directory, "tree")]:
            words += ["--tree", tree]
        for path in self._keep:
            words += ["--keep", path]
        if COVERAGE_VARIABLE in os.environ:
            words += ["--keep", os.environ[COVERAGE_VARIABLE]]
        preset = os.environ.get(PRESET_VARIABLE, "release")
        for name, value in {**_SANITIZER_OPTIONS.get(preset, {}), **(environment or {})}.items():
            words += ["--setenv", f"{name}={value}"]
        if self._setup is not None:
            words += ["--setup", self._setup]
        if self._syslog:
            words += ["--syslog"]
        if console is not None:
            words += ["--console", console]
        process = subprocess.Popen([*words, "--", *argv], stdin=stdin, stdout=stdout, stderr=stderr)
        running = Running(process, results, timeout, self._case.endings.append)
        self._case.addCleanup(self._end, process)
        return running

    @staticmethod
    def _end(process):
        if process.poll() is None:
            process.terminate()
            process.wait()
        for stream in (process.stdout, process.stderr):
            if stream is not None:
                stream.close()


class SystemTest(unittest.TestCase):
    """Base of all cases; ends what a case has started, whatever its outcome."""

    maxDiff = None

    def __init__(self, method="runTest"):
        super().__init__(method)
        self.endings = []       # of every run, for the report when the case fails

    def need_users(self):
        """Skips a case that needs hosts with more users than root, which an ordinary user cannot make."""
        users = self.host().shell("cat /proc/self/uid_map").stdout.split()
        if int(users[2]) < 65535:
            self.skipTest("needs users other than root on the host, which only root can make")

    def need_plain_threads(self):
        """Skips a case that the thread sanitizer cannot follow, or whose threads it adds to."""
        if os.environ.get(PRESET_VARIABLE, "release") == "tsan":
            self.skipTest("the thread sanitizer has a thread of its own and loses count behind a fork")

    def need_small_limits(self):
        """Skips a case that leaves the program so little that a sanitizer's own needs would end it."""
        if os.environ.get(PRESET_VARIABLE, "release") in _SANITIZER_OPTIONS:
            self.skipTest("a sanitizer needs more memory and descriptors than this leaves")

    def host(self, *files, trees=(), setup=None, keep=(), syslog=True):
        """A host with these files.

        :param files: mappings from absolute path to text, bytes, File, Link or Directory; later ones win
        :param trees: directories laid over the root before the files
        :param setup: lines of a shell script that runs on the host before the command
        :param keep: more paths to keep for Ending.read()
        :param syslog: receive at /dev/log; not for hosts with a log daemon of their own
        """
        merged = {}
        for mapping in files:
            merged.update(mapping)
        return Host(self, merged, trees, setup, keep, syslog)

    def sample_host(self, *files, profile=None, **options):
        """The host of examples/host/, with its own log daemon and, if named, a host profile."""
        from native_build import sample_plugins     # which needs this module
        trees = [os.path.join(_SAMPLE_HOST, "root")]
        if profile is not None:
            trees.append(os.path.join(_SAMPLE_HOST, "profiles", profile))
        return self.host(sample_plugins(), *files, trees=trees, syslog=False, **options)
