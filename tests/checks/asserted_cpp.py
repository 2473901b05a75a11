# SPDX-License-Identifier: Apache-2.0
"""The texts that a C++ test compares with.

A text counts where an assertion is given it: as it stands there, or through names. Those are variables that
an assertion mentions, whatever they are made of; functions that it calls, for what they return; and
parameters that a function of the test asserts something about, for what it is called with. So a text that is
only an input, a trace, a comment or the name of a test does not count, nor does one that must not appear."""

import dataclasses
import re

from cpp_text import OPENING, closing, texts

_ASSERTION = re.compile(r"(?:EXPECT|ASSERT)_(?!.*NE$|NO_)\w+|INSTANTIATE_\w+")
_TEST = re.compile(r"TEST(?:_[FP])?")
# What these are given is not there.
_NEGATION = {"Not"}
_CONTROL = {"if", "for", "while", "switch", "catch", "return"}
_TYPE_WORDS = {"namespace", "struct", "class", "enum", "union", "extern"}
_BEFORE_BODY = {"const", "noexcept", "override", "final", "else", "do", "try", "mutable"}


@dataclasses.dataclass(slots=True)
class _Statement:
    """The tokens up to a semicolon or the end of a body, and the bodies among them."""
    tokens: list
    bodies: list        # lists of statements


def _opens_body(found, depth):
    """Whether a brace behind these tokens of a statement opens a body, and not a list of values."""
    if not found:
        return True
    last = found[-1]
    if last.kind == "text":
        return True
    if last.kind == "name":
        if last.value in _BEFORE_BODY:
            return True
        if len(found) > 2 and found[-2].value == "->" and found[-3].value == ")":
            return True     # of a lambda that names the type that it returns
        return depth == 0 and any(token.value in _TYPE_WORDS for token in found)
    return last.value in (")", "]", "}") or (last.value == ":" and depth == 0)


def _statements(stream, index=0):
    """The statements from `index` to the brace that closes their body, and the index behind it."""
    found = []
    now, depth = _Statement([], []), 0
    while index < len(stream):
        token = stream[index]
        index += 1
        value = token.value if token.kind == "sign" else ""
        if value == "{" and _opens_body(now.tokens, depth):
            body, index = _statements(stream, index)
            now.bodies.append(body)
            goes_on = depth > 0 or (index < len(stream) and stream[index].value in (";", ",", ")", "(", "."))
        else:
            if value in OPENING:
                depth += 1
            elif value and value in ")]}":
                if depth == 0:
                    break
                depth -= 1
            goes_on = value != ";" or depth > 0
            if goes_on:
                now.tokens.append(token)
        if not goes_on:
            found.append(now)
            now = _Statement([], [])
    return ([*found, now] if now.tokens or now.bodies else found), index


def _arguments(inside):
    """The tokens of each argument between two brackets."""
    found, depth = [[]], 0
    for token in inside:
        value = token.value if token.kind == "sign" else ""
        depth += (value in OPENING) - (value != "" and value in ")]}")
        if value == "," and depth == 0:
            found.append([])
        else:
            found[-1].append(token)
    return found


def _without_negations(stream):
    found, index = [], 0
    while index < len(stream):
        if stream[index].value in _NEGATION and index + 1 < len(stream) and stream[index + 1].value == "(":
            index = closing(stream, index + 1)
        else:
            found.append(stream[index])
        index += 1
    return found


def _names(stream):
    return {token.value for token in stream if token.kind == "name"}


def _bound(tokens):
    """The names that a statement gives a value: those it declares, assigns, or appends to."""
    if tokens and tokens[0].value == "for" and len(tokens) > 1:
        tokens = tokens[2:]
    words = []
    for index, token in enumerate(tokens):
        if token.kind == "sign" and token.value == "[" and words and words[-1] in ("auto", "&", "&&"):
            return _names(tokens[index + 1:closing(tokens, index)])       # a structured binding
        if token.kind == "sign" and token.value in ("=", "+=", "<<", ":", "{", "(", "[", "."):
            break
        words.append(token.value)
    else:
        return set()
    if token.value == "." and index + 1 < len(tokens):
        appends = tokens[index + 1].value in ("push_back", "emplace_back", "append", "insert", "assign")
        return {words[-1]} if appends and words else set()
    if token.value == "(" and (len(words) < 2 or words[-2] == "::" or words[0] in _CONTROL):
        return set()        # a call, not a declaration
    return {words[-1]} if words else set()


