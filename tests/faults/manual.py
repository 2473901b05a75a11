# SPDX-License-Identifier: Apache-2.0
"""What the manual says that the program says: docs/bootweave.8, as patterns for whole lines."""

import os
import re
import sys

_ROOT = os.path.join(os.path.dirname(os.path.realpath(__file__)), "..", "..")
_PAGE = os.path.join(_ROOT, "docs", "bootweave.8")
_FEWEST_LETTERS = 8         # of a pattern that is no title: what is shorter is part of a message


def _words(arguments):
    return [quoted.replace('""', '"') or bare
            for quoted, bare in re.findall(r'"((?:[^"]|"")*)"|(\S+)', arguments)]


def _plain(text):
    text = re.sub(r"\\f.", "", text)
    return text.replace("\\-", "-").replace("\\(ga", "`").replace("\\e", "\\").replace("\\ ", " ")


def _pattern(line, is_title):
    """The pattern of one line of the page; None when that is no message."""
    match = re.fullmatch(r"\.(B|BI|IB|BR|RB)\s+(.*)", line)
    if match is None:
        return None
    macro, words = match[1], _words(match[2])
    if macro == "B":
        pieces = [(True, " ".join(words))]
    else:
        # Italics stand for what differs. Bold and roman are the text itself.
        pieces = [("I" not in macro or macro[number % 2] == "B", word) for number, word in enumerate(words)]
    plain = [(literal, _plain(word)) for literal, word in pieces]
    letters = re.findall(r"[A-Za-z]", "".join(word for literal, word in plain if literal))
    if not is_title and len(letters) < _FEWEST_LETTERS:
        return None
    return "".join(re.escape(word) if literal else ".*" for literal, word in plain)


def message_patterns():
    """Compiled patterns of all messages that the page lists."""
    with open(_PAGE, encoding="utf-8") as file:
        page = file.read().replace("\\\n", "")
    section = page[page.index("\n.SH DIAGNOSTICS"):page.index("\n.SH EXAMPLES")].splitlines()
    patterns = []
    for before, line in zip(["", *section], section):
        is_title = before.startswith((".TP", ".TQ"))
        pattern = _pattern(line, is_title)
        if pattern is not None:
            # A paragraph's title is a whole message; what a paragraph names may be the beginning of one.
            patterns.append(re.compile(pattern if is_title else pattern + ".*", re.DOTALL))
    if len(patterns) < 100:
        sys.exit(f"{_PAGE}: only {len(patterns)} messages found")
    return patterns


# In the kernel's log, from the page's notes and its paragraphs on daemons.
KERNEL_PATTERNS = [re.compile(text) for text in (
    r"Activating Bootweave plugin \S+\.",
    r"Bootweave plugin \S+ activated\.",
    r"Bootweave plugin \S+ activation failed: .*",
    r"Deactivating Daemon \S+\.",
    r"Daemon \S+ deactivated\.",
    r"Daemon \S+ deactivation failed: .*",
    r"Bootweave dependency error: .*",
)]
