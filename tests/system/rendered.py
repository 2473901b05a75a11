# SPDX-License-Identifier: Apache-2.0
"""Pictures as a browser shows them, for tests that look at pixels."""

import os
import shutil
import struct
import subprocess
import tempfile
import zlib

_BROWSER = "chromium"
# It reaches out to nothing, keeps nothing, and runs as root, too.
_QUIET = ("--headless", "--no-sandbox", "--disable-gpu", "--disable-quic", "--no-first-run",
          "--disable-background-networking", "--disable-component-update", "--disable-sync",
          "--hide-scrollbars", "--force-device-scale-factor=1")
_SCHEMES = {"light": "1", "dark": "0"}


def browser_is_missing():
    """Whether nothing can be rendered here."""
    return shutil.which(_BROWSER) is None


class Pixels:
    """A decoded PNG of eight bits a channel, as browsers write screenshots."""

    def __init__(self, data):
        chunks = dict(self._chunks(data))
        self.width, self.height, depth, kind, _, _, interlaced = struct.unpack(">IIBBBBB", chunks[b"IHDR"])
        if (depth, interlaced) != (8, 0) or kind not in (2, 6):
            raise ValueError("not a screenshot")
        self._channels = 3 if kind == 2 else 4
        self._rows = self._unfiltered(zlib.decompress(chunks[b"IDAT"]))

    @staticmethod
    def _chunks(data):
        at, pixels = 8, b""
        while at < len(data):
            length, kind = struct.unpack(">I4s", data[at:at + 8])
            content = data[at + 8:at + 8 + length]
            if kind == b"IDAT":
                pixels += content
            else:
                yield kind, content
            at += length + 12
        yield b"IDAT", pixels

    def _unfiltered(self, data):
        step, length = self._channels, self.width * self._channels
        before, rows = bytearray(length), []
        for start in range(0, self.height * (length + 1), length + 1):
            row = bytearray(data[start + 1:start + 1 + length])
            self._unfilter(data[start], row, before, step)
            rows.append(row)
            before = row
        return rows

    @staticmethod
    def _unfilter(kind, row, before, step):
        for index in range(len(row) if kind else 0):
            left = row[index - step] if index >= step else 0
            corner = before[index - step] if index >= step else 0
            above = before[index]
            if kind == 1:
                guess = left
            elif kind == 2:
                guess = above
            elif kind == 3:
                guess = (left + above) // 2
            else:
                estimate = left + above - corner
                guess = min((left, above, corner), key=lambda value, near=estimate: abs(near - value))
            row[index] = (row[index] + guess) & 0xFF

    def at(self, x, y):
        """The colour there, as "#rrggbb"."""
        start = int(x) * self._channels
        return "#" + self._rows[int(y)][start:start + 3].hex()


def render(svg, width, height, scheme):
    """Shows the text of an SVG file in a window of this size, in the "light" or the "dark" scheme."""
    with tempfile.TemporaryDirectory(prefix="bootweave-picture-") as directory:
        source, shot = os.path.join(directory, "picture.svg"), os.path.join(directory, "shot.png")
        with open(source, "w", encoding="utf-8") as file:
            file.write(svg)
        command = [_BROWSER, *_QUIET, f"--user-data-dir={directory}/profile",
                   f"--window-size={width},{height}",
                   f"--blink-settings=preferredColorScheme={_SCHEMES[scheme]}", f"--screenshot={shot}",
                   f"file://{source}"]
        result = subprocess.run(command, check=False, timeout=120, stdin=subprocess.DEVNULL,
                                stdout=subprocess.PIPE, stderr=subprocess.STDOUT)
        if not os.path.isfile(shot):
            raise RuntimeError(f"nothing was rendered: {result.stdout.decode(errors='replace')}")
        with open(shot, "rb") as file:
            return Pixels(file.read())
