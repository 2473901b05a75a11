# SPDX-License-Identifier: Apache-2.0
"""What must hold of a run in which something was killed, and of the next one."""

import os
import re
import subprocess

import processes
import runs
from records import expect, keys_of

_SOCKET = "/var/run/corvane/bootweaveExecutor.sock"
_UNIT = "/usr/lib/systemd/system/bootweave.service"

_LOST = "Failed to recieve command status from Executor: Connection reset by peer"
_NOT_SENT = ("Failed sending command to executor: Broken pipe",
             "Failed sending command to executor: Connection reset by peer")
_NO_EXECUTOR = "Could not connect to Executor:Connection refused"
_REFUSED = "Failed connecting to executor Connection refused"
_RESET = "Setting up Executor - Reset Requested"
_RESET_FAILED = "Resetting Executor failed, retrying: Bootweave executor failed to start"
_NOT_STARTED = "Failed to start executor Bootweave executor failed to start"
_IN_THE_WAY = "Unable to start executor: Failed to bind to executor control socket: Address already in use"
_STOP_NOT_SENT = re.compile(r"Failed to initialize bootweave: Failed sending STOP to executor(Broken pipe|"
                            r"Connection reset by peer|Transport endpoint is not connected)")
_LEFT_OUT = re.compile(r"ignoring plugin '.*' because version '.*'  has already been run\.")
_GONE = "Executor already gone."
_STOPPED = "Executor has been Successfully Stopped"
_RESETS_PER_COMMAND = 10
_COMMAND_FAILED = "Method invocation failed: {}->start() failed: error while executing the cli"
_EXECUTOR_TROUBLE = {_LOST, *_NOT_SENT, _NO_EXECUTOR, _REFUSED, _RESET, _RESET_FAILED, _GONE, _STOPPED}
_KILLED = "exited with signal: 9"
_TICK = 0.001       # of the log's clock


class Usual:
    """What a run of a kind is like when nothing is killed."""

    def __init__(self, run):
        expect(run.status == 0, f"the first run ended with status {run.status}: {run.messages}")
        self.names = run.all_names()
        self.failed = run.failed
        self.messages = set(run.messages)
        self.length = run.length
        # Those whose methods are host commands.
        plugins = os.listdir("/usr/libexec/bootweave/plugins")
        self.commanding = {name for name in self.names if f"{name}.json" in plugins}

    def names_but(self, skipped):
        return [name for name in self.names if name not in skipped]


def _check_messages(run, usual, *more):
    """That it said but what is usual, what these collections hold, and whom the record has left out."""
    known = usual.messages.union(*more)
    unusual = [message for message in run.messages
               if message not in known and not _LEFT_OUT.fullmatch(message)]
    expect(not unusual, f"it said {unusual}")


def _check_whole(run, usual, failed=None):
    """That all its plugins ran once, and just those failed that fail usually, or these; and its records."""
    names = usual.names_but(run.skipped())
    expect(sorted(run.begun) == names and run.all_names() == names,
           f"it began {sorted(run.begun)} and ended {run.all_names()}, not {names}")
    expected = {name for name in usual.failed if name in names} if failed is None else failed
    expect(set(run.failed) == expected, f"these failed: {run.failed}, not {sorted(expected)}")
    ages = run.ages(usual.names)
    expect("old" not in ages, f"the run went through, and (record, profile) are {ages}")
    expect(run.new.temporaries == run.old.temporaries, f"temporary files stay: {run.new.temporaries}")


def check_driver(run, usual):
    """Of a run whose driver was killed. Returns what became of the records, in words."""
    record, profile = run.ages(usual.names)
    expect((record, profile) != ("old", "new"), "the profile is new, and the record, which comes first, old")
    left = run.new.temporaries - run.old.temporaries
    # Who is killed between making a temporary file and renaming it cannot remove it.
    expect(len(left) <= 1 and run.new.temporaries >= run.old.temporaries, f"temporary files: {left}")
    return f"record {record}, profile {profile}{', a temporary file' if left else ''}"


def check_executor(run, usual, before, after):
    """Of a run whose executor was killed between these times, in seconds since the epoch."""
    if run.messages[-1] == _NOT_STARTED:
        expect((run.status, run.begun, run.new) == (1, [], run.old), "a run without executor has gone on")
        return "it was starting"
    if run.status != 0:
        expect(run.status == 1 and _STOP_NOT_SENT.fullmatch(run.messages[-1]),
               f"status {run.status}, {run.messages[-1]!r}")
    else:
        expect(run.messages[-1] in (_GONE, _STOPPED), f"at the end it said {run.messages[-1]!r}")
    count = run.messages.count
    lost = count(_LOST) + sum(map(count, _NOT_SENT))
    unheard = count(_NO_EXECUTOR)
    expect(count(_REFUSED) == count(_RESET_FAILED) == _RESETS_PER_COMMAND * unheard,
           f"{unheard} commands had no executor, with {count(_REFUSED)} attempts and "
           f"{count(_RESET_FAILED)} resets")
    expect(count(_RESET) == 1 + _RESETS_PER_COMMAND * unheard, f"{count(_RESET)} resets were asked for")
    failed = _failed_without_executor(run, usual, before, after)
    expect(not failed or lost + unheard > 0, f"{failed} failed without a word about the executor")
    _check_messages(run, usual, _EXECUTOR_TROUBLE, map(_COMMAND_FAILED.format, failed),
                    run.messages[-1:] if run.status else ())
    _check_whole(run, usual, failed | {name for name in usual.failed if name not in run.skipped()})
    return f"{lost} commands lost, {unheard} without executor"


