# SPDX-License-Identifier: Apache-2.0
"""What the checks share that read C++: its tokens, and the texts that its expressions put together.

A text is a tuple of pieces: strings, and HOLE for what only the running program knows. So
`"cannot open " + path + ": " + reason` is ("cannot open ", HOLE, ": ", HOLE)."""

import ast
import dataclasses
import re

HOLE = None

_TOKEN = re.compile(r"""
    (?P<blank>\s+|//[^\n]*|/\*.*?\*/|\\\n)
  | (?P<directive>(?<![^\n])[ \t]*\#[ \t]*(?!define\b)\w+(?:[^\n\\]|\\.)*)
  | (?P<raw>(?:u8|[uUL])?R"(?P<mark>[^\s()\\]{0,16})\((?P<inside>.*?)\)(?P=mark)")
  | (?P<text>(?:u8|[uUL])?"(?P<quoted>(?:[^"\\\n]|\\.)*)")
  | (?P<char>(?:u8|[uUL])?'(?P<single>(?:[^'\\\n]|\\.)+)')
  | (?P<number>\.?\d(?:[eEpP][+-]|'?[\w.])*)
  | (?P<name>[A-Za-z_]\w*)
  | (?P<sign>::|->|<<=|<<|\+=|\+\+|--|&&|\|\||[=!<>]=|[-*/%&|^]=|.)
""", re.VERBOSE | re.DOTALL)

_ESCAPE = re.compile(r"\\(x[0-9A-Fa-f]+|[0-7]{1,3}|u[0-9A-Fa-f]{4}|.)", re.DOTALL)
_SHORT_ESCAPES = {"n": "\n", "t": "\t", "r": "\r", "a": "\a", "b": "\b", "f": "\f", "v": "\v", "e": "\033",
                  "\n": ""}

OPENING = {"(": ")", "[": "]", "{": "}"}


@dataclasses.dataclass(frozen=True, slots=True)
class Token:
    """One token; `value` of a text or a character is what it stands for."""
    kind: str       # "text", "char", "number", "name" or "sign"
    value: str
    line: int


def _unescape(text):
    def character(match):
        code = match[1]
        if code[0] in "xu" and len(code) > 1:
            return chr(int(code[1:], 16))
        return chr(int(code, 8)) if code[0] in "01234567" else _SHORT_ESCAPES.get(code, code)
    return _ESCAPE.sub(character, text) if "\\" in text else text


def tokens(source):
    """The tokens of a source. Comments and directives but #define are left out, adjacent texts are one."""
    found = []
    line = 1
    for match in _TOKEN.finditer(source):
        kind = match.lastgroup if match.lastgroup not in ("mark", "inside", "quoted", "single") else None
        if match["raw"] is not None:
            kind, value = "text", match["inside"]
        elif match["text"] is not None:
            kind, value = "text", _unescape(match["quoted"])
        elif match["char"] is not None:
            kind, value = "char", _unescape(match["single"])
        else:
            value = match[0]
        if kind == "text" and found and found[-1].kind == "text":
            found[-1] = Token("text", found[-1].value + value, found[-1].line)
        elif kind not in ("blank", "directive"):
            found.append(Token(kind, value, line))
        line += match[0].count("\n")
    return found


def closing(stream, index):
    """The index of the bracket that closes the one at `index`, or the end of the stream."""
    depth = 0
    for place in range(index, len(stream)):
        token = stream[place]
        if token.kind == "sign":
            if token.value in OPENING:
                depth += 1
            elif token.value in ")]}":
                depth -= 1
                if depth == 0:
                    return place
    return len(stream)


@dataclasses.dataclass(frozen=True, slots=True)
class Text:
    """A text that an expression puts together."""
    pieces: tuple
    line: int
    calls: tuple        # names of the calls around it, outermost first; "throw" where it is thrown


class _Chain:
    """Operands between + or << at one level of brackets."""

    def __init__(self):
        self._pieces = []
        self._line = 0
        self._has_text = False

    def text(self, token):
        self._pieces.append(token.value)
        if token.kind == "text":
            self._line = self._line or token.line
            self._has_text = True

    def hole(self):
        if not self._pieces or self._pieces[-1] is not HOLE:
            self._pieces.append(HOLE)

    def end(self, calls):
        """The text, if there is any; the chain is empty then."""
        found = [Text(tuple(self._pieces), self._line, calls)] if self._has_text else []
        self.__init__()
        return found


# Behind these, a new expression starts.
_KEYWORDS = {"return", "co_return", "throw", "case", "else"}
_JOINING = {"+", "<<"}
_INSIDE_OPERAND = {"::", "->", ".", "*", "&", "!", "~"}
# They hand on what they are given.
_TEXT_TYPES = {"string", "string_view", "path"}


def _is_text_alone(inside):
    return len(inside) == 1 and inside[0].kind == "text"


def texts(stream, calls=()):
    """Every Text of a list of tokens, in no particular order."""
    chain = _Chain()
    index = 0
    called = ""
    while index < len(stream):
        token = stream[index]
        if token.kind in ("text", "char"):
            chain.text(token)
        elif token.kind == "sign" and token.value in OPENING:
            end = closing(stream, index)
            inside = stream[index + 1:end]
            if called in _TEXT_TYPES and _is_text_alone(inside):
                chain.text(inside[0])
            else:
                yield from texts(inside, (*calls, called) if called else calls)
                chain.hole()
            index = end
        elif token.kind == "name" and token.value in _KEYWORDS:
            yield from chain.end(calls)
            if token.value == "throw":
                calls = (*calls, "throw")
        elif token.kind != "sign":
            if not (token.kind == "name" and _makes_text(stream, index)):
                chain.hole()
        elif token.value == "+=":
            yield from chain.end(calls)
            chain.hole()
        elif token.value not in _JOINING and token.value not in _INSIDE_OPERAND:
            yield from chain.end(calls)
        called = token.value if token.kind == "name" else ""
        index += 1
    yield from chain.end(calls)


def _makes_text(stream, index):
    """Whether the name there belongs to std::string("..."), which is a text like any other."""
    while index + 2 < len(stream) and stream[index + 1].value == "::":
        index += 2
    return (stream[index].value in _TEXT_TYPES and index + 1 < len(stream)
            and stream[index + 1].value in OPENING
            and _is_text_alone(stream[index + 2:closing(stream, index + 1)]))


def python_text(node, constants):
    """The pieces of a Python expression that makes a string, or None for any other.

    constants: {name: string} of the modules, which stand for themselves in f-strings and sums"""
    if isinstance(node, ast.Constant):
        return (node.value,) if isinstance(node.value, str) else None
    if isinstance(node, ast.JoinedStr):
        return tuple(piece for value in node.values for piece in _piece_of_f_string(value, constants))
    if isinstance(node, ast.BinOp) and isinstance(node.op, ast.Add):
        sides = [python_text(side, constants) for side in (node.left, node.right)]
        if sides == [None, None]:
            return None
        return tuple(piece for side, operand in zip(sides, (node.left, node.right))
                     for piece in (side or _piece_of_name(operand, constants)))
    return None


def _piece_of_name(node, constants):
    known = constants.get(node.id) if isinstance(node, ast.Name) else None
    return (HOLE,) if known is None else (known,)


def _piece_of_f_string(value, constants):
    if isinstance(value, ast.FormattedValue):
        return python_text(value.value, constants) or _piece_of_name(value.value, constants)
    return (value.value,)
