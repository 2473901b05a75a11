#!/usr/bin/python3
# SPDX-License-Identifier: Apache-2.0
"""bash completes exactly the options and commands that there are.

The tables of packaging/bash-completion.sh are compared with those that the programs read their command lines
with: the options, whether each has a value, and the commands. A new one needs a word in the table there."""

import re

import project

_COMPLETION = "packaging/bash-completion.sh"
# Table there -> the source of the options.
_OPTIONS = {"_bootweave_options": "driver/options.cpp", "_bootweave_analyze_options": "analyze/options.cpp"}
_COMMANDS = ("_bootweave_analyze_commands", "analyze/options.cpp")
_VALUES = {"no_argument": "", "required_argument": "=", "optional_argument": "[=]"}


def table(script, name):
    """The words of an array of the script, without quotes."""
    found = re.search(rf"^{name}=\((.*?)\)$", script, re.MULTILINE | re.DOTALL)
    return [word.strip("'") for word in found[1].split()] if found else []


def kinds(script):
    """The kinds of values that the script knows."""
    function = re.search(r"^_bootweave_values\(\) \{(.*?)^\}", script, re.MULTILINE | re.DOTALL)
    branches = re.findall(r"^    ([a-z| -]+)\)", function[1] if function else "", re.MULTILINE)
    return {kind for branch in branches for kind in branch.split(" | ")}


def options_of(source):
    """--x, --x= or --x[=] for each option of a program, and the same for its letter."""
    letters = dict(re.findall(r"^ +(k\w+) = '(\w)',", source, re.MULTILINE))
    found = re.findall(r'\boption\{"([a-z-]+)", (\w+), nullptr, (\w+)\}', source)
    return ({f"--{name}{_VALUES[value]}" for name, value, _ in found}
            | {f"-{letters[code]}{_VALUES[value]}" for _, value, code in found if code in letters})


def commands_of(source):
    """The commands of a program."""
    found = re.search(r"\bkCommands\{(.*?)\};", source, re.DOTALL)
    return set(re.findall(r'\{"([a-z-]+)",', found[1])) if found else set()


def differences(what, offered, there):
    """One line for each thing that is only in one of the two sets."""
    yield from (f"{_COMPLETION}: {what} {name} is missing" for name in sorted(there - offered))
    yield from (f"{_COMPLETION}: there is no {what} {name}" for name in sorted(offered - there))


def findings_in(script, sources):
    """What the script lacks or has too much; `sources` is {path: text}."""
    known = kinds(script)
    for name, path in _OPTIONS.items():
        words = table(script, name)
        offered = {re.sub(r"=[\w-]+(?=\]?$)", "=", word) for word in words}
        yield from differences(f"option of {path}", offered, options_of(sources[path]))
        yield from _unknown_kinds(words, known)
    name, path = _COMMANDS
    words = table(script, name)
    yield from differences(f"command of {path}", {word.split("=")[0] for word in words},
                           commands_of(sources[path]))
    yield from _unknown_kinds(words, known)


def _unknown_kinds(words, known):
    for word in words:
        _, has_value, kind = word.rstrip("]").partition("=")
        if has_value and kind not in known:
            yield f"{_COMPLETION}: {word}: there is no kind {kind}"


def main():
    """Checks the script."""
    paths = {_COMPLETION, *_OPTIONS.values()}
    texts = {path: (project.ROOT / path).read_text(encoding="utf-8") for path in paths}
    project.finish(list(findings_in(texts[_COMPLETION], texts)), paths)


if __name__ == "__main__":
    main()
