# SPDX-License-Identifier: Apache-2.0
"""Which of the host's plugins a boot has to run, and in which order, computed from their files."""

import functools
import json
import os
import re

import reference_order

_DIRECTORY = "/usr/libexec/bootweave/plugins"
_INJECTIONS = "/etc/corvane/bootweave/debug.conf"

# The host means this one to fail on every boot, and an injection to end badly, which is no failed plugin.
FAILING = {"hardware-sensors"}
BAD_INJECTION = "debug injection 'overlay-check' returned 0x000100"
# Name -> key in the record, of those that run once per version.
RUN_ONCE = {"filesystem-images": "filesystem-images1.0", "hardware-inventory": "hardware-inventory1.0",
            "host-key": "host-key2"}


class Plugins:
    """The plugins of the host on which this runs.

    :param native: path of a file with the documents of the native plugins, by file name
    """

    def __init__(self, native):
        with open(native, encoding="utf-8") as file:
            documents = json.load(file)
        self._documents = []
        for name in os.listdir(_DIRECTORY):         # in the order in which the program finds them, too
            if re.fullmatch(r"[\w.-]+\.json", name):
                with open(f"{_DIRECTORY}/{name}", encoding="utf-8") as file:
                    documents[name] = reference_order.read_plugin(file.read())
            if name in documents:
                self._documents.append((os.path.splitext(name)[0], documents[name]))
        with open(_INJECTIONS, encoding="utf-8") as file:
            self._injections = reference_order.read_injections(file.read())

    def _graph(self, skips):
        """A new one, as each is good for one order."""
        return reference_order.Graph(self._documents, injections=self._injections,
                                     done=RUN_ONCE if skips else ())

    def names(self, skips):
        """Sorted names of those that a boot runs.

        :param skips: whether those that run once have run
        """
        return sorted(self.providers(skips))

    @functools.cache
    def providers(self, skips):
        """Plugin name -> names of those that end before it starts."""
        return self._graph(skips).providers()

    @functools.cache
    def serial_order(self, skips, randomized):
        """The names in the order in which one worker runs them."""
        return self._graph(skips).serial_order(reference_order.Rand() if randomized else None)
