# SPDX-License-Identifier: Apache-2.0
"""In which order one worker runs a host's plugins, computed from the plugin files alone.

Slow and obvious on purpose, and written from the rules, not from the program: schedule by recursion, look at
the whole queue at each choice.
"""

import json
import re

_COMMENT_OR_STRING = re.compile(r'"(?:\\.|[^"\\])*"|//[^\n]*|/\*.*?\*/', re.DOTALL)
_TRAILING_COMMA = re.compile(r'("(?:\\.|[^"\\])*")|,(\s*[\]}])')


def read_injections(text):
    """(name, (requires, provides)) of each line of a debug configuration without quotes and escapes."""
    lines = [line.split(":") for line in text.splitlines()]
    return [(name, tuple([word.strip() for word in field.split(",")] for field in fields))
            for name, *fields, _ in lines]


def read_plugin(text):
    """The document of a plugin file, which may hold comments and trailing commas."""
    bare = _COMMENT_OR_STRING.sub(lambda found: found[0] if found[0][0] == '"' else " ", text)
    return json.loads(_TRAILING_COMMA.sub(lambda found: found[1] or found[2], bare))


class Rand:
    """The C library's `rand`, from its fixed initial state."""

    def __init__(self):
        state = [1]
        for _ in range(30):
            state.append(16807 * state[-1] % 2147483647)
        for _ in range(3):
            state.append(state[-31])
        for _ in range(310):
            state.append((state[-3] + state[-31]) % 2**32)
        self._state = state

    def __call__(self):
        self._state.append((self._state[-3] + self._state[-31]) % 2**32)
        return self._state[-1] >> 1


class _Node:
    def __init__(self, name, is_plugin):
        self.name = name
        self.is_plugin = is_plugin
        self.before = []
        self.after = []
        self.state = "idle"


class Graph:
    """The plugins of a host and the barriers between them."""

    def __init__(self, documents, flags=frozenset(), injections=(), done=()):
        """
        :param documents: (name, document) of each plugin file, in the order in which they are found
        :param flags: the boot flags that are given
        :param injections: (name, (requires, provides)) of each debug injection, in the order of their lines
        :param done: names of plugins that have run before, and are waited for by nobody
        """
        self._barriers = {}
        self.plugins = []
        taking_part = [(name, document) for name, document in documents
                       if self._takes_part(document["metadata"], flags)]
        for name, _ in [*taking_part, *injections]:
            self.plugins.append(_Node(name, True))
        # An injection takes its place when it is made; the others when all are there.
        for plugin, (_, lists) in zip(self.plugins[len(taking_part):], injections):
            self._link(plugin, *lists)
        for plugin, (_, document) in zip(self.plugins, taking_part):
            self._link(plugin, document["metadata"]["requires"], document["metadata"]["provides"])
        for plugin in self.plugins:
            if plugin.name in done:
                plugin.state = "done"

    @staticmethod
    def _takes_part(metadata, flags):
        if metadata["version"] < 3:
            return True
        return (set(metadata.get("required_flags", [])) <= set(flags)
                and not set(metadata.get("disabling_flags", [])) & set(flags))

    def _link(self, plugin, requires, provides):
        for barrier in requires:
            self._edge(self._barrier(barrier), plugin)
        for barrier in provides:
            self._edge(plugin, self._barrier(barrier))

    def _barrier(self, name):
        if name not in self._barriers:
            self._barriers[name] = _Node(name, False)
        return self._barriers[name]

    @staticmethod
    def _edge(provider, dependent):
        provider.after.append(dependent)
        dependent.before.append(provider)

    def providers(self):
        """Plugin name -> names of the plugins that end before it starts, one barrier away."""
        return {plugin.name: {provider.name for barrier in plugin.before for provider in barrier.before
                              if provider.state != "done"}
                for plugin in self.plugins if plugin.state != "done"}

    def serial_order(self, rand=None):
        """The plugins' names in the order in which one worker runs them."""
        queue, order = [], []
        for plugin in self.plugins:
            self._schedule(plugin, queue)
        while queue:
            node = self._choose(queue, rand)
            queue.remove(node)
            if node.is_plugin:
                order.append(node.name)
            node.state = "done"
            for dependent in node.after:
                if dependent.state == "waiting":
                    self._schedule(dependent, queue)
        return order

    def _schedule(self, node, queue):
        if node.state in ("queued", "done"):
            return
        node.state = "waiting"
        ready = True
        for provider in node.before:
            if provider.state == "idle":
                self._schedule(provider, queue)
            ready = ready and provider.state == "done"
        if ready:
            node.state = "queued"
            queue.append(node)

    def _height(self, node):
        return max((1 + self._height(dependent) for dependent in node.after), default=0)

    def _choose(self, queue, rand):
        best = max(map(self._height, queue))
        candidates = [node for node in queue if self._height(node) == best]
        return candidates[rand() % len(candidates)] if rand else candidates[0]
