# SPDX-License-Identifier: Apache-2.0
"""Takes the host's output apart into lines of the log, reports for the demo, and everything else."""

import codecs
import re

MARK = "\x1e"       # starts the lines that boot-on-host means for the demo

# "d" stands for a digit; every line of the log starts so.
_STAMP = "dddd-dd-ddTdd:dd:dd.dddZ "
_LOG_LINE = re.compile(r"\d{4}-\d\d-\d\dT(\d\d:\d\d:\d\d\.\d{3})Z (\w+)\[(\d+)\]: (.*)")
_TERMINAL_SEQUENCE = re.compile(r"\033\[[?\d;]*[A-Za-z]")


class LogLine:
    """A line of the program's log: its clock, the program, its process, and the message."""

    def __init__(self, found):
        self.clock, self.name, self.process, self.message = found.groups()


def _may_become_log_line(text):
    return all(character.isdigit() if wanted == "d" else character == wanted
               for wanted, character in zip(_STAMP, text))


class Splitter:
    """Calls back with each piece of the output, in its order.

    What can be a line of the log or a report waits for the end of its line. Other text is handed on at once:
    it may be a prompt, which has none.
    """

    def __init__(self, on_log_line, on_report, on_text, on_hidden_log_line):
        """
        :param on_hidden_log_line: for one that came in pieces behind other text, and was handed on as text
        """
        self._on_log_line = on_log_line
        self._on_report = on_report
        self._on_text = on_text
        self._on_hidden_log_line = on_hidden_log_line
        self._decode = codecs.getincrementaldecoder("utf-8")("replace").decode
        self._line = ""         # the current one, from its start
        self._handed_on = 0     # how much of it has been handed on as text

    def feed(self, data):
        """Takes the next bytes."""
        *ends, rest = self._decode(data).split("\n")
        for text in ends:
            self._line += text
            self._end_line("\n")
        self._line += rest
        held = self._line.startswith(MARK) or _may_become_log_line(self._line)
        if self._line and (self._handed_on > 0 or not held):
            self._hand_on("")

    def end(self):
        """There is nothing more to come."""
        if self._line:
            self._end_line("")

    def _end_line(self, end):
        line = self._line.rstrip("\r")
        if self._handed_on == 0 and line.startswith(MARK):
            self._on_report(line[len(MARK):])
        elif self._handed_on == 0 and _LOG_LINE.fullmatch(line):
            self._on_log_line(LogLine(_LOG_LINE.fullmatch(line)))
        else:
            self._end_line_of_text(line, end)
        self._line, self._handed_on = "", 0

    def _end_line_of_text(self, line, end):
        """A message may stand behind a prompt that nobody has ended, or behind what moves the cursor."""
        found = _LOG_LINE.search(line)
        before = line[:found.start()] if found else ""
        is_visible = _TERMINAL_SEQUENCE.sub("", before).strip() != ""
        if found and found.start() >= self._handed_on and (self._handed_on > 0 or not is_visible):
            self._on_text(before[self._handed_on:] + ("\n" if is_visible else ""))
            self._on_log_line(LogLine(found))
            return
        hidden = found if self._handed_on > 0 else None     # a part of it has been handed on already
        self._hand_on(end)
        if hidden is not None:
            self._on_hidden_log_line(LogLine(hidden))

    def _hand_on(self, end):
        self._on_text(self._line[self._handed_on:] + end)
        self._handed_on = len(self._line)
