#!/usr/bin/python3
# SPDX-License-Identifier: Apache-2.0
"""docs/messages.md has every message of the program and no other.

The page's messages are the code spans at the start of a table's line, and those of lines that hold nothing
else; <words> like this stand for what the running program fills in. Each text that a source of the program
puts together, but for single words, stands in one of them. Each of them is made of texts of the sources, one
in the place that another leaves open. And where one is logged as it stands, its kind is that of the call."""

import re

import project
from cpp_text import HOLE
from manual_page import _NO_MESSAGES, _product
from messages import joined, missing_texts, patterns_of

_PAGE = "docs/messages.md"
_HOLE = "\ufffc"
_SPAN = re.compile(r"`` ?(.+?) ?``|`([^`]+)`")
_CALL = re.compile(r'\b(Log_Level\(\d,|Warning\(|KernelLog\(|Log_Syslog\(\w+,)\s*((?:"(?:[^"\\]|\\.)*"\s*)+)')
_KINDS = {"Log_Level(2,": "error", "Log_Level(3,": "warning", "Log_Level(5,": "notice", "Warning(": "warning",
          "KernelLog(": "kernel"}

# Reason -> texts that are no messages, as this check reports them.
_EXEMPT = {
    "the profiling log: sysboot.log(5)": [
        "... Verbose: ...\\n Parallel: ...\\n Randomize: ...\\n Interactive Mode: ...\\n Random Seed: ...",
        "...=== Bootweave configuration info ===\\n Start: ...\\n End: ...",
        "...=== Daemon configuration info ===\\n Start Daemon: ...\\n End Daemon: ...",
        "...Mantle Initialization Time: ...",
    ],
    "said by bootweave-analyze, whose page has it": [
        "line ..., column ...",
    ],
    "the graph": [
        " shape=box",
        " shape=trapezium",
        "_<->_priority_<->_...",
    ],
    "commands, paths and settings": [
        "... ++group=init/... start",
        "/bin/chkconfig -p",
        "/proc/.../fd/...",
        "HOSTCLI_COMMAND=...",
        "HOSTCLI_DISPATCHER=...",
        "build-...",
    ],
}


class Row:
    """A message of the page."""

    def __init__(self, line, text, kind):
        self.line = line
        self.shown = text
        self.kind = kind            # empty where the page does not say
        # Not what the program itself writes with these signs.
        self.text = re.sub(r"<[a-z]+>", _HOLE, text)

    def pieces(self):
        """As texts of sources come, see cpp_text."""
        pieces = re.split(f"({_HOLE})", self.text)
        return tuple(HOLE if piece == _HOLE else piece for piece in pieces if piece)


def rows_of(page):
    """The messages of the page."""
    for number, line in enumerate(page.splitlines(), 1):
        cells = line.strip("| ").split(" | ") if line.startswith("| `") else [line]
        if not re.fullmatch(rf"(?:(?:{_SPAN.pattern})(?:,\s*|$))+", cells[0]):
            continue
        for found in _SPAN.finditer(cells[0]):
            yield Row(number, found[1] or found[2], cells[1] if len(cells) > 1 else "")


def missing(rows, product, exempt):
    """The texts of the product, {path: text of the source}, that no row has; and exemptions without need."""
    return missing_texts(joined([row.pieces() for row in rows]), product, exempt, _PAGE)


def _is_made_of(text, patterns):
    if not re.search(r"[^\W\d_]", text):
        return True
    return any(holes is not None and all(_is_made_of(hole, patterns) for hole in holes)
               for holes in (pattern.holes_in(text) for pattern in patterns))


def never_said(rows, product):
    """The rows that are not made of texts of the product."""
    patterns = [pattern for _, source in sorted(product.items()) for pattern in patterns_of(source)]
    for row in rows:
        if not _is_made_of(row.text, patterns):
            yield f"{_PAGE}:{row.line}: nothing says `{row.shown}`"


def wrong_kinds(rows, product):
    """The rows that have another kind than the call that logs them."""
    for path, source in sorted(product.items()):
        for call, literals in _CALL.findall(source):
            text = "".join(re.findall(r'"((?:[^"\\]|\\.)*)"', literals))
            text = re.sub(r"(?:\\n)+$", "", text).replace('\\"', '"')
            if not re.search(r"[^\W\d_]", re.sub(r"%#?\w+", "", text)):
                continue
            kind = _KINDS.get(call, "syslog")
            wanted = re.compile(re.sub(r"%(?:\\#)?(?:08)?(?:ll)?[a-z]", ".+", re.escape(text)))
            for row in rows:
                if wanted.fullmatch(row.text) and row.kind != kind:
                    yield f"{_PAGE}:{row.line}: {path} says it as kind {kind}, not {row.kind}"


def main():
    """Checks the page."""
    rows = list(rows_of((project.ROOT / _PAGE).read_text(encoding="utf-8")))
    product = {path: source for path, source in _product().items()
               if path not in _NO_MESSAGES and not path.startswith("analyze/")}
    exempt = {text for texts in _EXEMPT.values() for text in texts}
    project.finish([*missing(rows, product, exempt), *never_said(rows, product), *wrong_kinds(rows, product)],
                   rows)


if __name__ == "__main__":
    main()
