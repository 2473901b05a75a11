# SPDX-License-Identifier: Apache-2.0
"""A virtual machine and the operator at its serial console."""

import os
import re
import select
import subprocess
import time

_PATIENCE = 600     # seconds until a text that does not come is missed; emulated processors are slow

_MACHINES = {
    "amd64": ("qemu-system-x86_64", "ttyS0", ("-machine", "q35", "-cpu", "max")),
    "arm64": ("qemu-system-aarch64", "ttyAMA0", ("-machine", "virt", "-cpu", "cortex-a72")),
}

# The kernel writes each of these in one go, wherever in a line of somebody else's that is.
_KERNEL_RECORD = re.compile(r"\[ *\d+\.\d{6}\] .*\n")


def serial_line(architecture):
    """The name of the serial line's device."""
    return _MACHINES[architecture][1]


class Machine:
    """One that boots. As a context manager it is switched off at the end, if it still runs.

    The kernel writes to a virtual and to the serial console, and /dev/console is the one named last in
    `consoles`: "serial" or "virtual". Its command line ends with the words of `settings`; those that it does
    not know it hands on to the first process. What comes over the serial line goes to the file `log`, too.
    """

    def __init__(self, image, disk, log, settings=(), consoles=("virtual", "serial")):
        program, serial, options = _MACHINES[image.architecture]
        names = {"serial": serial, "virtual": "tty0"}
        words = [*(f"console={names[console]}" for console in consoles), "mitigations=off", "panic=-1",
                 f"SERIAL_LINE={serial}", *settings]
        self.console = ""       # all that has come over the serial line
        self._read = 0          # up to where in what was said
        self._log = open(log, "w", encoding="utf-8")
        self._process = subprocess.Popen(
            [program, *options, "-smp", "2", "-m", "512", "-nodefaults", "-no-reboot",
             *(("-vga", "std") if image.architecture == "amd64" else ()),
             "-display", "none", "-serial", "stdio", "-kernel", image.kernel, "-initrd", image.initramfs,
             "-append", " ".join(words), "-drive", f"if=none,id=disk,format=raw,file={disk}",
             "-device", "virtio-blk-pci,drive=disk"],
            stdin=subprocess.PIPE, stdout=subprocess.PIPE, stderr=subprocess.STDOUT)
        os.set_blocking(self._process.stdout.fileno(), False)

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self._process.kill()
        self._process.wait()
        self._process.stdin.close()
        self._process.stdout.close()
        self._log.close()

    @property
    def said(self):
        """What others than the kernel have written to the serial line."""
        return _KERNEL_RECORD.sub("", self.console)

    def read_until(self, pattern):
        """What is said up to and with this regular expression; its match. More may come behind it at any
        time, so one that is to end with a line ends with its newline."""
        deadline = time.monotonic() + _PATIENCE
        expression = re.compile(pattern, re.MULTILINE)
        while not (match := expression.search(self.said, self._read)):
            if not self._read_more(deadline - time.monotonic()):
                last = "".join(self.console.splitlines(keepends=True)[-20:])
                raise AssertionError(f"{pattern!r} did not come; the console ends with:\n{last}")
        self._read = match.end()
        return match

    def type(self, text):
        self._process.stdin.write(text.encode())
        self._process.stdin.flush()

    def run(self, line):
        """What the line prints there, and its status."""
        self.type(line + "\n")
        start = self._read
        status = self.read_until(r"^@status (\d+)\n")
        return status.string[start:status.start()].lstrip("\n"), int(status[1])

    def wait_for_the_end(self):
        """Until the machine has switched itself off; the status of the emulator."""
        deadline = time.monotonic() + _PATIENCE
        while self._read_more(deadline - time.monotonic()):
            pass
        return self._process.wait(max(1, deadline - time.monotonic()))

    def _read_more(self, seconds):
        """False at the end, or when nothing came in that time."""
        if seconds <= 0 or not select.select([self._process.stdout], [], [], seconds)[0]:
            return False
        data = self._process.stdout.read()
        text = (data or b"").decode(errors="replace").replace("\r", "")
        self.console += text
        self._log.write(text)
        self._log.flush()
        return bool(data)
