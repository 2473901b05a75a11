# SPDX-License-Identifier: Apache-2.0
"""What a virtual machine boots from: a kernel, an initramfs with a small host in it, and a disk."""

import glob
import os
import re
import shutil
import subprocess
import sys

_HERE = os.path.dirname(os.path.realpath(__file__))
_SOURCE = os.path.dirname(os.path.dirname(_HERE))
_HOST = os.path.join(_SOURCE, "examples", "host")

# Kernel modules that /init and the sample host ask for; those built into a kernel are none.
_MODULES = ("virtio_pci", "virtio_blk", "ext4", "bridge", "veth")

# Of Debian's packages, what a host that boots has no use for.
_LEFT_OUT = ("boot", "packages", "usr/include", "usr/lib/modules", "usr/lib/*/gconv", "usr/lib/*/perl*")

# Where packages have units of systemd's.
_UNITS = "usr/lib/systemd/system"


class Image:
    """The files of one architecture's machine. `packages` is a tree of unpacked Debian packages, a kernel's
    among them; `trees` are laid over it, later ones win. The first process is guest/init."""

    def __init__(self, architecture, directory, packages, trees):
        self.architecture = architecture
        self.directory = directory
        self.kernel = _only(os.path.join(packages, "boot", "vmlinuz-*"))
        self.initramfs = os.path.join(directory, "initramfs.cpio")
        root = os.path.join(directory, "root")
        shutil.rmtree(root, ignore_errors=True)
        os.makedirs(root)
        _lay(packages, root, [f"--exclude=/{pattern}" for pattern in _LEFT_OUT])
        for tree in trees:
            _lay(tree, root)
        self._add_modules(packages, root)
        for name in ("bootbank", "dev", "disk", "proc", "root", "run", "sys", "tmp", "var/lib/corvane",
                     "var/log"):
            os.makedirs(os.path.join(root, name), exist_ok=True)
        os.symlink("/run", os.path.join(root, "var/run"))
        os.symlink("/bin/modprobe", os.path.join(root, "sbin/modprobe"))    # where the kernel looks for it
        _install(os.path.join(_HERE, "guest", "operator"), os.path.join(root, "usr/lib/vm/operator"))
        self._add_first_process(root)
        _pack(root, self.initramfs)

    def new_disk(self, name):
        """An empty file system; returns its path."""
        disk = os.path.join(self.directory, name)
        if os.path.exists(disk):
            os.remove(disk)
        _run("/sbin/mke2fs", "-q", "-t", "ext4", disk, "64M")
        return disk

    def _add_modules(self, packages, root):
        version = os.path.basename(_only(os.path.join(packages, "lib", "modules", "*")))
        below = os.path.join("lib", "modules", version)
        _run("/sbin/depmod", "-b", packages, version)
        shown = subprocess.run(
            ["/sbin/modprobe", "-d", packages, "-S", version, "--show-depends", "-a", *_MODULES],
            check=True, capture_output=True, text=True).stdout
        for line in shown.splitlines():
            kind, path = line.split()[:2]
            if kind == "insmod":
                target = os.path.join(root, os.path.relpath(path, packages))
                os.makedirs(os.path.dirname(target), exist_ok=True)
                shutil.copy(path, target)
        for listing in ("modules.order", "modules.builtin", "modules.builtin.modinfo"):
            shutil.copy(os.path.join(packages, below, listing), os.path.join(root, below))
        _run("/sbin/depmod", "-b", root, version)

    def _add_first_process(self, root):
        _install(os.path.join(_HERE, "guest", "init"), os.path.join(root, "init"))
        _install(os.path.join(_HERE, "guest", "power-off"), os.path.join(root, "usr/sbin/power-off"))
        _install(os.path.join(_HOST, "setup"), os.path.join(root, "usr/lib/vm/set-up-host"))
        _lay(os.path.join(_HOST, "profiles"), os.path.join(root, "usr/lib/vm/profiles"))


