# SPDX-License-Identifier: Apache-2.0
"""Which calls of the system are made to fail, and how.

Only what a kernel can answer: anything else would ask the program for what no host needs. EINTR is where a
signal can end a call that has begun to wait; Linux never gives it for the others, whatever the manual pages
say of them."""

import errno

_EIO, _ENOSPC, _EMFILE = errno.EIO, errno.ENOSPC, errno.EMFILE
_ENOMEM, _EINTR, _EAGAIN = errno.ENOMEM, errno.EINTR, errno.EAGAIN

_FAULTS = {
    # Files.
    "openat": (_EIO, _ENOMEM, _EMFILE),
    "openat create": (_EIO, _ENOSPC, _ENOMEM, _EMFILE),
    "read": (_EIO, _EINTR),
    "pread64": (_EIO,),
    "readv": (_EIO, _EINTR),
    "write": (_EIO, _ENOSPC, _EINTR),
    "writev": (_EIO, _ENOSPC, _EINTR),
    "pwrite64": (_EIO, _ENOSPC),
    "copy_file_range": (_EIO, _ENOSPC),
    "close": (_EIO, _ENOSPC),                   # what a file system writes late, it reports here
    "fsync": (_EIO, _ENOSPC),
    "fdatasync": (_EIO, _ENOSPC),
    "ftruncate": (_EIO, _ENOSPC),
    "rename": (_EIO, _ENOSPC, _ENOMEM),
    "renameat": (_EIO, _ENOSPC, _ENOMEM),
    "renameat2": (_EIO, _ENOSPC, _ENOMEM),
    "unlink": (_EIO, _ENOMEM),
    "unlinkat": (_EIO, _ENOMEM),
    "mkdir": (_EIO, _ENOSPC, _ENOMEM),
    "mkdirat": (_EIO, _ENOSPC, _ENOMEM),
    "chmod": (_EIO, _ENOSPC, _ENOMEM),
    "fchmod": (_EIO, _ENOSPC),
    "fchmodat": (_EIO, _ENOSPC, _ENOMEM),
    "stat": (_EIO, _ENOMEM),
    "lstat": (_EIO, _ENOMEM),
    "fstat": (_EIO,),
    "newfstatat": (_EIO, _ENOMEM),
    "statx": (_EIO, _ENOMEM),
    "statfs": (_EIO, _ENOMEM),
    "fstatfs": (_EIO,),
    "access": (_EIO, _ENOMEM),
    "faccessat": (_EIO, _ENOMEM),
    "faccessat2": (_EIO, _ENOMEM),
    "readlink": (_EIO, _ENOMEM),
    "readlinkat": (_EIO, _ENOMEM),
    "getdents64": (_EIO, _ENOMEM),
    "getcwd": (_ENOMEM,),
    "chdir": (_EIO, _ENOMEM),
    "fchdir": (_EIO,),
    # Descriptors.
    "dup": (_EMFILE,),
    "dup2": (_EMFILE,),
    "dup3": (_EMFILE,),
    "fcntl duplicate": (_EMFILE,),
    "pipe": (_EMFILE, _ENOMEM),
    "pipe2": (_EMFILE, _ENOMEM),
    "eventfd2": (_EMFILE, _ENOMEM),
    "memfd_create": (_EMFILE, _ENOMEM),
    "pidfd_open": (_EMFILE, _ENOMEM),
    "close_range": (_ENOMEM,),
    "poll": (_ENOMEM, _EINTR),
    "ppoll": (_ENOMEM, _EINTR),
    "flock": (_ENOMEM, _EINTR),
    # Sockets.
    "socket": (_EMFILE, _ENOMEM),
    "socketpair": (_EMFILE, _ENOMEM),
    "bind": (_EIO, _ENOSPC, _ENOMEM),
    "listen": (_ENOMEM,),
    "accept4": (_EMFILE, _ENOMEM, _EINTR),
    "connect": (_ENOMEM, _EINTR),
    "sendto": (_ENOMEM, _EINTR),
    "sendmsg": (_ENOMEM, _EINTR),
    "recvfrom": (_ENOMEM, _EINTR),
    "recvmsg": (_ENOMEM, _EINTR),
    "getsockopt": (_ENOMEM,),
    "setsockopt": (_ENOMEM,),
    # Processes and threads.
    "clone": (_EAGAIN, _ENOMEM),
    "clone3": (_EAGAIN, _ENOMEM),
    "fork": (_EAGAIN, _ENOMEM),
    "vfork": (_EAGAIN, _ENOMEM),
    "execve": (_EIO, _ENOMEM, _EAGAIN),
    "wait4": (_EINTR,),
    "waitid": (_EINTR,),
    "futex wait": (_EINTR,),
    "kill": (errno.ESRCH,),
    "setsid": (errno.EPERM,),
    "setpgid": (errno.EPERM,),
    "prctl": (errno.EINVAL,),
    # Memory.
    "brk": (_ENOMEM,),
    "mmap": (_ENOMEM,),
    "mremap": (_ENOMEM,),
    "mprotect": (_ENOMEM,),
    "munmap": (_ENOMEM,),
    "madvise": (_ENOMEM,),
    # Of the kernel as a whole.
    "getrandom": (_EINTR,),
    "clock_nanosleep": (_EINTR,),
    "sched_getaffinity": (_ENOMEM,),
}

_CANNOT_FAIL = "gives a number that the kernel always has"
_ONLY_BY_MISTAKE = "fails only when it is given what is no address, number or option"
_NEVER_RETURNS = "does not come back"

# Call -> why it is left out.
LEFT_OUT = {
    **dict.fromkeys(("getpid", "getppid", "gettid", "getuid", "geteuid", "getgid", "getegid", "getpgid",
                     "getpgrp", "umask", "time"), _CANNOT_FAIL),
    **dict.fromkeys(("rt_sigaction", "rt_sigprocmask", "sigaltstack", "set_tid_address", "set_robust_list",
                     "rseq", "arch_prctl", "prlimit64", "getrlimit", "sysinfo", "uname", "getsockname",
                     "lseek", "sched_yield", "tgkill"), _ONLY_BY_MISTAKE),
    **dict.fromkeys(("exit", "exit_group", "rt_sigreturn"), _NEVER_RETURNS),
    "futex": "wakes those that wait, and " + _ONLY_BY_MISTAKE,
    "fcntl": "sets or tells flags, and " + _ONLY_BY_MISTAKE,
    "restart_syscall": "is another call that goes on",
    "ioctl": "asks for a terminal's settings, or a pipe's size; no file has the one, each pipe the other",
    "shutdown": "fails only where there is no connection any more",
}


# What the sample host's native plugins do in the program that runs them is their own affair.
_OF_NATIVE_PLUGINS = ("/var/lib/corvane/", "/dev/watchdog", "/run/faults/stdout")


def faults_of(name, call, phase, subject):
    """The errnos for a call.

    :param name: of the thread that makes it, as in tracer.h
    :param call: its name in the injector's report; LookupError for an unknown one
    :param phase: "start", "loader" or "own", as in that report
    :param subject: the path that the call is about, or what its descriptor is
    """
    if call in LEFT_OUT:
        return ()
    if "=nativeExecutor" in name and subject.startswith(_OF_NATIVE_PLUGINS):
        return ()
    faults = _FAULTS[call]
    if phase != "own":
        # The loader does not repeat what a signal interrupts: it reads nothing but files.
        faults = [error for error in faults if error != _EINTR]
    if call in ("fstat", "newfstatat") and not subject.startswith("/"):
        return ()       # what is no file is described by the kernel out of its own memory
    return faults
