#!/usr/bin/python3
# SPDX-License-Identifier: Apache-2.0
"""Tests of the check that the page of messages has every message and no other."""

import unittest

from message_page import missing, never_said, rows_of, wrong_kinds

_SOURCE = """
void F() {
    Log_Level(2, "unable to open %s: %s.\\n", path, text);
    Log_Level(3, "plugin `%s' is \\"bad\\"\\n", name);
    KernelLog("begins %s", name);
    throw Exception("no such " + what);
}
"""
_PAGE = """
Text with `unable to shut <path>` is no message.

| Message | Kind | What it means | What to do |
|---|---|---|---|
| `unable to open <path>: no such <thing>.` | error | x | `y` |
| ``plugin `<name>' is "bad"`` | warning | x | y |
| `begins <name>`, `begins <name> again` | kernel | x | y |
"""


class MessagePageTest(unittest.TestCase):
    """What a page has, lacks, and has too much."""

    def _missing(self, page, exempt=()):
        return list(missing(list(rows_of(page)), {"a.cpp": _SOURCE}, set(exempt)))

    def _never_said(self, page):
        return list(never_said(list(rows_of(page)), {"a.cpp": _SOURCE}))

    def _wrong_kinds(self, page):
        return list(wrong_kinds(list(rows_of(page)), {"a.cpp": _SOURCE}))

    def test_messages_are_the_code_spans_at_the_start_of_a_line_of_a_table(self):
        self.assertEqual([(6, "unable to open <path>: no such <thing>.", "error"),
                          (7, "plugin `<name>' is \"bad\"", "warning"),
                          (8, "begins <name>", "kernel"), (8, "begins <name> again", "kernel")],
                         [(row.line, row.shown, row.kind) for row in rows_of(_PAGE)])

    def test_so_are_lines_with_nothing_else(self):
        self.assertEqual(["a b", "c"], [row.shown for row in rows_of("`a b`, `c`,\nand `d`\n")][:2])
        self.assertEqual([], list(rows_of("see `d`\n")))

    def test_a_page_with_every_text_lacks_nothing_and_one_text_may_stand_in_another(self):
        self.assertEqual([], self._missing(_PAGE))

    def test_a_text_that_no_row_has_is_named(self):
        self.assertEqual(['a.cpp:4: "plugin `...\' is \\"bad\\"" is not in docs/messages.md'],
                         self._missing(_PAGE.replace("bad", "worse")))
        self.assertEqual(['a.cpp:6: "no such ..." is not in docs/messages.md'],
                         self._missing(_PAGE.replace("no such ", "not any ")))

    def test_an_exemption_that_is_not_needed_is_named(self):
        self.assertEqual(['"gone" needs no exemption from docs/messages.md'], self._missing(_PAGE, ["gone"]))
        self.assertEqual([], self._missing(_PAGE.replace("begins ", "starts "), ["begins ..."]))

    def test_a_row_that_nothing_says_is_named(self):
        self.assertEqual([], [line for line in self._never_said(_PAGE) if "again" not in line])
        self.assertEqual(["docs/messages.md:6: nothing says `unable to open <path>: never <thing>.`"],
                         [line for line in self._never_said(_PAGE.replace("no such", "never"))
                          if "again" not in line])

    def test_what_stands_where_a_text_is_open_must_be_a_text_too(self):
        self.assertEqual(["docs/messages.md:8: nothing says `begins <name> again`"], self._never_said(_PAGE))

    def test_another_kind_than_that_of_the_call_is_named(self):
        self.assertEqual([], self._wrong_kinds(_PAGE))
        self.assertEqual(["docs/messages.md:6: a.cpp says it as kind error, not notice"],
                         self._wrong_kinds(_PAGE.replace("| error", "| notice")))
        self.assertEqual(["docs/messages.md:7: a.cpp says it as kind warning, not error"],
                         self._wrong_kinds(_PAGE.replace("| warning", "| error")))
        self.assertEqual(["docs/messages.md:8: a.cpp says it as kind kernel, not screen"] * 2,
                         self._wrong_kinds(_PAGE.replace("| kernel", "| screen")))


if __name__ == "__main__":
    unittest.main()
