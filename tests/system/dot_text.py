# SPDX-License-Identifier: Apache-2.0
"""Reads the program's DOT text strictly, from the rules of its form and not from the program."""

import dataclasses
import re

_NODE = re.compile(r'([1-9][0-9]*) \[label="((?:[^"\\]|\\["\\])*)"( shape=(?:box|trapezium))?\];')
_EDGE = re.compile(r"([1-9][0-9]*) -> ([1-9][0-9]*);")


@dataclasses.dataclass
class DotGraph:
    """The nodes as (name, shape) and the edges as (name, name), both in their order in the text."""
    nodes: list[tuple[str, str]]
    edges: list[tuple[str, str]]

    @property
    def plugins(self):
        return [name for name, shape in self.nodes if shape == ""]

    @property
    def barriers(self):
        return [name for name, shape in self.nodes if shape != ""]

    @property
    def sorted_edges(self):
        """For graphs whose plugins come in the order of a directory."""
        return sorted(self.edges)


def read_dot(text):
    """The graph of a text; raises ValueError for what is not exactly of the program's form."""
    lines = text.split("\n")
    if lines[0] != "digraph g {" or lines[-2:] != ["}", ""]:
        raise ValueError("not framed")
    nodes, edges = {}, []       # nodes by their identifiers
    current = None
    for line in lines[1:-2]:
        node, edge = _NODE.fullmatch(line), _EDGE.fullmatch(line)
        if node is not None and node[1] not in nodes:
            current = node[1]
            nodes[current] = (re.sub(r"\\(.)", r"\1", node[2]), (node[3] or "").removeprefix(" shape="))
        elif edge is not None and edge[1] == current:       # edges stand behind the node that they leave
            edges.append((current, edge[2]))
        else:
            raise ValueError(f"what is this: {line!r}")
    if len(set(nodes.values())) != len(nodes):
        raise ValueError("a node is there twice")
    return DotGraph(list(nodes.values()), [(nodes[before][0], nodes[after][0]) for before, after in edges])


def dot_in_log(stdout):
    """The DOT text on a standard output that holds lines of the log before and behind it."""
    return re.search(r"^digraph g \{\n.*?^\}\n", stdout, re.MULTILINE | re.DOTALL)[0]
