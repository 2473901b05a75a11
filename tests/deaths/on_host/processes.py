# SPDX-License-Identifier: Apache-2.0
"""The host's processes, as /proc shows them."""

import dataclasses
import os
import socket
import time

EXECUTOR_LOG = "/var/log/bootweave-hostcli-stdout.log"
_SOCKET = "/var/run/corvane/bootweaveExecutor.sock"
_PROGRAM = "bootweave"


@dataclasses.dataclass(frozen=True)
class Process:
    """A process at the moment at which it was looked at."""
    number: int
    name: str
    state: str
    parent: int
    session: int
    words: tuple        # its command line

    @property
    def has_ended(self):
        return self.state in "ZX"


def look_at(number):
    """The process of this number; None when there is none."""
    try:
        with open(f"/proc/{number}/stat", encoding="utf-8", errors="replace") as file:
            front, _, rest = file.read().rpartition(") ")
        with open(f"/proc/{number}/cmdline", encoding="utf-8", errors="replace") as file:
            words = tuple(file.read().split("\0")[:-1])
    except (FileNotFoundError, ProcessLookupError):
        return None
    state, parent, _, session, *_ = rest.split()
    return Process(number, front.partition("(")[2], state, int(parent), int(session), words)


def all_running():
    """All that have not ended."""
    numbers = (int(name) for name in os.listdir("/proc") if name.isdigit())
    found = (look_at(number) for number in numbers)
    return [process for process in found if process is not None and not process.has_ended]


def executor_of(driver):
    """The executor, as soon as it has turned away from the run's own streams; None without one.

    :param driver: process id of the run; it may have ended
    """
    for process in all_running():
        if process.name == _PROGRAM and process.number != driver:
            # The daemon itself, or the process that becomes one. Other children of the run are no executor.
            if process.parent == 1 or (process.parent == driver and _writes_executor_log(process.number)):
                return process
    return None


def _writes_executor_log(number):
    try:
        return os.readlink(f"/proc/{number}/fd/1") == EXECUTOR_LOG
    except OSError:
        return False


def native_executor_of(driver):
    """A native executor of the run; None without one. Its third word names the plugin."""
    for process in all_running():
        if process.parent == driver and process.words and process.words[0].endswith("/nativeExecutor"):
            return process
    return None


def script_of(driver):
    """An init script that the run has started; None without one. Its second word is the path."""
    for process in all_running():
        if process.parent == driver and any(word.startswith("/etc/init.d/") for word in process.words[1:2]):
            return process
    return None


def somebody_listens():
    """Whether a process listens on the control socket."""
    with open("/proc/net/unix", encoding="utf-8") as file:
        return any(line.rstrip().endswith(" " + _SOCKET) and " 00010000 " in line for line in file)


def until(condition, what, seconds=20):
    """Waits for the condition.

    :raises TimeoutError: with `what` and the processes that there are, when it does not come
    """
    deadline = time.monotonic() + seconds
    while not condition():
        if time.monotonic() > deadline:
            raise TimeoutError(f"in vain: {what}; " + "; ".join(map(str, all_running())))
        time.sleep(0.005)


def wait_for_rest_of(driver, session):
    """Waits until nothing of a run is at work any more, but for an executor that waits for commands.

    :param session: another one, in which there is something of the run
    """
    def at_rest():
        running = all_running()
        programs = [process for process in running if process.name == _PROGRAM]
        sessions = {driver, session, *(process.session for process in programs)}
        # This one goes on in the background on purpose, for longer than a run takes.
        others = [process for process in running if process.session in sessions
                  and process not in programs and not any("backup-index" in word for word in process.words)]
        return not others and (not programs or (len(programs) == 1 and somebody_listens()))

    until(at_rest, "that only an executor is left of the run")
    # The last words of a run that was killed may be on their way to its executor, a stop request among them.
    if somebody_listens() and not _answers():
        wait_for_no_program()


def _answers():
    """Whether the executor answers, which it does when all that has reached it before is done."""
    with socket.socket(socket.AF_UNIX) as client:
        try:
            client.connect(_SOCKET)
            client.shutdown(socket.SHUT_WR)     # a request of no bytes, a failed command
            return len(client.recv(4)) == 4
        except ConnectionError:
            return False


def wait_for_no_program():
    """Waits until no process of the program is left."""
    until(lambda: not any(process.name == _PROGRAM for process in all_running()), "that no process is left")
