# SPDX-License-Identifier: Apache-2.0
"""The file systems of a throw-away host.

    /             overlay of the machine's own root; what is written goes to memory
    /dev          a few harmless devices; a plain file in the place of kmsg, which no namespace separates
    /proc, /sys   the host's own processes and network; no knob of the machine can be turned
    /run, /tmp    empty, in memory

The machine's root is overlaid as a whole where that is allowed. In a user namespace it is not, as it has
mounts below it: there each top-level directory gets an overlay of its own (and a directory that still has
mounts below it is taken apart further). Files of the machine belong to "nobody" there and even this host's
root may not write into a directory of nobody's, so the directories in which a host writes are laid into
the upper layer beforehand, as the host's own.
"""

import errno
import os

from . import linux

_OLD = "/old"      # the machine's root, while the host's is put together
_NEW = "/new"
_LAYERS = "/layers"

_OWN = ("dev", "proc", "run", "sys", "tmp")
_DEVICES = ("null", "zero", "full", "random", "urandom", "tty")
_LINKS = {"fd": "/proc/self/fd", "stdin": "fd/0", "stdout": "fd/1", "stderr": "fd/2", "ptmx": "pts/ptmx"}

# Not files of the machine but views of its kernel, or memory that comes and goes.
_KERNEL_TYPES = frozenset((
    "autofs", "binfmt_misc", "bpf", "cgroup", "cgroup2", "configfs", "debugfs", "devpts", "devtmpfs",
    "efivarfs", "fusectl", "hugetlbfs", "mqueue", "nsfs", "proc", "pstore", "ramfs", "rpc_pipefs",
    "securityfs", "squashfs", "sysfs", "tmpfs", "tracefs"))

# Below /proc, what would reach the machine as a whole. /proc/sys/net belongs to the host's own network.
_READ_ONLY_PROC = ("acpi", "bus", "fs", "irq", "scsi", "sys", "sysrq-trigger")


def _mounts_below_root():
    """Mount points with their file system types, parents first."""
    mounts = []
    with open("/proc/self/mountinfo", encoding="utf-8", errors="surrogateescape") as table:
        for line in table:
            fields = line.split(" ")
            point = fields[4].encode("utf-8", "surrogateescape").decode("unicode_escape")
            point = point.encode("latin-1").decode("utf-8", "surrogateescape")
            fstype = fields[fields.index("-") + 1]
            if point != "/" and point.split("/")[1] not in _OWN:
                mounts.append((point, fstype))
    return sorted(mounts)


def _escaped(path):
    for character in "\\,:":
        path = path.replace(character, "\\" + character)
    return path


