#!/usr/bin/python3
# SPDX-License-Identifier: Apache-2.0
"""man has nothing to say about any manual page, and each program's page names exactly the options that there
are, and all messages.

Each text that a source of the program puts together, but for single words, stands in one line of its page,
with anything for what the running program fills in; or below, with the reason why it does not. One below that
is in the page, or in no source any more, is reported, too."""

import os
import re
import subprocess

import project
from messages import joined, missing_texts

# Page -> the source of the options that it has.
_PAGES = {
    "docs/bootweave.8": "driver/options.cpp",
    "docs/bootweave-analyze.1": "analyze/options.cpp",
}
_ANALYZE_PAGE = "docs/bootweave-analyze.1"

# Sources whose texts are not said.
_NO_MESSAGES = {
    "analyze/help_text.cpp": "the help, which the page has in its own words",
    "analyze/report_dot.cpp": "a graph, which the page explains",
    "analyze/report_svg.cpp": "a picture, which the page explains",
    "analyze/report_text.cpp": "the reports, which the page explains line by line",
    "analyze/svg_canvas.cpp": "marks of a picture",
    "analyze/table.cpp": "how the reports write numbers",
    "analyze/text_columns.cpp": "an ellipsis",
    "driver/help_text.cpp": "the help, which the page has in its own words",
    "graph/dot.cpp": "the graph's text",
    "platform/linux/boot_splash.cpp": "arguments for the splash screen",
    "platform/linux/service_manager.cpp": "a status for the service manager",
    "platform/linux/log_text.cpp": "what stands before each message",
}

# Reason -> texts, as this check reports them.
_EXEMPT = {
    "the same as one in the page that has a reason, for what is no exception; nothing throws such": [
        "Failed to initialize bootweave",
        "Resetting Executor failed, retrying",
        "Unable to start executor",
        "Unexpected exception while logging msg",
        "ignoring unknown exception whilst processing ... ...",
        "unhandled exception whilst running ...",
        "unknown exception",
        "unknown exception whilst attempting to execute method '...' on plugin '...'",
        "unknown exception whilst executing '...'",
    ],
    "an instance of one in the page, which leaves the key open": [
        "metadata is corrupt (unable to parse plugin_version)",
        "metadata is corrupt (unable to parse run_once)",
        "metadata is corrupt (unable to parse version)",
    ],
    "a reason that stands in a message of the page": [
        "... ms",
        "... s",
        "...: cannot open shared object file: ...",
        "Unknown error ...",
        "Unknown error",
        "unknown error",
    ],
    "guards against a mistake in the program itself": [
        " <unknown_error>",
        "... Daemon operations are not initialized",
        "Bootweave cannot ignore SIGPIPE",
        "Cannot format a message \\\"...\\\": ...",
        "Failed collecting executor's exit status",
        "Poll loop failed: not initialised",
        "Poll loop: descriptor ... is not open, its callback is removed",
        "barrier '...' does not stand for a priority",
        "commit invoked on an unknown destination",
        "exited: <unknown failure>",
        "failed to read exit status",
        "unhandled exception whilst running ...: ...",
    ],
    "a method that daemons do not have, and that no option leads to": [
        "DaemonPlugin::ApplyHostProfile",
        "DaemonPlugin::Restart",
        "DaemonPlugin::SSLReset",
        "LegacyDaemonPlugin::ApplyHostProfile",
    ],
    "the page leaves the plugin's kind open": [
        "DebugPlugin::ApplyHostProfile",
        "NativePlugin::ApplyHostProfile",
        "json_plugin::ApplyHostProfile",
    ],
    "memory has run out": [
        "Condition variable for Executor could not be initialized",
        "Condition variable for Node could not be initialized",
        "failed to add dup2 file actions",
        "failed to init file actions: ...",
        "insufficient memory to allocate buffer",
        "unable to allocate mkstemp pattern",
    ],
    "caught, and said as a profiling log that cannot be opened": [
        "failed to create temp file: ...",
        "failed to write to temp file: ...",
        "unable to create temporary file to write '...': ...",
    ],
    "a part of the profiling log": [
        "... Verbose: ...\\n Parallel: ...\\n Randomize: ...\\n Interactive Mode: ...\\n Random Seed: ...",
        "...=== Bootweave configuration info ===\\n Start: ...\\n End: ...",
        "...=== Daemon configuration info ===\\n Start Daemon: ...\\n End Daemon: ...",
        "...Mantle Initialization Time: ...",
    ],
    "on the progress screen": [
        "Activating Bootweave Plugins",
        "Starting service ...",
    ],
    "the console's question, which says itself what it wants": [
        "current plugin: ...",
    ],
    "said by native plugins' programs when something else starts them; the page has their exit status": [
        "...: has no operation for ...",
        "...: unknown method ...",
        "nativeExecutor: ...",
        "nativeReader: is for bootweave, which starts it with a socket as descriptor 3",
        "usage: nativeExecutor PATH NAME METHOD",
    ],
    "said by bootweave-analyze, whose page has it": [
        "line ..., column ...",
    ],
    "no message": [
        " shape=box",
        " shape=trapezium",
        "_<->_priority_<->_...",
        "... ++group=init/... start",
        "/bin/chkconfig -p",
        "/proc/.../fd/...",
        "HOSTCLI_COMMAND=...",
        "HOSTCLI_DISPATCHER=...",
        "build-...",
    ],
}
_NOT_IN_PAGE = {text for texts in _EXEMPT.values() for text in texts}

