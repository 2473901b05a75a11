#!/usr/bin/python3
# SPDX-License-Identifier: Apache-2.0
"""Tests of the check that includes go down only."""

import unittest

from include_direction import findings_in, json_users, wrong_uses_of_json


class IncludeDirectionTest(unittest.TestCase):
    """One line of source each, and the finding it gives or does not give."""

    def _assert_fine(self, path, line, **kind):
        self.assertEqual([], list(findings_in(path, line, **kind)))

    def _assert_finding(self, path, line, finding, **kind):
        self.assertEqual([f"{path}:1: {finding}"], list(findings_in(path, line, **kind)))

    def test_an_include_of_a_lower_room_or_of_the_own_one_is_fine(self):
        for path, name in (("driver/a.cpp", "plugins/b.h"), ("driver/a.cpp", "platform/log.h"),
                           ("plugins/a.h", "graph/b.h"), ("plugins/a.h", "hostcli/b.h"),
                           ("graph/a.cpp", "util/b.h"), ("util/a.cpp", "platform/log.h"),
                           ("util/a.cpp", "util/b.h"), ("platform/linux/a.cpp", "util/b.h"),
                           ("platform/linux/a.cpp", "platform/linux/b.h"),
                           ("platform/other/a.cpp", "platform/other/b.h"),
                           ("platform/other/a.cpp", "platform/log.h"), ("platform/other/a.cpp", "util/b.h"),
                           ("platform/include/platform/a.h", "platform/b.h")):
            self._assert_fine(path, f'#include "{name}"\n')

    def test_an_include_of_a_higher_room_is_found(self):
        self._assert_finding("graph/a.cpp", '#include "plugins/b.h"',
                             "plugins/b.h goes from graph to plugins")
        self._assert_finding("util/a.h", '#include "driver/b.h"', "driver/b.h goes from util to driver")
        self._assert_finding("platform/include/platform/a.h", '#include "util/b.h"',
                             "util/b.h goes from platform to util")
        self._assert_finding("platform/linux/a.cpp", '#include "graph/b.h"',
                             "graph/b.h goes from platform/linux to graph")

    def test_graph_and_hostcli_do_not_see_each_other(self):
        self._assert_finding("graph/a.h", '#include "hostcli/b.h"', "hostcli/b.h goes from graph to hostcli")
        self._assert_finding("hostcli/a.h", '#include "graph/b.h"', "graph/b.h goes from hostcli to graph")

    def test_a_test_beside_a_source_is_bound_like_its_room(self):
        self._assert_finding("graph/a_test.cpp", '#include "plugins/b.h"',
                             "plugins/b.h goes from graph to plugins", is_test=True)

    def test_only_tests_include_what_is_for_tests(self):
        for name in ("tests/support/temp_dir.h", "gmock/gmock.h"):
            self._assert_fine("graph/a_test.cpp", f'#include "{name}"', is_test=True)
            self._assert_finding("graph/a.cpp", f'#include "{name}"', f"{name} is for tests only")

    def test_nobody_else_sees_the_inside_of_the_platform(self):
        for path in ("driver/a.cpp", "util/a.cpp", "tests/support/temp_dir.cpp", "tests/system/a.cpp"):
            self._assert_finding(path, '#include "platform/linux/b.h"',
                                 "platform/linux/b.h is seen by platform/linux only", is_test=True)
        self._assert_finding("platform/other/a.cpp", '#include "platform/linux/b.h"',
                             "platform/linux/b.h is seen by platform/linux only")
        self._assert_fine("tests/support/fake_platform.cpp", '#include "platform/linux/b.h"', is_test=True)

    def test_only_the_platform_includes_syslog(self):
        self._assert_fine("platform/linux/log.cpp", "#include <syslog.h>\n")
        self._assert_finding("util/a.cpp", "#include <syslog.h>\n",
                             "syslog.h is for what implements the platform only")

    def test_a_name_that_hides_the_room_is_found(self):
        self._assert_finding("graph/a.cpp", '#include "node.h"', "node.h names no room")
        self._assert_finding("graph/a.cpp", '#include "../plugins/b.h"', "../plugins/b.h names no room")
        self._assert_finding("graph/a.cpp", '#include "util/../plugins/b.h"',
                             "util/../plugins/b.h is not the header's name from the root of its room")
        self._assert_finding("graph/a.cpp", "#include <plugins/b.h>",
                             "plugins/b.h needs quotes: it is the project's own")

    def test_odd_spacing_hides_nothing_and_the_line_is_named(self):
        text = '// SPDX\n\n  #  include   "driver/b.h"\n#include"driver/c.h"\n'
        self.assertEqual(["graph/a.cpp:3: driver/b.h goes from graph to driver",
                          "graph/a.cpp:4: driver/c.h goes from graph to driver"],
                         list(findings_in("graph/a.cpp", text)))

    def test_users_of_the_json_library_are_listed(self):
        texts = {"plugins/a.cpp": "#include <boost/json.hpp>\n",
                 "plugins/b.cpp": "#include <boost/regex.hpp>\n",
                 "driver/c.cpp": "#include <boost/json/src.hpp>\n"}
        self.assertEqual(["plugins/a.cpp", "driver/c.cpp"], json_users(texts))

    def test_one_source_parses_json_and_one_writes_it(self):
        parser, writer = "plugins/json_plugin_file.cpp", "analyze/report_json.cpp"
        include = "#include <boost/json.hpp>\n"
        both = {parser: include + "json::parse(text)", writer: include + "json::serialize(value)"}
        self.assertEqual([], list(wrong_uses_of_json(both)))
        self.assertEqual([f"driver/a.cpp: one source parses JSON and one writes it: {parser} and {writer}"],
                         list(wrong_uses_of_json({**both, "driver/a.cpp": include})))
        self.assertEqual([f"{writer}: parses JSON, but is there to write it"],
                         list(wrong_uses_of_json({**both, writer: include + "json::parse(text)"})))
        self.assertEqual([f"{writer}: does not include the JSON library any more"],
                         list(wrong_uses_of_json({**both, writer: ""})))


if __name__ == "__main__":
    unittest.main()
