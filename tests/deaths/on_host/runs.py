# SPDX-License-Identifier: Apache-2.0
"""Kinds of runs of the sample host, and one run of the program with what it says."""

import dataclasses
import datetime
import os
import re
import subprocess
import time

import processes
import records

_LOG_LINE = re.compile(r"(\d{4}-\d\d-\d\dT\d\d:\d\d:\d\d\.\d{3}Z) bootweave\[\d+\]: (.*)")
_KERNEL_LOG = "/dev/kmsg"       # a plain file on a throw-away host
_OUTPUT = "/run/deaths-output"
_INVOKED = ("host-key", "filesystem-images", "hardware-inventory", "burn-in", "kernel-limits", "time-sync",
            "storage-adapters", "network-uplinks")


@dataclasses.dataclass(frozen=True)
class Kind:
    """A way to run the program."""
    name: str
    arguments: tuple
    victims: tuple
    parallel: bool = False

    @property
    def is_daemon(self):
        return "--daemon=wait" in self.arguments

    @property
    def is_invoke(self):
        return "--invoke" in self.arguments


def _kinds():
    boot = "driver", "executor", "native executor"
    daemon = "driver", "init script"
    files = ",".join(name + (".so" if name in ("hardware-inventory", "burn-in") else ".json")
                     for name in _INVOKED)
    yield Kind("serial boot", ("--init",), boot)
    yield Kind("parallel boot", ("--init", "--parallel"), boot, parallel=True)
    yield Kind("invoke", ("--invoke", "--method=start", f"--plugin={files}"), boot)
    yield Kind("daemon start", ("--daemon=wait", "--method=start", "--parallel"), daemon, parallel=True)
    yield Kind("daemon stop", ("--daemon=wait", "--method=stop"), daemon)


KINDS = {kind.name: kind for kind in _kinds()}
UNTOUCHED = "untouched"
RUN_ONCE = {"filesystem-images": "filesystem-images1.0", "hardware-inventory": "hardware-inventory1.0",
            "host-key": "host-key2"}


class Run:
    """One run of the program, from its start on.

    :param tag: a number of this run alone; the profile shows it as the seed, the record as a key
    """

    def __init__(self, kind, tag):
        self.kind = kind
        self.tag = tag
        self.old = records.Records.now()
        self._kernel_start = _size(_KERNEL_LOG)
        self._executor_start = _size(processes.EXECUTOR_LOG)
        with open(_OUTPUT, "wb") as output:
            self.started = time.monotonic()
            self._process = subprocess.Popen(
                ["bootweave", *kind.arguments, f"--randomize={tag}", f"--run-once={self.key}"], stdout=output,
                stderr=output, stdin=subprocess.DEVNULL, start_new_session=True)

    @property
    def key(self):
        return f"tag{self.tag}"

    @property
    def driver(self):
        return self._process.pid

    def wait(self, seconds):
        """Waits for the end; its status as subprocess has it.

        :raises TimeoutError: when it does not come in time
        """
        try:
            return self._process.wait(seconds)
        except subprocess.TimeoutExpired:
            raise TimeoutError(f"the run has not ended within {seconds} s") from None

    def ended_with(self, status):
        """Is told the wait status of a run whose end somebody else has waited for."""
        self._process.returncode = os.waitstatus_to_exitcode(status)

    def has_ended(self):
        return self._process.poll() is not None

    def finish(self):
        """Waits for the end and takes what the run has left; returns itself."""
        self.status = self.wait(60)
        self.length = time.monotonic() - self.started
        self.new = records.Records.now()
        self.lines = _log_lines(_read_from(_OUTPUT, 0))
        self.messages = [message for _, message in self.lines]
        self._read_kernel_log()
        return self

    def executor_messages(self):
        """What the executor has said since the start of this run."""
        text = _read_from(processes.EXECUTOR_LOG, self._executor_start)
        return [message for _, message in _log_lines(text)]

    def _read_kernel_log(self):
        text = _read_from(_KERNEL_LOG, self._kernel_start)
        self.begun = _kernel_lines(r"(?:Activating Bootweave plugin|Deactivating Daemon) (.*)\.", text)
        self.succeeded = _kernel_lines(r"(?:Bootweave plugin|Daemon) (.*) (?:de)?activated\.", text)
        self.failed = dict(_kernel_lines(
            r"(?:Bootweave plugin|Daemon) (.*?) (?:de)?activation failed: (.*)", text))

    def skipped(self):
        """Names of the plugins that the record has kept from running once more."""
        return re.findall(r"^ignoring plugin '(.*?)' because version", "\n".join(self.messages), re.MULTILINE)

    def all_names(self):
        """Names of the plugins that a whole run begins, sorted."""
        return sorted(self.succeeded + list(self.failed))

    def ages(self, names):
        """Whether what the run has left as (record, profile) is "old" or "new"; both are checked to be whole.

        What a run of this kind does not write is UNTOUCHED.

        :param names: what a whole run of this kind begins, sorted
        """
        return self._age_of_record(names), self._age_of_profile(names)

    def _age_of_record(self, names):
        if self.kind.is_daemon:
            records.expect(self.new.record == self.old.record, "a daemon run has touched the record")
            return UNTOUCHED
        keys = {self.key} | {RUN_ONCE[name] for name in names if name in RUN_ONCE}
        if self.kind.is_invoke:
            keys |= records.keys_of(self.old.record)
        return records.age_of_record(self.old.record, self.new.record, keys)

    def _age_of_profile(self, names):
        if self.kind.is_invoke:
            records.expect(self.new.profile == self.old.profile, "an invoke run has touched the profile")
            return UNTOUCHED
        if self.kind.is_daemon:
            block = records.daemon_block(self.old.profile, self.kind.parallel, self.tag)
        else:
            block = records.boot_block(self.kind.parallel, self.tag)
        return records.age_of_profile(self.old.profile, self.new.profile, block, names)


def _size(path):
    try:
        return os.stat(path).st_size
    except FileNotFoundError:
        return 0


def _read_from(path, start):
    with open(path, encoding="utf-8", errors="replace") as file:
        file.seek(start)
        return file.read()


def _kernel_lines(pattern, text):
    """The groups of each of the program's lines in the kernel's log that matches."""
    return re.findall(rf"^<5>bootweave: {pattern}$", text, re.MULTILINE)


def _log_lines(text):
    """(seconds since the epoch, message) of each line of a log in a text."""
    found = (_LOG_LINE.fullmatch(line) for line in text.splitlines())
    return [(datetime.datetime.fromisoformat(line[1]).timestamp(), line[2]) for line in found if line]
