# SPDX-License-Identifier: Apache-2.0
"""At which moment of a run to kill: after a share of its length, or while it replaces a file."""

import ctypes
import os
import select
import struct
import time

_IN_MODIFY, _IN_ATTRIB, _IN_CLOSE_WRITE, _IN_MOVED_FROM, _IN_MOVED_TO, _IN_CREATE = 2, 4, 8, 0x40, 0x80, 0x100
_EVENTS = _IN_MODIFY | _IN_ATTRIB | _IN_CLOSE_WRITE | _IN_MOVED_FROM | _IN_MOVED_TO | _IN_CREATE
_HEADER = struct.Struct("iIII")
_NAMES = ("sysboot.log", "bootweav.gz")     # and what is beside them, of the same beginning


class ShareMoment:
    """After this share of the length that such a run has been measured to take."""

    def __init__(self, share, length):
        self._delay = share * length
        self.text = f"at {share:.3f} of {length:.3f} s"

    def prepare(self):
        """Is called before the run begins."""

    def wait(self, run):
        """Returns at the moment; false when the run has ended before."""
        try:
            run.wait(self._delay)
            return False
        except TimeoutError:
            return True


class FileMoment:
    """A little after a file operation of the run on the profile, the record, or a file that becomes one."""

    def __init__(self, count, delay):
        self._count = count
        self._delay = delay
        self._watch = None
        self.text = f"{delay * 1e6:.0f} us after file operation {count}"

    def prepare(self):
        library = ctypes.CDLL(None, use_errno=True)
        self._watch = library.inotify_init1(os.O_NONBLOCK | os.O_CLOEXEC)
        for directory in b"/var/log", b"/bootbank":
            if library.inotify_add_watch(self._watch, directory, _EVENTS) < 0:
                raise OSError(ctypes.get_errno(), "inotify_add_watch")

    def wait(self, run):
        seen = 0
        poll = select.poll()
        poll.register(self._watch, select.POLLIN)
        try:
            while seen < self._count:
                if not poll.poll(20) and run.has_ended():
                    return False
                seen += self._take()
        finally:
            os.close(self._watch)
        until = time.monotonic() + self._delay
        while time.monotonic() < until:     # too short to sleep for
            pass
        return not run.has_ended()

    def _take(self):
        """How many operations on the files there have been."""
        try:
            data = os.read(self._watch, 1 << 16)
        except BlockingIOError:
            return 0
        count = at = 0
        while at < len(data):
            size = _HEADER.unpack_from(data, at)[3]
            name = data[at + _HEADER.size:at + _HEADER.size + size].rstrip(b"\0").decode()
            count += name.startswith(_NAMES)
            at += _HEADER.size + size
        return count
