# SPDX-License-Identifier: Apache-2.0
"""What the checks share that read sources as clang does: the product's compile commands, and runs over them
that skip what has passed before."""

import concurrent.futures
import functools
import hashlib
import json
import os
import pathlib
import re
import shlex
import subprocess

from project import INCLUDE, ROOMS, ROOT, test_code


def compile_commands(build):
    """How the build compiles the product's own sources: {path relative to ROOT: arguments}."""
    with open(os.path.join(build, "compile_commands.json"), encoding="utf-8") as file:
        entries = json.load(file)
    commands = {}
    is_test = test_code()
    for entry in entries:
        path = os.path.relpath(os.path.join(entry["directory"], entry["file"]), ROOT)
        if path.split(os.sep)[0] in ROOMS and not is_test(path):
            commands.setdefault(path, shlex.split(entry["command"]))
    return commands


def keep_for_clang(arguments):
    """The arguments that say what a source means: paths, macros, language and warnings."""
    kept = []
    words = iter(arguments)
    for word in words:
        if word in ("-I", "-isystem", "-D", "-U", "-include"):
            kept += [word, next(words)]
        elif re.match(r"-(I|isystem|D|U|std=|W(?![lap],))", word):
            kept.append(word)
    return kept


def read(path, arguments):
    """Everything that a source's meaning depends on: its text and arguments, the texts of the project's files
    that it includes, and which packages are installed, for all other headers and the tools.

    None where no package manager tells that."""
    folders = [ROOT / path.rpartition("/")[0]]
    folders += [pathlib.Path(word[2:]) for word in arguments if word.startswith(f"-I{ROOT}")]
    texts, left = {}, [ROOT / path]
    while left:
        file = left.pop()
        if file not in texts:
            texts[file] = file.read_text(encoding="utf-8")
            names = (quoted or angled for quoted, angled in INCLUDE.findall(texts[file]))
            found = (folder / name for name in names for folder in folders)
            left += (candidate for candidate in found if candidate.is_file())
    installed = _installed()
    return None if installed is None else (installed, arguments, sorted(texts.items()))


@functools.cache
def _installed():
    try:
        return hashlib.sha256(pathlib.Path("/var/lib/dpkg/status").read_bytes()).hexdigest()
    except OSError:
        return None


def run_on_each(check, jobs, memory):
    """Runs a check on every source, as many at a time as there are processors.

    check   called with the label and the job; returns (command, what the outcome depends on, or None)
    jobs    {label: job}
    memory  directory that remembers what passed; the same is not run again
    Returns what the commands that failed said.
    """
    os.makedirs(memory, exist_ok=True)

    def run(item):
        label, job = item
        command, depends_on = check(label, job)
        mark = None
        if depends_on is not None:
            mark = os.path.join(memory, hashlib.sha256(repr((command, depends_on)).encode()).hexdigest())
            if os.path.exists(mark):
                os.utime(mark)      # still in use
                return None
        result = subprocess.run(command, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, check=False)
        if result.returncode != 0:
            return f"{label}:\n{result.stdout.decode('utf-8', 'replace').rstrip()}"
        if mark:
            pathlib.Path(mark).touch()
        return None

    with concurrent.futures.ThreadPoolExecutor(len(os.sched_getaffinity(0))) as pool:
        failures = [said for said in pool.map(run, jobs.items()) if said]
    _forget_oldest(memory)
    return failures


def _forget_oldest(directory, most=2000):
    marks = sorted(os.scandir(directory), key=lambda mark: mark.stat().st_mtime)
    for mark in marks[:-most]:
        os.unlink(mark.path)
