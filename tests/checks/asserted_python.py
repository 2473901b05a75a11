# SPDX-License-Identifier: Apache-2.0
"""The texts that a Python test compares with, by the same rules as those of asserted_cpp."""

import ast

from cpp_text import python_text

# Method -> how many of its arguments are compared; what comes behind them is for the report of a failure. A
# regular expression is no exact text, and what must not be there is not asserted.
_ASSERTIONS = {"assertEqual": 2, "assertCountEqual": 2, "assertIn": 2, "assertTrue": 1}
_APPENDING = {"append", "extend", "insert", "update", "add"}


def _called(node):
    if isinstance(node.func, ast.Attribute):
        return node.func.attr
    return node.func.id if isinstance(node.func, ast.Name) else ""


def _names(node):
    """The names that an expression mentions, attributes and methods among them."""
    return {inner.id if isinstance(inner, ast.Name) else inner.attr
            for inner in ast.walk(node) if isinstance(inner, (ast.Name, ast.Attribute))}


def _bindings(node):
    """(names, expression) of everything in a node that gives names a value."""
    if isinstance(node, ast.Assign):
        yield set().union(*map(_names, node.targets)), node.value
    elif isinstance(node, (ast.AugAssign, ast.AnnAssign)) and node.value is not None:
        yield _names(node.target), node.value
    elif isinstance(node, (ast.For, ast.comprehension)):
        yield _names(node.target), node.iter
    elif isinstance(node, ast.NamedExpr):
        yield {node.target.id}, node.value
    elif isinstance(node, ast.Call) and _called(node) in _APPENDING and isinstance(node.func, ast.Attribute):
        for value in node.args:
            yield _names(node.func.value), value


class _Function:
    """A function of a test, or a module outside all of them."""

    def __init__(self, name, arguments=None):
        self.name = name
        words = [word.arg for word in [*arguments.posonlyargs, *arguments.args]] if arguments else []
        self.parameters = words[1:] if words[:1] in (["self"], ["cls"]) else words
        self.keywords = [word.arg for word in arguments.kwonlyargs] if arguments else []
        self.rest = arguments.vararg.arg if arguments and arguments.vararg else None
        self.bindings = []
        self.returned = []
        self.calls = []
        self.wanted = set()         # names that assertions depend on

    def take(self, node):
        """Remembers what of a node matters."""
        self.bindings += _bindings(node)
        if isinstance(node, ast.Return) and node.value is not None:
            self.returned.append(node.value)
        if isinstance(node, ast.Call):
            self.calls.append(node)


class _Asserted:
    """The parameters that a function asserts something about."""

    def __init__(self):
        self.positions = set()
        self.names = set()
        self.rest = None        # this position and all behind it

    def add(self, function):
        """The parameters of one more function of this name, as far as they are wanted."""
        for at, name in enumerate(function.parameters):
            if name in function.wanted:
                self.positions.add(at)
                self.names.add(name)
        self.names |= function.wanted.intersection(function.keywords)
        if function.rest in function.wanted:
            behind = len(function.parameters)
            self.rest = behind if self.rest is None else min(self.rest, behind)

    def size(self):
        """Changes when parameters are added."""
        return len(self.positions), len(self.names), self.rest

    def of(self, call):
        """Those of the arguments of a call."""
        yield from (value for at, value in enumerate(call.args)
                    if at in self.positions or (self.rest is not None and at >= self.rest))
        yield from (word.value for word in call.keywords if word.arg in self.names)


class PythonTests:
    """Test modules whose functions may call each other by name."""

    def __init__(self):
        self._functions = []
        self._asserted = {}         # function name -> _Asserted
        self._wanted = set()        # names that assertions of any function depend on
        self._mentioned = {}        # names in an expression, which are asked for again and again
        self.constants = {}         # the string constants of the modules, by name

    def add(self, source):
        """Reads the text of a module."""
        module = ast.parse(source)
        for node in module.body:
            if isinstance(node, ast.Assign) and isinstance(node.targets[0], ast.Name):
                pieces = python_text(node.value, self.constants)
                if pieces is not None and all(pieces):
                    self.constants[node.targets[0].id] = "".join(pieces)
        outside = _Function("")
        self._functions.append(outside)
        self._read(module, outside)

    def _read(self, parent, function):
        for node in ast.iter_child_nodes(parent):
            inner = function
            if isinstance(node, ast.FunctionDef):
                inner = _Function(node.name, node.args)
                self._functions.append(inner)
            else:
                function.take(node)
            self._read(node, inner)

    def texts(self):
        """The texts that count, as tuples of pieces."""
        while any([self._spread(function) for function in self._functions]):
            pass
        for function in self._functions:
            for expression in self._counted(function):
                yield from _texts(expression, self.constants)

    def _counted(self, function):
        """The expressions of a function whose texts and names count."""
        wanted = function.wanted if function.name else self._wanted
        yield from (value for names, value in function.bindings if names & wanted)
        if function.name in self._wanted:
            yield from function.returned
        for call in function.calls:
            name = _called(call)
            if name in _ASSERTIONS:
                yield from call.args[:_ASSERTIONS[name]]
            elif name in self._asserted:
                yield from self._asserted[name].of(call)

    def _spread(self, function):
        """Names of counted expressions count in turn; True when there were new ones."""
        asserted = self._asserted.setdefault(function.name, _Asserted())
        before = len(function.wanted), len(self._wanted), asserted.size()
        for expression in list(self._counted(function)):
            if expression not in self._mentioned:
                self._mentioned[expression] = _names(expression)
            function.wanted |= self._mentioned[expression]
        self._wanted |= function.wanted
        asserted.add(function)
        return before != (len(function.wanted), len(self._wanted), asserted.size())


def _texts(node, constants):
    pieces = python_text(node, constants)
    if pieces is not None:
        yield pieces
    for child in ast.iter_child_nodes(node):
        yield from _texts(child, constants)


def all_texts(source, constants):
    """Every text of a module, as tuples of pieces, but for strings that stand alone, such as docstrings."""
    pending = [ast.parse(source)]
    while pending:
        node = pending.pop()
        if isinstance(node, ast.Expr) and isinstance(node.value, ast.Constant):
            continue
        pieces = python_text(node, constants)
        if pieces is not None:
            yield pieces
        pending.extend(ast.iter_child_nodes(node))
