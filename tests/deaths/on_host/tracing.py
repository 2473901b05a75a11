# SPDX-License-Identifier: Apache-2.0
"""Follows the main thread of a run from system call to system call."""

import ctypes
import os
import signal

_SEIZE, _INTERRUPT, _SYSCALL = 0x4206, 0x4207, 24
_MARK_SYSCALLS = 1              # an option: such a stop has another bit in its signal
_SYSCALL_STOP = signal.SIGTRAP | 0x80
_ALL_THREADS = 0x40000000       # of waitpid
_EVENT_SHIFT = 16

_library = ctypes.CDLL(None, use_errno=True)
_library.ptrace.restype = ctypes.c_long
_library.ptrace.argtypes = [ctypes.c_long, ctypes.c_long, ctypes.c_void_p, ctypes.c_void_p]


def _ptrace(request, process, data=0):
    if _library.ptrace(request, process, None, data) < 0:
        raise OSError(ctypes.get_errno(), f"ptrace {request:#x}")


def follow(process):
    """Yields at each stop, before a system call begins and after it has ended; `process` is a child.

    :return: the wait status of its end; the generator may be closed at any stop, and the process killed there
    """
    _ptrace(_SEIZE, process, _MARK_SYSCALLS)
    _ptrace(_INTERRUPT, process)
    while True:
        _, status = os.waitpid(process, _ALL_THREADS)
        if not os.WIFSTOPPED(status):
            return status
        number = os.WSTOPSIG(status)
        if number == _SYSCALL_STOP:
            yield
        is_signal = number != _SYSCALL_STOP and status >> _EVENT_SHIFT == 0
        _ptrace(_SYSCALL, process, number if is_signal else 0)
