# SPDX-License-Identifier: Apache-2.0
"""Takes the host's output apart into lines of the log, reports for the demo, and everything else."""

import codecs
import re

MARK = "\x1e"       # starts the lines that boot-on-host means for the demo

# "d" stands for a digit; every line of the log starts so.
_STAMP = "dddd-dd-ddTdd:dd:dd.dddZ "
_LOG_LINE = re.compile(r"\d{4}-\d\d-\d\dT(\d\d:\d\d:\d\d\.\d{3})Z (\w+)\[(\d+)\]: (.*)")


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
        :param on_hidden_log_line: for one that came behind other text, which has been handed on as text
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
        found = _LOG_LINE.fullmatch(line)
        if self._handed_on > 0:
            self._hand_on(end)
            hidden = _LOG_LINE.search(line)
            if hidden is not None:
                self._on_hidden_log_line(LogLine(hidden))
        elif line.startswith(MARK):
            self._on_report(line[len(MARK):])
        elif found is not None:
            self._on_log_line(LogLine(found))
        else:
            self._hand_on(end)
        self._line, self._handed_on = "", 0

    def _hand_on(self, end):
        self._on_text(self._line[self._handed_on:] + end)
        self._handed_on = len(self._line)
