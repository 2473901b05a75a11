# SPDX-License-Identifier: Apache-2.0
"""What the sample host's plugin files say, read by other means than the program's."""

import os
import re

from reference_order import read_plugin

_HOST = os.path.join(os.path.dirname(os.path.realpath(__file__)), "..", "..", "examples", "host")
_JSON = os.path.join(_HOST, "root", "usr/libexec/bootweave/plugins")
_NATIVE = os.path.join(_HOST, "native")


def plugin_files(listing):
    """The names of plugin files in a listing, in its order."""
    return [line for line in listing.splitlines() if re.fullmatch(r"[\w.-]+\.(json|so)", line)]


def plugin_name(file_name):
    return os.path.splitext(file_name)[0]


def read_document(file_name):
    """The document of a JSON plugin, or what would be that of a native one, from its source."""
    if file_name.endswith(".json"):
        with open(os.path.join(_JSON, file_name), encoding="utf-8") as file:
            return read_plugin(file.read())
    name = plugin_name(file_name)
    source = next(source for source in os.listdir(_NATIVE) if plugin_name(source) == name)
    with open(os.path.join(_NATIVE, source), encoding="utf-8") as file:
        return {"metadata": _metadata(file.read())}


def _metadata(source):
    lists = {found[1]: re.findall(r'"([^"]*)"', found[2])
             for found in re.finditer(r"^BOOTWEAVE_PLUGIN_NAMES\((\w+), (.*)\);$", source, re.MULTILINE)}
    values = re.search(r"^BOOTWEAVE_PLUGIN_METADATA(?:_3)?\((.*)\);$", source, re.MULTILINE)[1].split(", ")
    values += ["NULL"] * (7 - len(values))
    return {"version": int(values[0]),
            "requires": lists.get(values[1], []), "provides": lists.get(values[2], []),
            "required_flags": lists.get(values[5], []), "disabling_flags": lists.get(values[6], [])}