def _failed_without_executor(run, usual, before, after):
    """The plugins that failed for want of an executor: all with commands that began later."""
    began = {}
    for moment, message in run.lines:
        if found := re.fullmatch(r"executing start plugin: (.*)", message):
            began[found[1]] = moment
    for name in usual.commanding & set(began):
        expect(began[name] <= after + _TICK or name in run.failed,
               f"{name} began {began[name] - after:.3f} s after the executor's death and did not fail")
    new = {name for name in run.failed if name not in usual.failed}
    expect(new <= usual.commanding, f"{new} have failed, and not all of them by a command")
    for name in new:
        _check_kernel_reason(run, name, f"{name}->start() failed: error while executing the cli")
    ended = [name for name in run.begun if began[name] < before - _TICK and name in new]
    # At most one of each worker was under way.
    workers = 1 if not run.kind.parallel else 2 * os.cpu_count()
    expect(len(ended) <= workers, f"{ended} began before the executor's death and failed")
    return new


def check_unharmed(run, usual):
    """Of a run in which nobody was killed, as it was over before."""
    expect(run.status == 0, f"status {run.status}")
    _check_messages(run, usual)
    _check_whole(run, usual)


def _check_kernel_reason(run, name, reason):
    """That the kernel's log has this reason; with --method it has none but for daemons that stop."""
    if any("--method" in word for word in run.kind.arguments) and "--method=stop" not in run.kind.arguments:
        reason = "Method invocation failed"
    expect(run.failed.get(name) == reason, f"the kernel's log says of {name}: {run.failed.get(name)!r}")


def check_native(run, usual, name):
    """Of a run in which this plugin's native executor was killed."""
    text = f"Method invocation failed: {name}->start() failed: {_KILLED}"
    expect(run.status == 0, f"status {run.status}")
    expect(text in run.messages, f"it did not say {text!r}")
    _check_kernel_reason(run, name, f"{name}->start() failed: {_KILLED}")
    _check_messages(run, usual, {text})
    _check_whole(run, usual, {name, *(name for name in usual.failed if name not in run.skipped())})
    return name


def check_script(run, usual, script):
    """Of a run in which the init script of this path was killed."""
    name = script.rpartition("/")[2]
    stops = "--method=stop" in run.kind.arguments
    line = f"{script} stop" if stops else f"{script} ++group=init/{name} start"
    reason = f"Execution of command: {line} failed with signal: 9"
    texts = [f"Bootweave failed to {'stop' if stops else 'start'}: {name} reason: {reason}"]
    if not stops:
        texts.append(f"Method invocation failed: {name}->start() failed: {reason}")
    expect(run.status == 0, f"status {run.status}")
    expect(set(texts) <= set(run.messages), f"it did not say {texts}")
    _check_kernel_reason(run, name, reason if stops else None)
    _check_messages(run, usual, texts)
    _check_whole(run, usual, {name, *usual.failed})
    return name


def prepare():
    """Does what the service unit does before it starts the program."""
    with open(_UNIT, encoding="utf-8") as file:
        lines = [line.rstrip("\n").partition("=")[2] for line in file if line.startswith("ExecStartPre=")]
    for line in lines:
        subprocess.run(["/bin/sh", "-ec", line.replace("$$", "$")], check=True)


def check_start_is_refused(kind, tag):
    """That no run begins over the socket file that a dead executor has left."""
    run = runs.Run(kind, tag).finish()
    last = ["Launching Executor", _RESET, _NOT_STARTED]
    expect((run.status, run.messages[-3:]) == (1, last), f"status {run.status}, {run.messages}")
    expect(run.begun == [] and run.new == run.old, "a run that was refused has gone on")
    expect(_IN_THE_WAY in run.executor_messages(), f"the executor said {run.executor_messages()}")


def check_next_run(kind, tag, usual):
    """That the next run, begun as the service unit does it, is like any other."""
    listens = processes.somebody_listens()
    if not kind.is_daemon:
        if os.path.exists(_SOCKET) and not listens:
            check_start_is_refused(kind, tag + 1)
        prepare()
        expect(os.path.exists(_SOCKET) == listens, "the unit has removed the wrong socket, or none")
    run = runs.Run(kind, tag).finish()
    expect(run.status == 0, f"the next run ended with status {run.status}: {run.messages[-3:]}")
    _check_messages(run, usual, {_STOPPED})
    _check_whole(run, usual)
    if kind.is_invoke:
        keys = keys_of(run.old.record)
        done = {name for name, key in runs.RUN_ONCE.items() if key in keys}
        expect(set(run.skipped()) == done & set(usual.names),
               f"it left out {run.skipped()}, and {sorted(done)} have run")
    else:
        expect(not run.skipped(), f"a boot has left out {run.skipped()}")
    if not kind.is_daemon:
        expect((_RESET in run.messages) != listens, "it used neither the executor left nor its own")
        processes.wait_for_no_program()
