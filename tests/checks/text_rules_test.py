#!/usr/bin/python3
# SPDX-License-Identifier: Apache-2.0
"""Tests of the check of the text files."""

import unittest

from text_rules import findings_in


class TextRulesTest(unittest.TestCase):
    """One file each, and what is found in it."""

    def _assert_findings(self, data, *findings, is_code=True):
        self.assertEqual([f"file{finding}" for finding in findings], list(findings_in("file", data, is_code)))

    def test_a_clean_file_and_an_empty_one_are_fine(self):
        self._assert_findings("one\n\n    zwölf\n".encode())
        self._assert_findings(b"")

    def test_the_end_of_the_file_is_one_newline(self):
        self._assert_findings(b"one", ": no newline at the end")
        self._assert_findings(b"one\n\n", ": empty lines at the end")

    def test_each_bad_line_is_named(self):
        self._assert_findings(b"one \nkey:\tvalue\ntwo\r\n", ":1: blanks at the end of the line", ":2: tab",
                              ":3: carriage return")

    def test_a_recipe_of_a_makefile_begins_with_a_tab(self):
        for path in "Makefile", "examples/Makefile", "debian/rules":
            self.assertEqual([], list(findings_in(path, b"all:\n\tcc a.c\n", is_code=False)))
            self.assertEqual([f"{path}:1: tab"], list(findings_in(path, b"a\tb\n", is_code=False)))
        self.assertEqual(["rules:2: tab"], list(findings_in("rules", b"all:\n\tcc a.c\n", is_code=False)))

    def test_code_has_110_columns_and_they_are_characters(self):
        self._assert_findings(("ä" * 110 + "\n").encode())
        self._assert_findings(b"x" * 111 + b"\n", ":1: 111 columns, 110 are allowed")
        self._assert_findings(b"x" * 111 + b"\n", is_code=False)

    def test_other_encodings_are_found(self):
        self._assert_findings(b"gr\xfcn\n", ": not UTF-8 at byte 2")


if __name__ == "__main__":
    unittest.main()
