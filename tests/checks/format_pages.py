#!/usr/bin/python3
# SPDX-License-Identifier: Apache-2.0
"""The manual pages of files and formats say what the sources do, no more and no less.

  bootweave-plugin(5)      a paragraph for each key of a JSON plugin, with the version from which on it is
                           read; each macro for authors of native plugins
  bootweave-debug.conf(5)  a paragraph for each field of a line
  sysboot.log(5)           a paragraph for each kind of line
  hostcli(7)               each directory, each variable of the environment, and a paragraph for each error

And no page refers to a page of this project that is not there."""

import re

import project
from manual_page import lines_of_page

_PLUGIN, _DEBUG = "docs/bootweave-plugin.5", "docs/bootweave-debug.conf.5"
_PROFILE, _COMMANDS = "docs/sysboot.log.5", "docs/hostcli.7"
_LITERAL = r'"((?:[^"\\]|\\.)*)"'
_HOLE = "\0"        # what the running program fills in

# Pages that are installed under another name than their source has.
_RENAMED = {"bootweave-chkconfig.8": "docs/chkconfig.8"}
_OWN_PAGE = re.compile(r"^\.BR (bootweave[\w.\\-]*|hostcli|sysboot\.log) \((\d)\)", re.MULTILINE)


def titles_of_page(page):
    """The titles of the page's paragraphs, as they are read."""
    marked = re.sub(r"^\.T[PQ]\n", "\\& title\n", page.replace("\\\n", ""), flags=re.MULTILINE)
    lines = lines_of_page(marked)
    return [line for before, line in zip(["", *lines], lines) if before.endswith("& title")]


def missing_and_needless(page, wanted, found, what):
    """One line for each of `wanted` that is not in `found`, and the other way round."""
    yield from (f"{page}: {what} {name} is missing" for name in wanted if name not in found)
    yield from (f"{page}: there is no {what} {name}" for name in found if name not in wanted)


def plugin_page_findings(page, reader, header):
    """What bootweave-plugin(5) lacks of the keys in the reader's table and of the macros in the header."""
    keys = {name: int(since or 1) for name, since in
            re.findall(r'\bJSONPluginKey k\w+\{"\w*", "(\w+)"(?:, (\d+))?\}', reader)}
    said = {}
    for title in titles_of_page(page):
        found = re.fullmatch(
            r"(\w+) \((?:object|number|boolean|string|array of strings)(?:, from version (\d))?\)", title)
        if found:
            said[found[1]] = int(found[2] or 1)
    wanted = [f"{name} from version {since}" for name, since in sorted(keys.items())]
    found = [f"{name} from version {since}" for name, since in sorted(said.items())]
    yield from missing_and_needless(_PLUGIN, wanted, found, "key")
    macros = set(re.findall(r"^#define (BOOTWEAVE_PLUGIN_\w+)\(", header, re.MULTILINE))
    used = set(re.findall(r"\bBOOTWEAVE_PLUGIN_\w+", page))
    yield from missing_and_needless(_PLUGIN, sorted(macros), sorted(used), "macro")


def debug_page_findings(page, header):
    """What bootweave-debug.conf(5) lacks of the fields of an injection."""
    record = re.search(r"^struct DebugInjection \{(.*?)^\};", header, re.MULTILINE | re.DOTALL)
    fields = re.findall(r"^ +std::\S+ (\w+?)(?:_names)?;", record[1] if record else "", re.MULTILINE)
    titles = [title for title in titles_of_page(page) if re.fullmatch(r"[a-z_]+", title)]
    yield from missing_and_needless(_DEBUG, fields, titles, "field")


def lines_of_profile(source):
    """The kinds of lines that a profile has, as regular expressions for them."""
    lines = []
    for statement in re.findall(r"\bout *<<(.*?);", source, re.DOTALL):
        text = "".join(literal if word == "" else _HOLE for literal, word in
                       re.findall(_LITERAL + r"|((?:[\w:]+(?:\([^;\n]*?\))?(?:\.|->)?)+|\()", statement))
        lines += [line for line in text.split("\\n") if line.strip(_HOLE + "\\")]
    kinds = re.findall(r"\bWritePlugins\([^;]*" + _LITERAL + r"\)", source)
    for line in lines:
        plain = re.sub(_HOLE + "+", _HOLE, line).strip("\\")
        for kind in kinds if plain.startswith("[") else [None]:
            shown = plain if kind is None else re.sub(f"(?<=\\] ){_HOLE}", kind, plain)
            yield ".+".join(map(re.escape, shown.split(_HOLE)))


def profile_page_findings(page, source):
    """What sysboot.log(5) lacks of the kinds of lines that the source writes."""
    titles, kinds = titles_of_page(page), list(lines_of_profile(source))
    for kind in kinds:
        if not any(re.fullmatch(kind, title) for title in titles):
            yield f"{_PROFILE}: a line {kind} is missing"
    for title in titles:
        if not any(re.fullmatch(kind, title) for kind in kinds):
            yield f"{_PROFILE}: there is no line {title}"


def command_page_findings(page, dispatcher, runner, parsers):
    """What hostcli(7) lacks of directories, environment and errors."""
    page = page.replace("\\(aq", "'")
    lines = lines_of_page(page)
    for directory in re.findall(r'^ +"(/[\w/]+)",$', dispatcher, re.MULTILINE):
        if directory not in lines:
            yield f"{_COMMANDS}: the directory {directory} is missing"
    for variable in re.findall(r'"([A-Z_]+=)', runner):
        if not any(line.startswith(variable) for line in lines):
            yield f"{_COMMANDS}: the variable {variable} is missing"
    titles = {re.sub(r"(?<=').*?(?=')", "", title) for title in titles_of_page(page)}
    for error in re.findall(r'(?:push_back|Exception)\("([^"]+)"', parsers):
        if error not in titles and error + "'" not in titles:      # with a word in quotes at its end
            yield f"{_COMMANDS}: the error {error} is missing"


def broken_references(path, page, sources):
    """References to pages of this project that have no source."""
    for name, section in _OWN_PAGE.findall(page):
        file = f"{name}.{section}".replace("\\-", "-")
        if _RENAMED.get(file, "docs/" + file) not in sources:
            yield f"{path}: there is no page {name.replace(chr(92), '')}({section})"


def _read(path):
    return (project.ROOT / path).read_text(encoding="utf-8")


def main():
    """Checks the pages."""
    linux = "platform/linux/"
    pages = [str(path) for path in project.files() if re.fullmatch(r"docs/.*\.[1-8]", str(path))]
    findings = [
        *plugin_page_findings(_read(_PLUGIN), _read("plugins/json_plugin_file.cpp"),
                              _read("plugins/include/bootweave/native_plugin.h")),
        *debug_page_findings(_read(_DEBUG), _read("plugins/debug_injections.h")),
        *profile_page_findings(_read(_PROFILE), _read("driver/profiling_log.cpp")),
        *command_page_findings(_read(_COMMANDS), _read("hostcli/dispatcher.cpp"),
                               _read(linux + "command_dispatcher.cpp"),
                               _read(linux + "command_words.cpp") + _read(linux + "command_parser.cpp")),
        *(line for page in pages for line in broken_references(page, _read(page), pages)),
    ]
    project.finish(findings, pages)


if __name__ == "__main__":
    main()
