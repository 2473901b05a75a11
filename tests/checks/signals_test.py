#!/usr/bin/python3
# SPDX-License-Identifier: Apache-2.0
"""The check of signals finds each way to change one, and nothing else."""

import unittest

import signals


class SignalsTest(unittest.TestCase):
    def _finds(self, text, path="driver/driver.cpp"):
        return list(signals.findings_in(path, text))

    def test_each_way_to_change_a_signal_is_found(self):
        for call in ("::signal(SIGINT, SIG_IGN);", "std::signal(SIGINT, Handle);",
                     "::sigaction(SIGINT, &action, nullptr);",
                     "if (sigaction(SIGPIPE, &ignore, &old) != 0) {"):
            self.assertEqual(["driver/driver.cpp:2: changes a signal; that is for ChangeSignal()"],
                             self._finds(f"void f() {{\n{call}\n}}\n"), call)

    def test_a_look_and_a_way_back_to_the_default_are_no_change(self):
        for call in ("::signal(SIGCHLD, SIG_DFL);", "::sigaction(SIGINT, nullptr, &now);",
                     "if (::sigaction(number, nullptr, &action) == 0 && action.sa_handler == SIG_DFL) {",
                     "struct sigaction action {};", "ChangeSignal(SIGINT, ignore);", "// signal(SIGINT, x);",
                     "::raise(signal);", "ExitStatus{.code = {}, .signal = WTERMSIG(raw)};"):
            self.assertEqual([], self._finds(call + "\n"), call)

    def test_the_door_itself_may(self):
        self.assertEqual([], self._finds("::sigaction(number, &action, before);\n", "util/signals.cpp"))


if __name__ == "__main__":
    unittest.main()