class Root:
    """Puts the host's root together and remembers where each upper layer lies.

    Build() runs once, as process 1 of the namespaces, and leaves the caller at "/" of the new root.
    """

    def __init__(self, own_user_namespace):
        self._in_user_namespace = own_user_namespace
        self._mounts = _mounts_below_root()
        self._uppers = []       # (mount point in the host, descriptor of its upper directory)
        self._count = 0
        self._touched = []      # real directories of the machine into which a tree will write

    def build(self, touched, kmsg, console):
        """
        :param touched: directories below which files will be added
        :param kmsg: absolute path of the file for /dev/kmsg; None for one in memory
        :param console: absolute path of a terminal for /dev/console; None for no console
        """
        self._touched = sorted({os.path.realpath(path) for path in touched})
        self._enter_empty_root()
        self._overlay_machine()
        self._mount_proc_and_sys()
        self._mount_dev(kmsg, console)
        for name, mode in (("run", "0755"), ("tmp", "1777")):
            self._mount_memory(name, mode)
        os.mkdir(f"{_NEW}/run/lock")
        os.chmod(f"{_NEW}/run/lock", 0o1777)
        self._move_in()

    def was_changed(self, path):
        """Whether the file was made or changed by the host; asked after build()."""
        path = os.path.realpath(path)
        best = None
        for point, upper in self._uppers:
            inside = path == point or path.startswith(point.rstrip("/") + "/")
            if inside and (best is None or len(point) > len(best[0])):
                best = (point, upper)
        if best is None or path.split("/")[1] in _OWN:
            return True
        try:
            os.lstat(os.path.relpath(path, best[0]), dir_fd=best[1])
        except FileNotFoundError:
            return False
        return True

    @staticmethod
    def _enter_empty_root():
        linux.mount(None, "/", flags=linux.MS_REC | linux.MS_PRIVATE)
        # /tmp serves as the place to stand on only until the machine's root has moved below it.
        linux.mount("tmpfs", "/tmp", "tmpfs", linux.MS_NOSUID | linux.MS_NODEV, "mode=0755")
        for name in (_OLD, _NEW, _LAYERS):
            os.mkdir("/tmp" + name)
        linux.pivot_root("/tmp", "/tmp" + _OLD)
        os.chdir("/")

    def _overlay_machine(self):
        if not self._in_user_namespace:
            try:
                self._overlay("/")
                for point, fstype in self._mounts:
                    if fstype not in _KERNEL_TYPES:
                        self._overlay(point)
                return
            except OSError:
                if self._count > 1:
                    raise
        linux.mount("tmpfs", _NEW, "tmpfs", linux.MS_NODEV, "mode=0755")
        self._take_apart("/")

    def _take_apart(self, path):
        """Makes the directory anew in memory, with an overlay of each directory in it.

        Files are left out: in the few directories that this comes to, such as "/", they are swap files
        and the like.
        """
        os.makedirs(_NEW + path, exist_ok=True)
        kernel_views = {point for point, fstype in self._mounts if fstype in _KERNEL_TYPES}
        with os.scandir(_OLD + path) as entries:
            for entry in entries:
                place = os.path.join(path, entry.name)
                if entry.is_symlink():
                    os.symlink(os.readlink(entry.path), _NEW + place)
                elif entry.is_dir():
                    os.mkdir(_NEW + place)
                    if place.lstrip("/") not in _OWN and place not in kernel_views:
                        self._overlay_or_take_apart(place, entry.path)

    def _overlay_or_take_apart(self, place, lower):
        if not os.access(lower, os.R_OK | os.X_OK):
            return      # an ordinary user sees an empty directory here
        try:
            self._overlay(place)
        except OSError:
            if not any(point.startswith(place + "/") for point, _ in self._mounts):
                raise
            self._take_apart(place)

    def _overlay(self, path):
        self._count += 1
        upper, work = f"{_LAYERS}/upper{self._count}", f"{_LAYERS}/work{self._count}"
        lower = (_OLD + path).rstrip("/")
        for directory in (upper, work):
            os.mkdir(directory)
        os.chmod(upper, os.stat(lower).st_mode & 0o7777)
        if self._in_user_namespace:
            self._lay_own_directories(path, lower, upper)
        options = f"lowerdir={_escaped(lower)},upperdir={upper},workdir={work}"
        if self._in_user_namespace:
            options += ",userxattr"
        linux.mount("overlay", (_NEW + path).rstrip("/"), "overlay", 0, options)
        self._uppers.append((path, os.open(upper, os.O_PATH | os.O_DIRECTORY | os.O_CLOEXEC)))

    def _lay_own_directories(self, path, lower, upper):
        with os.scandir(lower) as entries:
            for entry in entries:
                if entry.is_dir(follow_symlinks=False):
                    self._own_directory(entry.path, os.path.join(upper, entry.name))
        for directory in self._touched:
            if directory.startswith(path + "/"):
                below, above = lower, upper
                for part in os.path.relpath(directory, path).split("/"):
                    below, above = os.path.join(below, part), os.path.join(above, part)
                    if not os.path.isdir(below):
                        break
                    self._own_directory(below, above)

    @staticmethod
    def _own_directory(below, above):
        # One that cannot be read must stay nobody's: merged, not even its upper part could be listed.
        if os.access(below, os.R_OK | os.X_OK) and not os.path.isdir(above):
            os.mkdir(above)
            os.chmod(above, os.stat(below).st_mode & 0o7777)

    @staticmethod
    def _mount_memory(name, mode):
        path = f"{_NEW}/{name}"
        os.makedirs(path, exist_ok=True)
        linux.mount("tmpfs", path, "tmpfs", linux.MS_NOSUID | linux.MS_NODEV, f"mode={mode}")

    @staticmethod
    def _mount_proc_and_sys():
        flags = linux.MS_NOSUID | linux.MS_NODEV | linux.MS_NOEXEC
        for name in ("proc", "sys"):
            os.makedirs(f"{_NEW}/{name}", exist_ok=True)
        linux.mount("proc", f"{_NEW}/proc", "proc", flags)
        for name in _READ_ONLY_PROC:
            if os.path.exists(f"{_NEW}/proc/{name}"):
                linux.bind(f"{_NEW}/proc/{name}", f"{_NEW}/proc/{name}")
                linux.make_read_only(f"{_NEW}/proc/{name}")
        network = f"{_NEW}/proc/sys/net"
        linux.bind(network, network)
        linux.mount(None, network, flags=linux.MS_REMOUNT | linux.MS_BIND | flags)
        try:
            linux.mount("sysfs", f"{_NEW}/sys", "sysfs", flags | linux.MS_RDONLY)
        except OSError as error:
            # Containers hide parts of /sys and forbid a new one; hosts can live without.
            if error.errno != errno.EPERM:
                raise

    def _mount_dev(self, kmsg, console):
        self._mount_memory("dev", "0755")
        dev = f"{_NEW}/dev"
        for name in _DEVICES:
            if os.path.exists(f"{_OLD}/dev/{name}"):
                self._bind_file(f"{_OLD}/dev/{name}", f"{dev}/{name}")
                linux.make_read_only(f"{dev}/{name}")     # the machine's: to be used, not to be chmodded
        for name, target in _LINKS.items():
            os.symlink(target, f"{dev}/{name}")
        os.mkdir(f"{dev}/pts")
        group = "" if self._in_user_namespace else ",gid=5"
        linux.mount("devpts", f"{dev}/pts", "devpts", linux.MS_NOSUID | linux.MS_NOEXEC,
                    f"newinstance,ptmxmode=0666,mode=0620{group}")
        os.mkdir(f"{dev}/shm")
        linux.mount("tmpfs", f"{dev}/shm", "tmpfs", linux.MS_NOSUID | linux.MS_NODEV, "mode=1777")
        if kmsg is None:
            kmsg = f"{_LAYERS}/kmsg"
            os.close(os.open(kmsg, os.O_CREAT | os.O_WRONLY, 0o600))
        else:
            kmsg = _OLD + kmsg
        self._bind_file(kmsg, f"{dev}/kmsg")
        if console is not None:
            self._bind_file(_OLD + console, f"{dev}/console")

    @staticmethod
    def _bind_file(source, target):
        os.close(os.open(target, os.O_CREAT | os.O_WRONLY | os.O_CLOEXEC, 0o666))
        linux.bind(source, target)

    @staticmethod
    def _move_in():
        os.chdir(_NEW)
        linux.pivot_root(".", ".")      # stacks the old root on the new one...
        linux.detach(".")               # ...and takes it away
        os.chdir("/")
        if os.path.realpath("/var/run") != "/run":
            os.rename("/var/run", "/var/run.machine")
            os.symlink("/run", "/var/run")
