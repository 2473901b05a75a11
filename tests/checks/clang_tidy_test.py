#!/usr/bin/python3
# SPDX-License-Identifier: Apache-2.0
"""What clangd says of a file is a finding, but for what the file itself says is none."""

import unittest

import clang_tidy

_TEXT = """int a;
// NOLINTBEGIN(one-check,another-check): why
int b;
// NOLINTEND(one-check,another-check)
int c;
"""


class ClangTidyTest(unittest.TestCase):
    def _finds(self, message):
        return list(clang_tidy.findings_in("util/a.h", _TEXT, message))

    def test_a_message_is_a_finding_without_its_time(self):
        self.assertEqual(["util/a.h: [one-check] Line 1: bad"],
                         self._finds("E[17:32:52.062] [one-check] Line 1: bad"))

    def test_what_is_switched_off_is_none_up_to_the_line_that_ends_it(self):
        for check in ("one-check", "another-check"):
            self.assertEqual([], self._finds(f"E[17:32:52.062] [{check}] Line 3: bad"))
            self.assertEqual(1, len(self._finds(f"E[17:32:52.062] [{check}] Line 5: bad")))

    def test_a_check_that_is_not_named_there_stays_on(self):
        self.assertEqual(1, len(self._finds("E[17:32:52.062] [third-check] Line 3: bad")))

    def test_what_is_no_message_of_a_check_is_told_all_the_same(self):
        self.assertEqual(["util/a.h: Failed to build AST"],
                         self._finds("E[17:32:52.062] Failed to build AST"))


if __name__ == "__main__":
    unittest.main()