def options_of_program(source):
    """The long options that the command line is parsed with."""
    return set(re.findall(r"\boption\{\"([a-z-]+)\"", source))


def options_of_page(page):
    """The long options that the page's OPTIONS section gives a paragraph each."""
    section = re.search(r"^\.SH OPTIONS$(.*?)^\.SH ", page, re.MULTILINE | re.DOTALL)
    # The line behind .TP is the paragraph's title.
    titles = re.findall(r"^\.TP\n(.*)$", section.group(1) if section else "", re.MULTILINE)
    plain = re.sub(r"\\f.", " ", "\n".join(titles)).replace("\\-", "-")
    return set(re.findall(r"(?<![a-z-])--([a-z][a-z-]*[a-z])", plain))


def lines_of_page(page):
    """The page's lines as they are read, without fonts; the arguments of a macro are one text."""
    return [_plain(line) for line in page.replace("\\\n", "").splitlines() if not line.startswith('.\\"')]


def _plain(line):
    macro = re.fullmatch(r"\.([A-Z]+)\b ?(.*)", line)
    if macro:
        quoted_or_not = re.findall(r'"((?:[^"]|"")*)"|(\S+)', macro[2])
        words = [quoted.replace('""', '"') or bare for quoted, bare in quoted_or_not]
        # .BI and its like put their arguments side by side, the others blanks between them.
        line = ("" if re.fullmatch("[BIR]{2}", macro[1]) else " ").join(words)
    line = re.sub(r"\\f.", "", line)
    return line.replace("\\-", "-").replace("\\(ga", "`").replace("\\e", "\\")


def messages_missing(page, product, not_in_page=frozenset(_NOT_IN_PAGE)):
    """What the page lacks of the texts of the product, {path: text of the source}, one line each."""
    known = joined([(line,) for line in lines_of_page(page)])
    spoken = {path: source for path, source in product.items() if path not in _NO_MESSAGES}
    return missing_texts(known, spoken, not_in_page, "the manual")


def page_of(path):
    """The page that has what a source of the product says."""
    return _ANALYZE_PAGE if path.startswith("analyze/") else "docs/bootweave.8"


def _product():
    is_test = project.test_code()
    return {str(path): (project.ROOT / path).read_text(encoding="utf-8")
            for path in project.sources() if path.parts[0] in project.ROOMS and not is_test(path)}


def _findings_in(page, product):
    """What a program's page lacks, and what it has too much, one line each."""
    text = (project.ROOT / page).read_text(encoding="utf-8")
    program = options_of_program((project.ROOT / _PAGES[page]).read_text(encoding="utf-8"))
    listed = options_of_page(text)
    yield from (f"{page}: --{name} is missing" for name in sorted(program - listed))
    yield from (f"{page}: there is no option --{name}" for name in sorted(listed - program))
    said = {path: source for path, source in product.items() if page_of(path) == page}
    yield from messages_missing(text, said, frozenset() if page == _ANALYZE_PAGE else frozenset(_NOT_IN_PAGE))


def _complaints_of_man(page):
    environment = dict(os.environ, LC_ALL="C.UTF-8", MANWIDTH="80")
    result = subprocess.run([project.need("man"), "--warnings", "-E", "UTF-8", "-l", "-Tutf8", "-Z", page],
                            cwd=project.ROOT, env=environment, check=False, text=True, stderr=subprocess.PIPE,
                            stdout=subprocess.DEVNULL)
    complaints = [f"{page}: {line}" for line in result.stderr.splitlines()]
    return complaints or ([f"{page}: man fails"] if result.returncode != 0 else [])


def main():
    """Checks the pages."""
    pages = [str(path) for path in project.files() if re.fullmatch(r"\.[1-8]", path.suffix)]
    findings = [complaint for name in pages for complaint in _complaints_of_man(name)]
    product = _product()
    findings += [finding for page in _PAGES for finding in _findings_in(page, product)]
    project.finish(findings, pages)


if __name__ == "__main__":
    main()
