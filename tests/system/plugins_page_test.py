# SPDX-License-Identifier: Apache-2.0
"""Every command of docs/plugins.md, run on one host in the order of the page, answers what the page shows.

Blocks that begin with `console` hold commands, each behind "# ", and below them what they answer, on standard
output or standard error. Blocks with `file=NAME` are files that the reader saves."""

import dataclasses
import os
import re

from harness import SystemTest

_PAGE = os.path.join(os.path.dirname(os.path.realpath(__file__)), "..", "..", "docs", "plugins.md")
_BLOCK = re.compile(r"^```(\w+)(?: file=(\S+))?\n(.*?)^```$", re.MULTILINE | re.DOTALL)
_MARK = "@@ end of command "


@dataclasses.dataclass
class _Command:
    line: str
    answer: list


def _page():
    with open(_PAGE, encoding="utf-8") as file:
        return file.read()


def _commands(block):
    commands = []
    for line in block.splitlines():
        if line.startswith("# "):
            commands.append(_Command(line[2:], []))
        else:
            commands[-1].answer.append(line)
    return commands


def _steps(page):
    """The commands and (file name, text) of the page, in its order."""
    for kind, name, text in _BLOCK.findall(page):
        if kind == "console":
            yield from _commands(text)
        elif name:
            yield name, text


def _script(steps):
    """A script that does what the reader does. What is behind each command marks its end in the output."""
    lines = ["exec 2>&1"]
    for step in steps:
        if isinstance(step, _Command):
            lines += [step.line, f"echo '{_MARK}'"]
        else:
            lines += [f"cat >{step[0]} <<'@@ end of file'", step[1] + "@@ end of file"]
    return "\n".join(lines)


def _plain(line):
    """A line without what is another one each time."""
    return re.sub(r"\d{4}-\d\d-\d\dT\d\d:\d\d:\d\d\.\d{3}Z bootweave\[\d+\]", "TIME bootweave[N]", line)


def _comparable(lines):
    """The lines; of a run of several plugins, some of which may come in any order, in one that is fixed."""
    plain = [_plain(line) for line in lines]
    return sorted(plain) if "".join(plain).count("executing start plugin") > 1 else plain


class PluginsPageTest(SystemTest):
    """The page."""

    def test_every_command_answers_what_the_page_shows(self):
        steps = list(_steps(_page()))
        commands = [step for step in steps if isinstance(step, _Command)]
        self.assertGreater(len(commands), 50)
        host = self.host(setup="rm -f /etc/rc[2-5].d/S* /bin/chkconfig")
        end = host.shell(f"export PKG_CONFIG_PATH=/usr/share/pkgconfig\n{_script(steps)}")
        answers = end.stdout.split(_MARK + "\n")
        self.assertEqual((len(commands), ""), (len(answers) - 1, answers[-1]))
        for command, answer in zip(commands, answers):
            with self.subTest(command=command.line):
                self.assertEqual(_comparable(command.answer), _comparable(answer.splitlines()))

    def test_code_is_run_or_saved_under_the_name_that_the_text_tells(self):
        page = _page()
        for kind, name, text in _BLOCK.findall(page):
            with self.subTest(text=text):
                self.assertTrue(kind == "console" or name)
                if name:
                    before = page[:page.index(text)].rsplit("\n\n", 2)[-2]
                    self.assertTrue(f"`{name}`" in before or "Put it into a file first" in before)
        self.assertEqual(page.count("\n```"), 2 * len(_BLOCK.findall(page)))

    def test_each_kind_is_written_checked_tried_and_debugged(self):
        kinds = re.split(r"^## (An? .*)$", _BLOCK.sub("", _page()), flags=re.MULTILINE)
        self.assertEqual(["A JSON plugin", "A native plugin", "A debug injection", "An init script"],
                         kinds[1::2])
        for text in kinds[2::2]:
            steps = re.findall(r"^### (.*)$", text, re.MULTILINE)
            self.assertEqual(["Write", "Check", "Try", "Debug"], steps[:4])