class ManagedImage(Image):
    """One with systemd for the first process, which starts bootweave by its unit and keeps the journal. The
    boot waits until somebody has opened /run/operator for writing, and closed it again."""

    # What Debian makes when it installs a host, and what the operator needs.
    _FILES = {
        "etc/fstab": "/dev/vda /bootbank ext4 defaults 0 0\n",
        "etc/group": "root:x:0:\ntty:x:5:\nsystemd-journal:x:990:\n",
        "etc/hostname": "managed\n",
        "etc/machine-id": "0123456789abcdef0123456789abcdef\n",
        "etc/os-release": "ID=managed\nNAME=\"A managed host\"\n",
        "etc/passwd": "root:x:0:0:root:/root:/bin/sh\n",
        "etc/tmpfiles.d/operator.conf": "p /run/operator 0600\n",
    }
    # One more debug injection.
    _WAIT = "operator: :operator-has-looked:test ! -p /run/operator || cat /run/operator\n"

    def _add_first_process(self, root):
        os.symlink("/usr/lib/systemd/systemd", os.path.join(root, "init"))
        for name, text in self._FILES.items():
            path = os.path.join(root, name)
            os.makedirs(os.path.dirname(path), exist_ok=True)
            with open(path, "w", encoding="utf-8") as file:
                file.write(text)
        with open(os.path.join(root, "etc/corvane/bootweave/debug.conf"), "a", encoding="utf-8") as file:
            file.write(self._WAIT)
        for name in ("busybox-links.service", "operator.service"):
            _install(os.path.join(_HERE, "guest", name), os.path.join(root, _UNITS, name), mode=0o644)
            _enable(root, name)
        _enable(root, "bootweave.service")
        # The operator has the console for himself.
        os.symlink("/dev/null", os.path.join(root, "etc/systemd/system/getty.target"))
        # The journal is this host's log, and systemd would start the daemons of init scripts by itself.
        shutil.rmtree(os.path.join(root, "usr/lib/corvane/logrelay"))
        for links in glob.glob(os.path.join(root, "etc/rc?.d")):
            shutil.rmtree(links)


def read_back(disk, directory, *places):
    """Copies what the boots have left in these places of the disk into a directory, without mounting it."""
    shutil.rmtree(directory, ignore_errors=True)
    os.makedirs(directory)
    _run("/sbin/debugfs", "-R", f"rdump {' '.join(places)} {directory}", disk)


def _only(pattern):
    found = glob.glob(pattern)
    if len(found) != 1:
        sys.exit(f"there must be one {pattern}: {found}")
    return found[0]


def _run(*command):
    done = subprocess.run(command, stdin=subprocess.DEVNULL, capture_output=True, text=True, check=False)
    if done.returncode != 0:
        sys.exit(f"{' '.join(command)}: {done.stderr.strip() or done.stdout.strip()}")


def _lay(tree, root, options=()):
    os.makedirs(root, exist_ok=True)
    # Links in a lower tree that stand for a directory stay: /bin may be one.
    _run("rsync", "--archive", "--keep-dirlinks", "--no-owner", "--no-group", *options, f"{tree}/",
         f"{root}/")


def _install(source, target, mode=0o755):
    os.makedirs(os.path.dirname(target), exist_ok=True)
    shutil.copyfile(source, target)
    os.chmod(target, mode)


def _enable(root, unit):
    """What systemctl's command of that name does."""
    with open(os.path.join(root, _UNITS, unit), encoding="utf-8") as file:
        target = re.search(r"^WantedBy=(.+)$", file.read(), re.MULTILINE)[1]
    wants = os.path.join(root, "etc/systemd/system", f"{target}.wants")
    os.makedirs(wants, exist_ok=True)
    os.symlink(os.path.join("/", _UNITS, unit), os.path.join(wants, unit))


def _pack(root, initramfs):
    names = subprocess.run(["find", ".", "-print0"], cwd=root, check=True, capture_output=True).stdout
    with open(initramfs, "wb") as archive:
        subprocess.run(["cpio", "--quiet", "--null", "--create", "--format=newc", "--owner=+0:+0",
                        "--reproducible"], cwd=root, input=names, stdout=archive, check=True)
