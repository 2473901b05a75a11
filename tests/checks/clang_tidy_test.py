#!/usr/bin/python3
# SPDX-License-Identifier: Apache-2.0
"""What clangd says of a file is a finding, but for what the file itself says is none. A file that has passed
is read again when anything that it includes has changed."""

import unittest

import clang_tidy
import compiled
import project

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

    def test_a_source_depends_on_what_it_includes_and_on_what_that_includes(self):
        arguments = [f"-I{project.ROOT}/platform/include", f"-I{project.ROOT}"]
        _, kept, texts = compiled.read("graph/node.cpp", arguments)
        self.assertEqual(arguments, kept)
        for path in ("graph/node.cpp", "graph/node.h", "util/process_lock.h",
                     "platform/include/platform/log.h"):
            self.assertEqual((project.ROOT / path).read_text(encoding="utf-8"),
                             dict(texts)[project.ROOT / path])
        self.assertNotIn(project.ROOT / "graph/barrier.h", dict(texts))


if __name__ == "__main__":
    unittest.main()
