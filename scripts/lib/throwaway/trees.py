# SPDX-License-Identifier: Apache-2.0
"""Copies host trees in and results out.

Sources and results lie outside the host and are reached through directory descriptors that were
opened before the host's root took the place of the machine's.
"""

import os
import stat

_CHUNK = 1 << 24


def _copy_bytes(source, target):
    while os.sendfile(target, source, None, _CHUNK) > 0:
        pass


def _create(path, mode, dir_fd=None):
    flags = os.O_WRONLY | os.O_CREAT | os.O_EXCL | os.O_CLOEXEC
    return os.open(path, flags, mode, dir_fd=dir_fd)


def _remove_file(path):
    try:
        os.unlink(path)
    except FileNotFoundError:
        pass


def _copy_file(source, target, mode):
    """A regular file, replacing what has its name; the umask has no say in the mode."""
    reader = os.open(source, os.O_RDONLY | os.O_CLOEXEC)
    try:
        writer = _create(target, mode & 0o777)
        try:
            _copy_bytes(reader, writer)
            os.fchmod(writer, mode)
        finally:
            os.close(writer)
    finally:
        os.close(reader)


def _copy_entry(source, target):
    info = os.lstat(source)
    mode = stat.S_IMODE(info.st_mode) & ~0o022
    if stat.S_ISDIR(info.st_mode):
        # A link to a directory, such as /bin, is followed: it stands for that directory.
        if not os.path.isdir(target):
            os.mkdir(target)
            os.chmod(target, mode)
        return
    _remove_file(target)
    if stat.S_ISLNK(info.st_mode):
        os.symlink(os.readlink(source), target)
    elif stat.S_ISREG(info.st_mode):
        _copy_file(source, target, mode)
    elif stat.S_ISFIFO(info.st_mode):
        os.mkfifo(target, mode)
        os.chmod(target, mode)
    else:
        raise OSError(f"{target}: only files, links and FIFOs can be copied to a host")


def copy_in(tree_fd, root="/"):
    """Lays a tree over the root: root owns it, modes are kept, group and others cannot write."""
    top = f"/proc/self/fd/{tree_fd}"
    for directory, subdirectories, files in os.walk(top):
        place = os.path.join(root, os.path.relpath(directory, top)) if directory != top else root
        for name in subdirectories + files:
            _copy_entry(os.path.join(directory, name), os.path.join(place, name))


def directories_of(tree_fd):
    """Every directory of a tree, relative to its top."""
    top = f"/proc/self/fd/{tree_fd}"
    for directory, _, _ in os.walk(top):
        yield os.path.relpath(directory, top)


def _keep_file(path, name, results_fd):
    parent = os.path.dirname(name)
    built = ""
    for part in filter(None, parent.split("/")):
        built = os.path.join(built, part)
        try:
            os.mkdir(built, 0o755, dir_fd=results_fd)
        except FileExistsError:
            pass
    try:
        os.unlink(name, dir_fd=results_fd)
    except FileNotFoundError:
        pass
    if os.path.islink(path):
        os.symlink(os.readlink(path), name, dir_fd=results_fd)
        return
    reader = os.open(path, os.O_RDONLY | os.O_NONBLOCK | os.O_CLOEXEC)
    try:
        writer = _create(name, 0o644, dir_fd=results_fd)
        try:
            _copy_bytes(reader, writer)
        finally:
            os.close(writer)
    finally:
        os.close(reader)


def _worth_keeping(path):
    mode = os.lstat(path).st_mode
    return stat.S_ISREG(mode) or stat.S_ISLNK(mode)


def copy_out(path, results_fd, was_changed):
    """Copies a file, or the files below a directory that the host made or changed, into the results.

    What is not there is left out without a word; sockets, FIFOs and devices are left out too.

    :param was_changed: tells for a path whether it differs from the machine's own file
    """
    if not os.path.isdir(path):
        if os.path.lexists(path) and _worth_keeping(path):
            _keep_file(path, path.lstrip("/"), results_fd)
        return
    for directory, subdirectories, files in os.walk(path):
        links = [name for name in subdirectories if os.path.islink(os.path.join(directory, name))]
        for name in links + files:
            found = os.path.join(directory, name)
            if _worth_keeping(found) and was_changed(found):
                _keep_file(found, found.lstrip("/"), results_fd)
