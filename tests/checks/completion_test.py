#!/usr/bin/python3
# SPDX-License-Identifier: Apache-2.0
"""Tests of the check that bash completes what there is."""

import unittest

from completion import findings_in

_SCRIPT = """
_bootweave_options=(
    --init --plugin=files
    '--daemon[=wait]'
)
_bootweave_analyze_options=(--json -o=files --output=files)
_bootweave_analyze_commands=(time=none diff=files)
_bootweave_values() {
    case $1 in
    none | text) ;;
    wait) offer wait ;;
    files)
        offer
        ;;
    esac
}
"""
_DRIVER = 'option{"init", no_argument, nullptr, 1}, option{"plugin", required_argument, nullptr, 2},\n' \
          'option{"daemon", optional_argument, nullptr, 3}, option{nullptr, 0, nullptr, 0},'
_ANALYZE = "    kOutput = 'o',\n" \
           'option{"json", no_argument, nullptr, 1},\n' \
           'option{"output", required_argument, nullptr, kOutput},\n' \
           'constexpr std::array<X, 2> kCommands{{{"time", X::kTime},\n     {"diff", X::kDiff}}};\n'
_PLACE = "packaging/bash-completion.sh: "


class CompletionCheckTest(unittest.TestCase):
    """Options, their values, commands and kinds."""

    def _find(self, script=_SCRIPT, driver=_DRIVER, analyze=_ANALYZE):
        return list(findings_in(script, {"driver/options.cpp": driver, "analyze/options.cpp": analyze}))

    def test_equal_tables_are_good(self):
        self.assertEqual([], self._find())

    def test_an_option_of_one_side_only_is_named(self):
        self.assertEqual([_PLACE + "option of driver/options.cpp --init is missing",
                          _PLACE + "there is no option of driver/options.cpp --begin"],
                         self._find(_SCRIPT.replace("--init", "--begin")))

    def test_the_letter_of_an_option_is_one_more(self):
        self.assertEqual([_PLACE + "option of analyze/options.cpp -o= is missing"],
                         self._find(_SCRIPT.replace("-o=files ", "")))

    def test_an_option_with_another_value_is_another_one(self):
        self.assertEqual([_PLACE + "option of driver/options.cpp --daemon= is missing",
                          _PLACE + "there is no option of driver/options.cpp --daemon[=]"],
                         self._find(driver=_DRIVER.replace("optional", "required")))

    def test_a_new_command_is_named(self):
        self.assertEqual([_PLACE + "command of analyze/options.cpp plot is missing"],
                         self._find(analyze=_ANALYZE.replace("kTime},", 'kTime}, {"plot", X::kPlot},')))

    def test_a_kind_that_nothing_is_offered_for_is_named(self):
        self.assertEqual([_PLACE + "diff=file: there is no kind file"],
                         self._find(_SCRIPT.replace("diff=files", "diff=file")))


if __name__ == "__main__":
    unittest.main()
