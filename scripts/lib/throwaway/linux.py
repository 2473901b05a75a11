# SPDX-License-Identifier: Apache-2.0
"""System calls that Python 3.11 has no wrapper for, through the C library.

Each raises OSError with the system's error text, and names what it worked on.
"""

import ctypes
import os

CLONE_NEWNS = 0x00020000
CLONE_NEWUTS = 0x04000000
CLONE_NEWIPC = 0x08000000
CLONE_NEWUSER = 0x10000000
CLONE_NEWPID = 0x20000000
CLONE_NEWNET = 0x40000000

MS_RDONLY = 1
MS_NOSUID = 2
MS_NODEV = 4
MS_NOEXEC = 8
MS_REMOUNT = 32
MS_BIND = 4096
MS_REC = 16384
MS_PRIVATE = 1 << 18

_MNT_DETACH = 2
_PR_SET_PDEATHSIG = 1
_PR_SET_CHILD_SUBREAPER = 36
_PR_CAPBSET_READ = 23
_PR_CAPBSET_DROP = 24

_libc = ctypes.CDLL(None, use_errno=True)


def _check(result, subject):
    if result == -1:
        number = ctypes.get_errno()
        raise OSError(number, os.strerror(number), subject)
    return result


def _text(value):
    return None if value is None else os.fsencode(value)


def mount(source, target, fstype=None, flags=0, data=None):
    result = _libc.mount(_text(source), _text(target), _text(fstype), ctypes.c_ulong(flags), _text(data))
    _check(result, target)


def bind(source, target):
    mount(source, target, flags=MS_BIND)


def make_read_only(target):
    """Makes a bound directory or file read-only; what a device node leads to stays writable.

    The mount keeps its other flags: a user namespace may not take them away.
    """
    kept = os.statvfs(target).f_flag & (MS_NOSUID | MS_NODEV | MS_NOEXEC)
    mount(None, target, flags=MS_REMOUNT | MS_BIND | MS_RDONLY | kept)


def detach(target):
    _check(_libc.umount2(_text(target), _MNT_DETACH), target)


def pivot_root(new, old):
    _check(_libc.pivot_root(_text(new), _text(old)), new)


def unshare(flags):
    _check(_libc.unshare(flags), "unshare")


def set_parent_death_signal(number):
    """The signal that this process gets when its parent ends; 0 for none."""
    _check(_libc.prctl(_PR_SET_PDEATHSIG, ctypes.c_ulong(number), 0, 0, 0), "prctl")


def adopt_orphans():
    """Descendants that lose their parent get this process for one, also once it executes another program."""
    _check(_libc.prctl(_PR_SET_CHILD_SUBREAPER, ctypes.c_ulong(1), 0, 0, 0), "prctl")


def drop_capability_bounds(numbers):
    """Takes capabilities from everything that this process executes from now on."""
    for number in numbers:
        if _libc.prctl(_PR_CAPBSET_READ, ctypes.c_ulong(number), 0, 0, 0) == 1:
            _check(_libc.prctl(_PR_CAPBSET_DROP, ctypes.c_ulong(number), 0, 0, 0), f"capability {number}")