class _Region:
    """Some tokens of a statement."""

    def __init__(self, tokens):
        self.tokens = tokens
        self.names = _names(tokens)


class _Parts:
    """What of a statement matters."""

    def __init__(self, tokens):
        self.whole = _Region(tokens)
        self.bound = _bound(tokens)
        self.returns = bool(tokens) and tokens[0].value == "return"
        self.compared = []      # regions that assertions are given
        self.calls = []         # (name, regions of its arguments) for every call of anything else
        for index, token in enumerate(tokens[:-1]):
            if token.kind == "name" and tokens[index + 1].value in ("(", "{"):
                inside = tokens[index + 2:closing(tokens, index + 1)]
                if _ASSERTION.fullmatch(token.value):
                    self.compared.append(_Region(_without_negations(inside)))
                else:
                    self.calls.append((token.value, [_Region(words) for words in _arguments(inside)]))


class _Function:
    """A function of a test, or the source outside all of them."""

    def __init__(self, name, parameters):
        self.name = name
        self.parameters = parameters        # {name: position}
        self.statements = []
        self.wanted = set()                 # names that assertions depend on


def _function_of(statement):
    """The name and the parameters of the function whose body the statement has, or None."""
    tokens = statement.tokens
    for index, token in enumerate(tokens):
        if token.kind == "sign" and token.value == "(":
            if index == 0 or tokens[index - 1].kind != "name":
                return None
            name = tokens[index - 1].value
            lists = tokens[index + 1:closing(tokens, index)]
            break
        if token.kind == "sign" and token.value == "=":
            return _lambda_of(tokens, index)
    else:
        return None
    return None if name in _CONTROL or not statement.bodies else (name, _parameters(lists))


def _lambda_of(tokens, index):
    """The same for `name = [...](parameters) {...}`."""
    name = tokens[index - 1].value
    if index + 1 < len(tokens) and tokens[index + 1].value == "[":
        behind = closing(tokens, index + 1) + 1
        if behind < len(tokens) and tokens[behind].value == "(":
            return name, _parameters(tokens[behind + 1:closing(tokens, behind)])
        return name, {}
    return None


def _parameters(inside):
    found = {}
    for position, words in enumerate(_arguments(inside)):
        end = next((at for at, word in enumerate(words) if word.value == "="), len(words))
        if end > 0 and words[end - 1].kind == "name":
            found[words[end - 1].value] = position
    return found


class CppTests:
    """Test sources, read one after the other, whose functions may call each other by name."""

    def __init__(self):
        self._functions = []
        self._asserting = {}        # function name -> positions of the parameters that it asserts
        self._wanted = set()        # names that assertions of any function depend on

    def add(self, stream):
        """Reads the tokens of a source."""
        outside = _Function("", {})
        self._functions.append(outside)
        self._read(_statements(stream)[0], outside)

    def _read(self, statements, function):
        for statement in statements:
            inner = function
            header = _function_of(statement) if statement.bodies else None
            if header is not None:
                inner = _Function(*header)
                self._functions.append(inner)
            function.statements.append(_Parts(statement.tokens))
            for body in statement.bodies:
                self._read(body, inner)

    def texts(self):
        """The texts that count, as tuples of pieces."""
        while any([self._spread(function) for function in self._functions]):
            pass
        for function in self._functions:
            for region in self._counted(function):
                yield from (text.pieces for text in texts(region.tokens))

    def _counted(self, function):
        """The regions of a function whose texts and names count."""
        wanted = function.wanted if function.name else self._wanted
        for statement in function.statements:
            if statement.bound & wanted or (statement.returns and function.name in self._wanted):
                yield statement.whole
                continue
            yield from statement.compared
            for name, given in statement.calls:
                positions = self._asserting.get(name, ())
                yield from (words for position, words in enumerate(given) if position in positions)

    def _spread(self, function):
        """Names of counted regions count in turn; True when there were new ones."""
        asserted = self._asserting.setdefault(function.name, set())
        before = len(function.wanted), len(self._wanted), len(asserted)
        for region in self._counted(function):
            function.wanted |= region.names
        self._wanted |= function.wanted
        if not _TEST.fullmatch(function.name):
            asserted |= {at for name, at in function.parameters.items() if name in function.wanted}
        return before != (len(function.wanted), len(self._wanted), len(asserted))
