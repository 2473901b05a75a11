#!/usr/bin/python3
# SPDX-License-Identifier: Apache-2.0
"""Tests of the check that the manual has every message."""

import unittest

from manual_page import lines_of_page, messages_missing

_FAILS = 'void F() { Log_Level(2, "unable to open %s: %s.\\n", path, text); }\n'
_MISSING = 'a.cpp:1: "unable to open ...: ...." is not in the manual'


def _missing(page, source=_FAILS, exempt=()):
    return list(messages_missing(page, {"a.cpp": source}, frozenset(exempt)))


class MessagesTest(unittest.TestCase):
    """What counts as a message that the page has."""

    def test_a_message_that_the_page_lacks_is_named_with_its_line(self):
        self.assertEqual([_MISSING], _missing(".TP\nunable to\n"))
        self.assertEqual(["a.cpp:2: \"lost\" is not in the manual"],
                         _missing("", '\nvoid F() { throw Exception("lost"); }'))

    def test_one_in_a_line_of_the_page_is_there_whatever_its_fonts(self):
        self.assertEqual([], _missing(".BI \"unable to open \" file \": \" reason .\n"))
        self.assertEqual([], _missing("it says \\fBunable to open \\fIfile\\fB: \\fIreason\\fB.\n"))

    def test_one_that_differs_in_a_letter_or_a_blank_is_not(self):
        self.assertEqual([_MISSING], _missing(".BI \"unable to Open \" file \": \" reason .\n"))
        self.assertEqual([_MISSING], _missing(".BI \"unable to open\" file \": \" reason .\n"))

    def test_words_of_several_lines_are_no_message(self):
        self.assertEqual([_MISSING], _missing("unable to open\nx: y.\n"))

    def test_what_goes_on_behind_the_message_is_another_one(self):
        self.assertEqual(["a.cpp:1: \"lost\" is not in the manual"],
                         _missing(".B lost and found\n", 'void F() { throw Exception("lost"); }'))

    def test_comments_of_the_page_and_single_words_of_the_source_do_not_count(self):
        self.assertEqual([_MISSING], _missing(".\\\" unable to open x: y.\n"))
        self.assertEqual([], _missing("", 'const char* key = "word";'))

    def test_an_exemption_holds_for_a_text_as_it_is_reported(self):
        self.assertEqual([], _missing("", exempt=["unable to open ...: ...."]))

    def test_an_exemption_that_is_not_needed_is_named(self):
        self.assertEqual(['"gone" needs no exemption from the manual'],
                         _missing("unable to open x: y.\n", exempt=["gone"]))
        self.assertEqual(['"unable to open ...: ...." needs no exemption from the manual'],
                         _missing("unable to open x: y.\n", exempt=["unable to open ...: ...."]))


class LinesTest(unittest.TestCase):
    """How lines of a page are read."""

    def test_arguments_of_a_macro_with_two_fonts_stand_side_by_side_others_apart(self):
        self.assertEqual(["a b: c", "a b:  c", "x y"],
                         lines_of_page('.BI "a b: " c\n.B "a b: " c\n.I x y\n'))

    def test_escapes_are_the_characters_that_they_stand_for(self):
        self.assertEqual(["a - `b' \\ \"c\""], lines_of_page('.BI "a \\- \\(gab\' " "\\e" " ""c"""'))

    def test_a_line_may_go_on_in_the_next(self):
        self.assertEqual(["a bc"], lines_of_page(".B a \\\nbc"))


if __name__ == "__main__":
    unittest.main()
