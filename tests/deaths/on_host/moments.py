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
    """Before or after a system call of the run's main thread, while it writes its records.

    :param operation: behind which operation on the files, from 1 on
    :param stops: at how many beginnings and ends of system calls behind that
    :param in_place: whether only operations on the profile and the record themselves count, such as renames
        to them, and not those on the files that become one
    """

    def __init__(self, operation, stops, in_place):
        self._operation = operation
        self._stops = stops
        self._in_place = in_place
        self._watch = None
        self.text = f"{stops} stops behind file operation {operation}{' in place' if in_place else ''}"

    def prepare(self):
        self._watch = RecordWatch(self._in_place)

    def wait(self, run):
        left = self._stops
        with self._watch:
            stops = tracing.follow(run.driver)
            try:
                while left >= 0:
                    next(stops)
                    # What the run has just done to a file has been noted before the run was stopped.
                    left -= self._watch.count() >= self._operation
                return True
            except StopIteration as end:
                run.ended_with(end.value)
                return False


class RecordWatch:
    """Notes what is done to the profile, the record, and the files that become one. A context manager.

    :param in_place: not to the latter
    """

    def __init__(self, in_place):
        library = ctypes.CDLL(None, use_errno=True)
        self._watch = library.inotify_init1(os.O_NONBLOCK | os.O_CLOEXEC)
        self._in_place = in_place
        self._count = 0
        for directory in b"/var/log", b"/bootbank":
            if library.inotify_add_watch(self._watch, directory, _EVENTS) < 0:
                raise OSError(ctypes.get_errno(), "inotify_add_watch")

    def __enter__(self):
        return self

    def __exit__(self, *_):
        os.close(self._watch)

    def count(self):
        """How often something has been done to them."""
        self._count += sum(name in _NAMES if self._in_place else name.startswith(_NAMES)
                           for name in self._names())
        return self._count

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
