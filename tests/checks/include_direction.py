#!/usr/bin/python3
# SPDX-License-Identifier: Apache-2.0
"""Includes go down only: analyze -> driver -> plugins -> graph | hostcli -> util -> platform/include.

Reads every include of every source and fails on one that goes up or sideways, that reaches into
platform/linux or another implementation of the platform, or that knows more of the outside than its room
may."""

import re

import project

# What each room may include beside itself. graph and hostcli do not see each other.
_BELOW = {
    "analyze": {"driver", "plugins", "graph", "hostcli", "util", "platform"},
    "driver": {"plugins", "graph", "hostcli", "util", "platform"},
    "plugins": {"graph", "hostcli", "util", "platform"},
    "graph": {"util", "platform"},
    "hostcli": {"util", "platform"},
    "util": {"platform"},
    "platform": set(),
    "tests": {"analyze", "driver", "plugins", "graph", "hostcli", "util", "platform"},
}
# The folders that implement the platform, one for each host, as a room each.
_IMPLEMENTATION = re.compile(r"(platform/(?!include/)\w+)/")
_BELOW_IMPLEMENTATION = {"util", "platform"}
# Made of pieces of the real platform, where those need no host.
_MAY_SEE_LINUX = re.compile(r"tests/support/fake_platform\.\w+")
_TEST_LIBRARIES = ("gtest/", "gmock/")

# The sources that may know the JSON library, and what for.
_JSON_USERS = {
    "plugins/json_plugin_file.cpp": "parses",
    "analyze/report_json.cpp": "writes",
}


def room_of_file(path):
    """The room that a file lies in, or None for a file outside all rooms."""
    if found := _IMPLEMENTATION.match(path):
        return found[1]
    room = path.split("/")[0]
    return room if room in _BELOW and "/" in path else None


def room_of_include(name):
    """The room that an include names. Headers of platform/include are included as platform/x.h."""
    if found := _IMPLEMENTATION.match(name):
        return found[1]
    room = name.split("/")[0]
    return room if room in _BELOW and "/" in name else None


def _why_forbidden(path, name, is_test):
    here, there = room_of_file(path), room_of_include(name)
    if name.startswith(_TEST_LIBRARIES):
        return None if is_test else "is for tests only"
    if there is None:
        return "names no room"
    if ".." in name.split("/") or name.startswith("platform/include/"):
        return "is not the header's name from the root of its room"
    if there == here:
        return None
    if there == "tests":
        return None if is_test else "is for tests only"
    if there.startswith("platform/"):
        may_see = there == "platform/linux" and _MAY_SEE_LINUX.fullmatch(path)
        return None if may_see else f"is seen by {there} only"
    return None if there in _BELOW.get(here, _BELOW_IMPLEMENTATION) else f"goes from {here} to {there}"


def findings_in(path, text, is_test=False):
    """What is wrong with the includes of one source, one line each."""
    here = room_of_file(path)
    for match in project.INCLUDE.finditer(text):
        quoted, angled = match.groups()
        line = text.count("\n", 0, match.start()) + 1
        if quoted is not None:
            reason = _why_forbidden(path, quoted, is_test)
        elif room_of_include(angled) is not None:
            reason = "needs quotes: it is the project's own"
        elif angled == "syslog.h" and not here.startswith("platform/"):
            reason = "is for what implements the platform only"
        else:
            reason = None
        if reason is not None:
            yield f"{path}:{line}: {quoted or angled} {reason}"


def json_users(texts):
    """The sources that include the JSON library."""
    return [path for path, text in texts.items()
            if any((angled or quoted or "").startswith("boost/json") for quoted, angled in
                   project.INCLUDE.findall(text))]


def wrong_uses_of_json(texts):
    """What is wrong with who includes the JSON library, and with what it does there, one line each."""
    users = json_users(texts)
    yield from (f"{path}: does not include the JSON library any more" for path in _JSON_USERS
                if path not in users)
    for path in users:
        if path not in _JSON_USERS:
            yield f"{path}: one source parses JSON and one writes it: {' and '.join(_JSON_USERS)}"
        elif _JSON_USERS[path] == "writes" and re.search(r"\bparse\w*\s*\(", texts[path]):
            yield f"{path}: parses JSON, but is there to write it"


def main():
    """Checks the whole tree."""
    paths = [str(path) for path in project.sources() if room_of_file(str(path))]
    texts = {path: (project.ROOT / path).read_text(encoding="utf-8") for path in paths}
    is_test = project.test_code()
    findings = [finding for path, text in texts.items() for finding in findings_in(path, text, is_test(path))]
    findings += wrong_uses_of_json({path: text for path, text in texts.items() if not is_test(path)})
    project.finish(findings, paths)


if __name__ == "__main__":
    main()
