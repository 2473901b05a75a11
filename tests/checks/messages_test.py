#!/usr/bin/python3
# SPDX-License-Identifier: Apache-2.0
"""Tests of the check that every text of the product is known to a test."""

import unittest

from messages import findings_in

_MESSAGE = 'void F() { Log_Level(2, "unable to open %s: %s.\\n", path, text); }\n'


class _MessagesTest(unittest.TestCase):
    def _findings(self, product, tests):
        return list(findings_in({"util/a.cpp": product}, tests))

    def _assert_known(self, product, cpp="", python=""):
        tests = {"util/a_test.cpp": cpp, "tests/system/a_test.py": python}
        self.assertEqual([], self._findings(product, tests))

    def _assert_missing(self, product, *shown, cpp="", python=""):
        found = self._findings(product, {"util/a_test.cpp": cpp, "tests/system/a_test.py": python})
        self.assertEqual([f"util/a.cpp:1: {text}" for text in shown], found)

    def _assert_message_known(self, cpp="", python=""):
        self._assert_known(_MESSAGE, cpp, python)

    def _assert_message_missing(self, cpp="", python=""):
        self._assert_missing(_MESSAGE, '"unable to open ...: ...." is asserted by no test', cpp=cpp,
                             python=python)


class ProductTest(_MessagesTest):
    """What of the product is looked for, and how it is compared."""

    def test_a_message_that_no_test_asserts_is_named_with_its_line(self):
        self.assertEqual(['util/a.cpp:3: "lost one" is asserted by no test'],
                         self._findings('// x\n\nvoid F() { Warning("lost one\\n"); }\n', {}))

    def test_conversions_may_be_anything_but_the_rest_is_exact(self):
        self._assert_message_known('EXPECT_EQ("unable to open /a b: No such file.\\n", x);')
        self._assert_message_known('EXPECT_EQ("unable to open " + path + ": gone.", x);')
        self._assert_message_missing('EXPECT_EQ("unable to open /a: gone", x);')
        self._assert_message_missing('EXPECT_EQ("unable to  open /a: gone.", x);')
        self._assert_message_missing('EXPECT_EQ("Unable to open /a: gone.", x);')

    def test_a_sum_is_one_text_with_gaps(self):
        product = 'void F() { throw Exception("cannot rename \'" + from + "\' to \'" + To(1) + "\'"); }'
        self._assert_known(product, 'EXPECT_EQ("cannot rename \'a\' to \'b\'", x);')
        self._assert_missing(product, '"cannot rename \'...\' to \'...\'" is asserted by no test',
                             cpp='EXPECT_EQ("cannot rename \'", x); EXPECT_EQ("\' to \'", x);')

    def test_what_a_stream_is_given_is_one_text_with_gaps(self):
        self._assert_known('void F() { out << "seed is " << seed << "\\n"; }',
                           'EXPECT_EQ("seed is 7\\n", x);')

    def test_literals_side_by_side_are_one_text_on_both_sides(self):
        self._assert_known('void F() { Warning("one "\n   "two"); }', 'EXPECT_EQ("on" /* */ "e two", x);')

    def test_a_message_that_is_the_start_of_another_is_not_known_by_that(self):
        self._assert_missing('void F() { Log_Level(3, "failed to start\\n"); }',
                             '"failed to start" is asserted by no test',
                             cpp='EXPECT_EQ("failed to start because of rain\\n", x);')
        self._assert_missing('void F() { Warning("able to start"); }',
                             '"able to start" is asserted by no test', cpp='EXPECT_EQ("unable to start", x);')

    def test_one_word_that_is_said_or_thrown_is_a_message(self):
        for product in 'Warning("gone");', 'throw Exception("gone");', 'throw Mine("gone");':
            self._assert_missing(product, '"gone" is asserted by no test', cpp='auto x = "gone";')

    def test_other_single_words_need_to_stand_in_a_test_as_words(self):
        product = 'const char* kKey = "init";'
        self._assert_known(product, 'Run("--init");')
        self._assert_known(product, 'auto x = "a init=b";')
        self._assert_missing(product, '"init" stands in no test', cpp='Run("--init-now reinit pre-init");')

    def test_what_has_no_letters_is_no_text(self):
        self._assert_known('void F() { out << "\\033[2K" << ", "; Log_Level(2, "%s: %d\\n", a, b); }')
        self._assert_known("char c = 'x';")

    def test_comments_includes_and_texts_for_the_compiler_are_none_either(self):
        self._assert_known('#include "some file.h"\n// "a b"\n/* "c d" */ static_assert(x, "e f");\n'
                           'extern "C" { [[deprecated("use that")]] int x(); }')

    def test_raw_and_escaped_literals_are_what_they_stand_for(self):
        self._assert_known('void F() { Warning(R"x(say "a\\b")x"); }', r'EXPECT_EQ("say \"a\\b\"", x);')
        self._assert_known(r'void F() { Warning("tab\there \x41\x2e"); }', 'EXPECT_EQ("tab\there A.", x);')

    def test_a_macro_may_hold_a_text(self):
        self._assert_missing('#define SAY(x) Warning("said so"); \\\n  F(x)\n',
                             '"said so" is asserted by no test')


