#!/usr/bin/python3
# SPDX-License-Identifier: Apache-2.0
"""Tests of the check that headers are documented."""

import unittest

from header_comments import findings_in

_TOP = "// SPDX-License-Identifier: Apache-2.0\n#pragma once\n\nnamespace bootweave {\n\n"


class HeaderCommentsTest(unittest.TestCase):
    """One header each, and what is found in it."""

    def _assert_findings(self, body, *findings):
        self.assertEqual([f"a.h:{finding}" for finding in findings],
                         list(findings_in("a.h", _TOP + body + "\n}  // namespace bootweave\n")))

    def test_documented_declarations_are_fine(self):
        self._assert_findings("/// One.\nclass One {\n  public:\n    int x();\n};\n\n"
                              "/// Two.\n/// More.\n[[nodiscard]] int Two(int first,\n"
                              "                      int second);\n\n"
                              "/// Three.\ntemplate <typename T>\nT Three(T value) {\n    return value;\n}\n")

    def test_a_class_or_function_without_a_comment_is_found(self):
        self._assert_findings("/// One.\nclass One {};\nclass Two {\n};\n\nint Three();\n",
                              "8: no doc comment above: class Two {",
                              "11: no doc comment above: int Three();")

    def test_a_comment_that_stands_apart_counts_for_nothing(self):
        self._assert_findings("/// About the file.\n\nint One();\n", "8: no doc comment above: int One();")

    def test_an_ordinary_comment_is_no_doc_comment(self):
        self._assert_findings("/// One.\nint One();\n// Two.\nint Two();\n",
                              "9: no doc comment above: int Two();")

    def test_what_speaks_for_itself_needs_none(self):
        self._assert_findings("class Later;\nusing Flags = int;\ninline constexpr int kTen = 10;\n"
                              "/// One.\nint One();\n")

    def test_a_header_without_any_or_without_pragma_is_found(self):
        self.assertEqual(["a.h: no #pragma once behind the licence", "a.h: no doc comment"],
                         list(findings_in("a.h", "// SPDX\n\n#define A 1\n")))


if __name__ == "__main__":
    unittest.main()
