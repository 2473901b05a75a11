# SPDX-License-Identifier: Apache-2.0
"""Builds native plugins as their authors do: with the compiler, pkg-config and what the program installs.

The same source is built once, however many cases ask for it.
"""

import functools
import os
import shlex
import subprocess
import tempfile
import threading

from harness import PLUGINS, STAGE_VARIABLE

_ROOT = os.path.join(os.path.dirname(os.path.realpath(__file__)), "..", "..")
_SAMPLE_SOURCES = os.path.join(_ROOT, "examples", "host", "native")
_MODULE = "bootweave-native-plugin"
_lock = threading.Lock()


def environment():
    """The environment in which pkg-config finds what was installed into the staging directory."""
    stage = os.environ.get(STAGE_VARIABLE)
    if stage is None:
        raise RuntimeError("nothing is installed: run this through tests/system/run --stage DIRECTORY")
    return {**os.environ, "PKG_CONFIG_PATH": os.path.join(stage, "usr/share/pkgconfig")}


@functools.cache
def _compile(source, is_cpp):
    flags = subprocess.run(["pkg-config", "--cflags", _MODULE], env=environment(), check=True, text=True,
                           stdout=subprocess.PIPE).stdout
    compiler = ["c++", "-x", "c++", "-std=c++17"] if is_cpp else ["cc", "-x", "c", "-std=c11"]
    with tempfile.TemporaryDirectory(prefix="bootweave-system-") as directory:
        result = os.path.join(directory, "plugin.so")
        subprocess.run([*compiler, "-", "-shared", "-fPIC", "-fvisibility=hidden", "-D_GNU_SOURCE", "-Wall",
                        "-Werror", *shlex.split(flags), "-o", result], input=source.encode(), check=True)
        with open(result, "rb") as file:
            return file.read()


def compile_object(source, is_cpp=False):
    """The bytes of the shared object that a source text gives."""
    with _lock:
        return _compile(source, is_cpp)


def _list(name, strings):
    """(definition, value) of a list of the metadata; the C text "NULL" stays what it is."""
    if not strings:
        return "", "NULL"
    words = ", ".join('"' + string + '"' for string in strings)
    return f"BOOTWEAVE_PLUGIN_NAMES({name}, {words});\n", name


def native_source(start="", apply=None, version=1, requires=(), provides=(), plugin_version=None,
                  run_once=0, required_flags=(), disabling_flags=(), more=""):
    """The C text of a plugin; `start` and `apply` are the bodies of its operations, ending with success."""
    lists = [_list("wanted", requires), _list("given", provides), _list("needed_flags", required_flags),
             _list("unwanted_flags", disabling_flags)]
    values = [value for _, value in lists]
    own_version = "NULL" if plugin_version is None else '"' + plugin_version + '"'
    parts = ["#include <fcntl.h>\n#include <signal.h>\n#include <stdio.h>\n#include <stdlib.h>\n"
             "#include <string.h>\n#include <unistd.h>\n#include <bootweave/native_plugin.h>\n", more, "\n"]
    for name, body in ("Start", start), ("Apply", apply):
        if body is not None:
            parts.append(f"static int {name}(const char *name) {{ (void)name; {body}\nreturn 0; }}\n")
    parts += [definition for definition, _ in lists]
    parts.append(f"BOOTWEAVE_PLUGIN_OPERATIONS(Start, {'NULL' if apply is None else 'Apply'});\n")
    parts.append(f"BOOTWEAVE_PLUGIN_METADATA_3({version}, {values[0]}, {values[1]}, {own_version}, "
                 f"{run_once}, {values[2]}, {values[3]});\n")
    return "".join(parts)


def native(name, start="", file_name=None, **options):
    """Files for one native plugin; options as for native_source()."""
    return {f"{PLUGINS}/{file_name or name + '.so'}": compile_object(native_source(start, **options))}


def sample_plugins():
    """Files for the native plugins of the sample host."""
    files = {}
    for source in sorted(os.listdir(_SAMPLE_SOURCES)):
        name, kind = os.path.splitext(source)
        if kind in (".c", ".cpp"):
            with open(os.path.join(_SAMPLE_SOURCES, source), encoding="utf-8") as file:
                files[f"{PLUGINS}/{name}.so"] = compile_object(file.read(), kind == ".cpp")
    return files