class CppTest(_MessagesTest):
    """When a C++ test asserts a text."""

    _GOOD = '"unable to open /a: gone."'

    def _known(self, cpp):
        self._assert_message_known(cpp.replace("$", self._GOOD))

    def _missing(self, cpp):
        self._assert_message_missing(cpp.replace("$", self._GOOD))

    def test_in_an_assertion_it_counts_and_without_that_it_does_not(self):
        self._known("TEST(A, B) { EXPECT_EQ($, F()); }")
        self._missing("TEST(A, B) { F(); }")
        self._known("TEST(A, B) { ASSERT_THAT(log(), ElementsAre(LogMessage{2, $})); }")
        self._missing("TEST(A, B) { log($); }")

    def test_comments_traces_and_names_do_not_count(self):
        self._missing("// EXPECT_EQ($, x)\n/* EXPECT_EQ($, x) */ TEST(A, B) { EXPECT_EQ(1, x); }")
        self._missing("TEST(A, B) { SCOPED_TRACE($); EXPECT_EQ(1, x) << $; }")
        self._missing("TEST(A, unable_to_open) {}")

    def test_what_must_not_appear_does_not_count(self):
        self._missing("TEST(A, B) { EXPECT_NE($, x); EXPECT_STRNE($, x); }")
        self._missing("TEST(A, B) { EXPECT_THAT(x, Not(HasSubstr($))); }")

    def test_a_variable_counts_when_an_assertion_mentions_it(self):
        self._known("TEST(A, B) { const std::string expected = $; EXPECT_EQ(expected, F()); }")
        self._missing("TEST(A, B) { const std::string expected = $; EXPECT_EQ(1, F()); }")
        self._known("const char* kText = $;\nTEST(A, B) { EXPECT_EQ(kText, F()); }")
        self._missing("const char* kText = $;\nTEST(A, B) { Use(kText); }")
        self._known("const LogMessage kText{2, $};\nTEST(A, B) { EXPECT_EQ(kText, F()); }")

    def test_a_variable_of_another_function_is_another_variable(self):
        self._missing("TEST(A, B) { std::string text = $; Use(text); } TEST(A, C) { EXPECT_EQ(text, 1); }")

    def test_a_table_counts_when_its_rows_are_compared(self):
        table = "TEST(A, B) { for (const auto& [in, out] : Table{{1, $}}) { EXPECT_EQ(%s, F()); } }"
        self._known(table % "out")
        self._missing(table % "3")
        self._known("const Row kRows[] = {{1, $}};\n"
                    "TEST(A, B) { for (const Row& row : kRows) { EXPECT_EQ(row.out, F(row.in)); } }")

    def test_what_a_called_function_returns_counts(self):
        self._known("std::string Text(int x) { return $; }\nTEST(A, B) { EXPECT_EQ(Text(1), F()); }")
        self._missing("std::string Text(int x) { return $; }\nTEST(A, B) { Use(Text(1)); }")

    def test_what_a_function_asserts_counts_where_it_is_called(self):
        helper = "void Expect(int in, const std::string& out) { EXPECT_EQ(%s, F()); }\n"
        self._known(helper % "out" + "TEST(A, B) { Expect(1, $); }")
        self._missing(helper % "out" + "TEST(A, B) { Expect($, 1); }")
        self._missing(helper % "3" + "TEST(A, B) { Expect(1, $); }")
        self._known("TEST(A, B) { const auto expect = [&](const char* out) { EXPECT_EQ(out, F()); };\n"
                    "expect($); }")


class PythonTest(_MessagesTest):
    """When a system test asserts a text."""

    _GOOD = '"unable to open /a: gone."'

    def _known(self, python):
        self._assert_message_known(python=python.replace("$", self._GOOD))

    def _missing(self, python):
        self._assert_message_missing(python=python.replace("$", self._GOOD))

    def test_in_an_assertion_it_counts_and_without_that_it_does_not(self):
        self._known("def test(self):\n  self.assertEqual([(2, $)], f())")
        self._missing("def test(self):\n  f($)")
        self._known("self.assertIn($, f())")
        self._known('self.assertEqual(f"unable to open {path}: {why}.", f())')
        self._known('self.assertEqual("unable to open " + path + ": gone.", f())')

    def test_comments_documentation_and_reports_do_not_count(self):
        self._missing('"""' + self._GOOD.strip('"') + '"""\n# $\nself.assertEqual(1, 2, $)')
        self._missing("def test(self):\n  $\n  self.assertEqual(1, 2, msg=$)")

    def test_what_must_not_appear_and_patterns_do_not_count(self):
        self._missing("self.assertNotIn($, f())\nself.assertNotEqual($, x)\nself.assertRegex(x, $)")

    def test_a_variable_counts_when_an_assertion_mentions_it(self):
        self._known("TEXT = $\ndef test(self):\n  self.assertEqual(TEXT, f())")
        self._missing("TEXT = $\ndef test(self):\n  self.assertEqual(1, f())")
        self._known("def test(self):\n  for a, b in [(1, $)]:\n    self.assertEqual(b, f(a))")
        self._known("def test(self):\n  found = []\n  found += [$]\n  self.assertEqual(found, f())")

    def test_functions_hand_texts_on_as_in_cpp(self):
        self._known("def text(x):\n  return $\ndef test(self):\n  self.assertEqual(text(1), f())")
        self._missing("def text(x):\n  return $\ndef test(self):\n  use(text(1))")
        helper = "def _check(self, given, *wanted, last=0):\n  self.assertEqual((wanted, last), f(given))\n"
        self._known(helper + "def test(self):\n  self._check(1, 2, $)")
        self._known(helper + "def test(self):\n  self._check(1, last=$)")
        self._missing("def _check(self, given, wanted):\n  f(given)\n  self.assertEqual(wanted, 1)\n"
                      "def test(self):\n  self._check($, 1)")

    def test_constants_stand_for_their_texts(self):
        self._known('WORD = "open"\nself.assertEqual(f"unable to {WORD} /a: gone.", f())')
        self._known('WORD = "open"\nself.assertEqual("unable to " + WORD + " /a: gone.", f())')


if __name__ == "__main__":
    unittest.main()
