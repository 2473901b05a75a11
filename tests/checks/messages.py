#!/usr/bin/python3
# SPDX-License-Identifier: Apache-2.0
"""Every text of the product is known to a test.

A text is all that an expression puts together out of literals: `"cannot open " + path` is one, and so is
"cannot open %s". What the running program fills in may be anything in the test, newlines at the end do not
count, the rest is compared exactly. There are two kinds:

  messages   what the program says: it must stand in something that a test compares with (see asserted_cpp)
  names      a word without blanks that is neither logged nor thrown, such as an option, a path or a key: it
             must stand in a test as a word of its own, also in what a test feeds to the program

Left out are texts without a letter, and the few below, each with its reason."""

import re

import asserted_cpp
import asserted_python
import project
from cpp_text import HOLE, texts, tokens

# What no test can see as it stands, each with its reason.
_EXEMPT = {
    "0123456789abcdef": "a table of digits; tests compare what is written with them",
    ".XXXXXX": "mkstemp replaces it; tests look for files that are left behind",
}

# Texts for the compiler.
_NOT_AT_RUN_TIME = {"static_assert", "CAPABILITY", "deprecated", "nodiscard"}
# What these are given is said as it is: nothing comes behind it.
_SPEAKING = {"Log_Level", "Log_Syslog", "Warning", "KernelLog", "AddError", "fputs", "fprintf", "Exception",
             "runtime_error"}

_CONVERSION = re.compile(r"%(?:[-#0+]*(?:\d+|\*)?(?:\.(?:\d+|\*))?(?:hh?|ll?|[zjt])?[diouxXcsfgeEpm]|%)")
_TERMINAL_SEQUENCE = re.compile(r"\033\[[?\d;]*[A-Za-z]")
_ANYTHING = "\ufffc"     # stands for a hole in a test's text


class Pattern:
    """What a text of the product looks like in a test, or in the manual."""

    def __init__(self, text):
        self.line = text.line
        self._parts = list(self._split(text.pieces))
        self.plain = "".join(part for part in self._parts if part is not HOLE)
        calls = text.calls[-1:]
        self._is_whole = bool(_SPEAKING.intersection(calls))
        self.is_name = (len(text.pieces) == len(self._parts) == 1 and "throw" not in text.calls
                        and not self._is_whole and not re.search(r"\s", self.plain))

    @staticmethod
    def _split(pieces):
        """The pieces with the conversions of printf as holes, without newlines at the end."""
        parts = []
        for piece in pieces:
            if piece is HOLE:
                parts.append(HOLE)
                continue
            at = 0
            for match in _CONVERSION.finditer(piece):
                parts += [piece[at:match.start()], "%" if match[0] == "%%" else HOLE]
                at = match.end()
            parts.append(piece[at:])
        if parts and parts[-1] is not HOLE:
            parts[-1] = parts[-1].rstrip("\n")
        parts = [part for part in parts if part != ""]
        return [part for part, before in zip(parts, ["", *parts]) if part is not HOLE or before is not HOLE]

    def has_letters(self):
        """False for texts that only set out others, such as separators and terminal sequences."""
        return re.search(r"[^\W\d_]", _TERMINAL_SEQUENCE.sub("", self.plain)) is not None

    def shown(self):
        """The text for a report: `...` for each hole."""
        text = "".join("..." if part is HOLE else part for part in self._parts)
        return '"' + text.encode("unicode_escape").decode().replace('"', '\\"') + '"'

    def holes_in(self, text):
        """What stands in the holes when a text is this one as a whole, but for signs around it; else None."""
        body = "".join("(.+?)" if part is HOLE else re.escape(part) for part in self._parts)
        before, after = ("" if part is HOLE else r"[\W_]*" for part in (self._parts[0], self._parts[-1]))
        found = re.fullmatch(before + body + after, text)
        return None if found is None else found.groups()

    def stands_in(self, known):
        """Whether it is among the texts of tests; `known` is what joined() returns."""
        parts = self._parts
        if max((part for part in parts if part is not HOLE), key=len) not in known:
            return False        # which is quickly found out
        inner = parts[parts[0] is HOLE:len(parts) - (parts[-1] is HOLE)]
        middle = "".join(r"[^\n\0]*?" if part is HOLE else re.escape(part) for part in inner)
        end = ""
        if parts[-1] is not HOLE and self._is_whole:
            end = r"(?=\n|\0)"
        elif parts[-1] is not HOLE and re.search(r"\w\Z", parts[-1]):
            end = r"(?![\w-])" if self.is_name else r"(?!\w)"
        # The start is looked at last: an expression that begins with plain text is found fast.
        return any(self._may_follow(known[match.start() - 2:match.start()])
                   for match in re.finditer(middle + end, known))

    def _may_follow(self, before):
        """Whether the text may start behind these two characters, that is, at the start of a word."""
        if self._parts[0] is HOLE or not re.match(r"\w", self._parts[0]):
            return True
        return not re.search(r"\w-?\Z" if self.is_name else r"\w\Z", before)


