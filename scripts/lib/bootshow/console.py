# SPDX-License-Identifier: Apache-2.0
"""A terminal for the host, shown on the person's own.

The host gets a terminal of its own because its processes take what they get: a shell there makes it the
controlling terminal of its session, and would take the person's away from the shell that the demo was started
from.
"""

import errno
import fcntl
import os
import pty
import selectors
import signal
import struct
import termios

_INTERRUPT = b"\x03"
_SHOW_CURSOR = b"\x1b[?25h"     # a question that was cut short has left it hidden
_NO_GROUP = b"\0" * 4


class Console:
    """The host's terminal. Follow() runs once, behind the start of the host."""

    def __init__(self):
        self._master, self.terminal = pty.openpty()     # the host's end, to be handed to it
        self.path = os.ttyname(self.terminal)
        self._take_size()

    def follow(self, on_output, on_interrupt):
        """Relays keys and output until nobody on the host has the terminal open.

        :param on_output: is given each piece of output, as bytes
        :param on_interrupt: is called for the interrupt key, unless someone on the host takes it
        """
        os.close(self.terminal)
        before = termios.tcgetattr(0)
        signal.signal(signal.SIGWINCH, lambda *_: self._take_size())
        try:
            self._pass_keys_on(before)
            self._relay(on_output, on_interrupt)
        finally:
            signal.signal(signal.SIGWINCH, signal.SIG_DFL)
            os.write(1, _SHOW_CURSOR)
            termios.tcsetattr(0, termios.TCSADRAIN, before)
            os.close(self._master)

    @staticmethod
    def _pass_keys_on(before):
        """Every key reaches the host as it is; output is still processed, as the demo writes itself, too."""
        attributes = [*before]
        attributes[0] &= ~(termios.BRKINT | termios.ICRNL | termios.INPCK | termios.ISTRIP | termios.IXON)
        attributes[3] &= ~(termios.ECHO | termios.ICANON | termios.IEXTEN | termios.ISIG)
        termios.tcsetattr(0, termios.TCSADRAIN, attributes)

    def _take_size(self):
        try:
            size = fcntl.ioctl(0, termios.TIOCGWINSZ, b"\0" * 8)
            fcntl.ioctl(self._master, termios.TIOCSWINSZ, size)
        except OSError:
            pass        # a terminal without a size

    def _relay(self, on_output, on_interrupt):
        with selectors.DefaultSelector() as selector:
            selector.register(self._master, selectors.EVENT_READ)
            selector.register(0, selectors.EVENT_READ)
            while True:
                for key, _ in selector.select():
                    if key.fd == self._master:
                        data = self._read_output()
                        if not data:
                            return
                        on_output(data)
                        continue
                    keys = os.read(0, 4096)
                    if not keys:
                        selector.unregister(0)      # the person's terminal is gone
                        on_interrupt()
                    elif _INTERRUPT in keys and self._is_nobodys():
                        on_interrupt()
                    else:
                        os.write(self._master, keys)

    def _read_output(self):
        try:
            return os.read(self._master, 65536)
        except OSError as error:
            if error.errno != errno.EIO:    # how the last one closing it is told
                raise
            return b""

    def _is_nobodys(self):
        """Whether no session on the host has it as its controlling terminal."""
        try:
            group = fcntl.ioctl(self._master, termios.TIOCGPGRP, _NO_GROUP)
        except OSError:
            return True
        return struct.unpack("i", group)[0] <= 0
