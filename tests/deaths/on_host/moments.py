# SPDX-License-Identifier: Apache-2.0
"""At which moment of a run to kill: after a share of its length, or at a system call while it writes."""

import ctypes
import os
import struct

import tracing

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


class SystemCallMoment:
    """Before or after a system call of the run's main thread, so many behind its first one on the records.

    :param count: beginnings and ends of system calls, from when the record or the profile is touched
    """

    def __init__(self, count):
        self._count = count
        self._watch = None
        self.text = f"{count} stops behind its first work on the records"

    def prepare(self):
        self._watch = RecordWatch()

    def wait(self, run):
        left = self._count
        with self._watch:
            stops = tracing.follow(run.driver)
            try:
                while True:
                    next(stops)
                    # What the run has just done to a file has been noted before the run was stopped.
                    if self._watch.has_begun():
                        left -= 1
                    if left < 0:
                        return True
            except StopIteration as end:
                run.ended_with(end.value)
                return False


class RecordWatch:
    """Notes what is done to the profile, the record, and the files that become one. A context manager."""

    def __init__(self):
        library = ctypes.CDLL(None, use_errno=True)
        self._watch = library.inotify_init1(os.O_NONBLOCK | os.O_CLOEXEC)
        self._begun = False
        for directory in b"/var/log", b"/bootbank":
            if library.inotify_add_watch(self._watch, directory, _EVENTS) < 0:
                raise OSError(ctypes.get_errno(), "inotify_add_watch")

    def __enter__(self):
        return self

    def __exit__(self, *_):
        os.close(self._watch)

    def has_begun(self):
        """Whether anything has been done to them."""
        if not self._begun:
            self._begun = any(name.startswith(_NAMES) for name in self._names())
        return self._begun

    def _names(self):
        try:
            data = os.read(self._watch, 1 << 16)
        except BlockingIOError:
            return
        at = 0
        while at < len(data):
            size = _HEADER.unpack_from(data, at)[3]
            yield data[at + _HEADER.size:at + _HEADER.size + size].rstrip(b"\0").decode()
            at += _HEADER.size + size