def joined(found):
    """One string to search in: the texts, each between NULs."""
    lines = {"".join(_ANYTHING if piece is HOLE else piece for piece in pieces) for pieces in found}
    return "\0\0" + "\0".join(sorted(lines)) + "\0"


def patterns_of(source):
    """The texts of a source of the product that a test must know."""
    stream = tokens(source)
    linkage = {index + 1 for index, token in enumerate(stream) if token.value == "extern"}
    stream = [token for index, token in enumerate(stream) if token.kind != "text" or index not in linkage]
    for text in texts(stream):
        if not _NOT_AT_RUN_TIME.intersection(text.calls):
            pattern = Pattern(text)
            if pattern.plain and pattern.has_letters() and pattern.plain not in _EXEMPT:
                yield pattern


def missing_texts(known, product, exempt, where):
    """What `where` lacks of the texts of the product, {path: text of the source}, one line each; and the
    exemptions that nothing needs. `known` is all texts that it has, joined()."""
    needless = set(exempt)
    for path, source in sorted(product.items()):
        for pattern in sorted(patterns_of(source), key=lambda pattern: pattern.line):
            if pattern.is_name or pattern.stands_in(known):
                continue
            text = pattern.shown()[1:-1]        # without its quotes
            needless.discard(text)
            if text not in exempt:
                yield f"{path}:{pattern.line}: {pattern.shown()} is not in {where}"
    yield from (f'"{text}" needs no exemption from {where}' for text in sorted(needless))


def findings_in(product, tests):
    """The texts that no test knows, one line each.

    product, tests: {path: text of the source}"""
    cpp, python = asserted_cpp.CppTests(), asserted_python.PythonTests()
    mentioned = []
    for path, source in sorted(tests.items()):
        if path.endswith(".py"):
            python.add(source)
        else:
            stream = tokens(source)
            cpp.add(stream)
            mentioned += [text.pieces for text in texts(stream)]
    for path, source in tests.items():
        if path.endswith(".py"):
            mentioned += asserted_python.all_texts(source, python.constants)
    asserted = joined([*cpp.texts(), *python.texts()])
    mentioned = joined(mentioned)
    for path, source in sorted(product.items()):
        for pattern in sorted(patterns_of(source), key=lambda pattern: pattern.line):
            known = mentioned if pattern.is_name else asserted
            if not pattern.stands_in(known):
                kind = "stands in no test" if pattern.is_name else "is asserted by no test"
                yield f"{path}:{pattern.line}: {pattern.shown()} {kind}"


def main():
    """Checks the whole tree."""
    is_test = project.test_code()
    product, tests = {}, {}
    for path in project.files():
        name = str(path)
        if path.suffix in (".cpp", ".c", ".h") and (path.parts[0] in project.ROOMS or is_test(name)):
            (tests if is_test(name) else product)[name] = (project.ROOT / path).read_text(encoding="utf-8")
        elif re.fullmatch(r"tests/system/\w+\.py", name):
            tests[name] = (project.ROOT / path).read_text(encoding="utf-8")
    project.finish(list(findings_in(product, tests)), product)


if __name__ == "__main__":
    main()
