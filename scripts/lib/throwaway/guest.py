# SPDX-License-Identifier: Apache-2.0
"""Process 1 of a throw-away host.

It starts the set-up script and the command, reaps what they leave behind, keeps the messages sent to
/dev/log if asked to, and at the end kills every process and copies the results out.

Ends:  the command ends; the time is up; the runner closes its end of the lifeline, or dies.
"""

import errno
import os
import select
import signal
import socket
import time

from . import linux, trees

BROKEN = 125        # exit status: the host itself could not be made, or its results not be kept
TIMED_OUT = 124

_ENVIRONMENT = {"PATH": "/usr/sbin:/usr/bin:/sbin:/bin", "HOME": "/root", "LANG": "C.UTF-8"}
_SETUP = "/run/throwaway-setup"

# With these, root could set the machine's clock, load modules, reach its devices, or stop it: sys_module,
# sys_rawio, sys_pacct, sys_boot, sys_time, sys_tty_config, mknod, audit_write, audit_control, mac_override,
# mac_admin, syslog, wake_alarm, block_suspend, audit_read, perfmon, bpf.
_DANGEROUS_CAPABILITIES = (16, 17, 20, 22, 25, 26, 27, 29, 30, 32, 33, 34, 35, 36, 37, 38, 39)


class Stopped(Exception):
    """The host has to end although the command has not."""

    def __init__(self, status):
        super().__init__(status)
        self.status = status


class Guest:
    """One host's process 1. Everything runs on one thread, which sleeps in poll()."""

    def __init__(self, lifeline, results, timeout, environment):
        """
        :param lifeline: descriptor that becomes readable or ends when the host has to end
        :param results: descriptor of the results directory, or None
        :param timeout: seconds that set-up and command may take together, or None
        :param environment: variables that are added to the fixed ones
        """
        self._lifeline = lifeline
        self._results = results
        self._deadline = None if timeout is None else time.monotonic() + timeout
        self._environment = {**_ENVIRONMENT, **environment}
        self._messages = None
        self._message_file = None
        self._wakeup, wakeup = os.pipe2(os.O_CLOEXEC | os.O_NONBLOCK)
        signal.set_wakeup_fd(wakeup, warn_on_full_buffer=False)
        for number in (signal.SIGCHLD, signal.SIGTERM, signal.SIGINT, signal.SIGHUP, signal.SIGQUIT):
            signal.signal(number, lambda *_: None)
        self._poll = select.poll()
        for descriptor in (self._wakeup, self._lifeline):
            self._poll.register(descriptor, select.POLLIN)

    def open_syslog(self):
        """Keeps each message sent to /dev/log as a line of the results file "syslog"."""
        self._messages = socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM | socket.SOCK_NONBLOCK)
        self._messages.bind("/dev/log")
        os.chmod("/dev/log", 0o666)
        flags = os.O_WRONLY | os.O_CREAT | os.O_TRUNC | os.O_CLOEXEC
        self._message_file = os.open("syslog", flags, 0o644, dir_fd=self._results)
        self._poll.register(self._messages, select.POLLIN)

    def run_setup(self, script):
        """Runs the script, given as its bytes; returns its exit status."""
        with open(_SETUP, "wb") as file:
            file.write(script)
        os.chmod(_SETUP, 0o700)
        status = self.run([_SETUP])
        os.unlink(_SETUP)
        return status

    def run(self, argv):
        """Runs one program to its end.

        :return: its exit status; 127 when it could not be run; 128 + N when signal N ended it
        :raises Stopped: when the host has to end first
        """
        child = os.fork()
        if child == 0:
            _become(argv, self._environment)
        while True:
            status = self._reap(child)
            if status is not None:
                code = os.waitstatus_to_exitcode(status)
                return code if code >= 0 else 128 - code
            self._wait()

    def end(self, keep, was_changed):
        """Kills every process, takes the last messages, copies the results out.

        :return: what could not be kept, one text per failure
        """
        # The lifeline is not watched any more; a runner that is killed now takes this process along.
        linux.set_parent_death_signal(signal.SIGKILL)
        try:
            os.kill(-1, signal.SIGKILL)
        except ProcessLookupError:
            pass
        while True:
            try:
                os.wait()
            except ChildProcessError:
                break
        if self._messages is not None:
            self._take_messages()
        failures = []
        for path in keep:
            try:
                trees.copy_out(path, self._results, was_changed)
            except OSError as error:
                failures.append(f"cannot keep {path}: {error}")
        return failures

    @staticmethod
    def _reap(wanted):
        """Collects every process that has ended; the status of the wanted one when it is among them."""
        found = None
        while True:
            try:
                process, status = os.waitpid(-1, os.WNOHANG)
            except ChildProcessError:
                return found
            if process == 0:
                return found
            if process == wanted:
                found = status

    def _wait(self):
        budget = None
        if self._deadline is not None:
            budget = self._deadline - time.monotonic()
            if budget <= 0:
                raise Stopped(TIMED_OUT)
        for descriptor, _ in self._poll.poll(None if budget is None else int(budget * 1000) + 1):
            if descriptor == self._wakeup:
                os.read(self._wakeup, 4096)
            elif descriptor == self._lifeline:
                raise Stopped(BROKEN)
            else:
                self._take_messages()

    def _take_messages(self):
        while True:
            try:
                message = self._messages.recv(1 << 18)
            except BlockingIOError:
                return
            except OSError as error:
                if error.errno != errno.EINTR:
                    raise
                continue
            os.write(self._message_file, message.rstrip(b"\0\n").replace(b"\n", b"\\n") + b"\n")


def _become(argv, environment):
    """Replaces this freshly forked process by a program that starts with default signal dispositions."""
    # Not os.posix_spawn(): the C library's leaves two real-time signals ignored in the child.
    try:
        signal.set_wakeup_fd(-1)
        for number in signal.valid_signals() - {signal.SIGKILL, signal.SIGSTOP}:
            signal.signal(number, signal.SIG_DFL)
        os.execvpe(argv[0], argv, environment)
    except OSError as error:
        os.write(2, os.fsencode(f"throwaway-host: {argv[0]}: {error.strerror}\n"))
    finally:
        os._exit(127)


def give_up_dangerous_capabilities():
    """For a host whose root is the machine's root; takes effect in what is executed from now on."""
    linux.drop_capability_bounds(_DANGEROUS_CAPABILITIES)
