#!/usr/bin/python3
# SPDX-License-Identifier: Apache-2.0
"""The injector makes the call fail that it is told to, and no other, and tells what becomes of processes."""

import errno
import os
import signal
import subprocess
import sys
import tempfile
import unittest

_INJECTOR = os.path.realpath(sys.argv.pop(1))
_SHELL = os.path.realpath("/bin/sh")


class Injector(unittest.TestCase):
    def setUp(self):
        directory = tempfile.TemporaryDirectory()
        self.addCleanup(directory.cleanup)
        self.file = os.path.join(directory.name, "file")
        self.report = os.path.join(directory.name, "report")
        with open(self.file, "w", encoding="ascii") as file:
            file.write("content\n")

    def run_program(self, *argv, fault=None, record=False, own=()):
        """Returns (exit status, standard output, standard error, the report's lines as lists of fields)."""
        words = [_INJECTOR, "--report", self.report]
        words += ["--record"] if record else []
        words += ["--fault", *map(str, fault)] if fault else []
        for path in own:
            words += ["--own", path]
        done = subprocess.run([*words, "--", *argv], check=False, text=True, capture_output=True,
                              env={"LC_ALL": "C"}, timeout=60)
        with open(self.report, encoding="utf-8") as file:
            report = [line.split("\t") for line in file.read().splitlines()]
        return done.returncode, done.stdout, done.stderr, report

    def turn_of(self, call, subject, *argv):
        """Which of the calls of an undisturbed run is about this."""
        _, _, _, report = self.run_program(*argv, record=True)
        turns = [int(fields[3]) for fields in report
                 if fields[:3] == ["call", "main", call] and fields[-1] == subject]
        self.assertNotEqual([], turns)
        return turns[0]

    def test_without_a_fault_a_program_runs_as_ever(self):
        status, output, errors, report = self.run_program("/bin/cat", self.file)
        self.assertEqual((0, "content\n", ""), (status, output, errors))
        self.assertEqual([["other", "main", "/usr/bin/cat"][1:]], [fields[1:] for fields in report[:1]])
        self.assertEqual(["end", "main", "code", "0"], report[-1])

    def test_the_one_call_fails(self):
        for call, error in ("openat", errno.EMFILE), ("read", errno.EIO):
            turn = self.turn_of(call, self.file, "/bin/cat", self.file)
            status, output, errors, report = self.run_program("/bin/cat", self.file,
                                                              fault=("main", call, turn, error))
            self.assertEqual((1, ""), (status, output))
            self.assertEqual(f"/bin/cat: {self.file}: {os.strerror(error)}\n", errors)
            self.assertIn(["fault", "main", call, str(turn), self.file], report)

    def test_the_next_call_of_its_kind_succeeds(self):
        turn = self.turn_of("openat", self.file, "/bin/cat", self.file, self.file)
        status, output, _, _ = self.run_program("/bin/cat", self.file, self.file,
                                                fault=("main", "openat", turn, errno.EIO))
        self.assertEqual((1, "content\n"), (status, output))

    def test_a_call_that_the_program_does_not_make_does_not_come_to_pass(self):
        status, output, _, report = self.run_program("/bin/cat", self.file,
                                                     fault=("main", "openat", 1000, errno.EIO))
        self.assertEqual((0, "content\n"), (status, output))
        self.assertNotIn("fault", [fields[0] for fields in report])

    def test_a_descriptor_is_closed_even_when_that_fails(self):
        script = ("import os, sys\nfor _ in range(2):\n  number = os.open('/dev/null', os.O_RDONLY)\n"
                  "  try: os.close(number)\n  except OSError as error: print(error.errno)\n  print(number)\n")
        python = [sys.executable, "-IS", "-c", script]
        turn = self.turn_of("close", "/dev/null", *python)
        _, output, _, _ = self.run_program(*python, fault=("main", "close", turn, errno.ENOSPC))
        error, first, second = map(int, output.split())
        self.assertEqual((errno.ENOSPC, first), (error, second))

    def test_the_end_of_the_heap_stays_where_it_is(self):
        _, _, _, report = self.run_program("/bin/cat", self.file, record=True)
        turns = [fields[3] for fields in report if fields[:3] == ["call", "main", "brk"]]
        self.assertGreater(len(turns), 1)
        status, output, _, report = self.run_program("/bin/cat", self.file,
                                                     fault=("main", "brk", turns[-1], errno.ENOMEM))
        self.assertEqual((0, "content\n"), (status, output))
        self.assertIn(["fault", "main", "brk", turns[-1], ""], report)

    def test_children_are_named_by_their_order(self):
        script = "(exit 3); (exit 4; :)"
        status, _, _, report = self.run_program(_SHELL, "-c", script)
        self.assertEqual(4, status)
        self.assertEqual([["main/1", "code", "3"], ["main/2", "code", "4"], ["main", "code", "4"]],
                         [fields[1:] for fields in report if fields[0] == "end"])

    def test_a_child_that_becomes_another_program_is_let_go(self):
        _, output, _, report = self.run_program(_SHELL, "-c", f"/bin/cat {self.file}; :", record=True)
        self.assertEqual("content\n", output)
        self.assertIn(["other", "main/1", os.path.realpath("/bin/cat")], report)
        self.assertNotIn(["main/1", "read"], [fields[1:3] for fields in report])

    def test_a_child_that_becomes_one_of_the_own_programs_is_followed(self):
        cat = os.path.realpath("/bin/cat")
        _, output, _, report = self.run_program(_SHELL, "-c", f"{cat} {self.file}; :", record=True, own=[cat])
        self.assertEqual("content\n", output)
        self.assertIn(["main/1=cat", "read"], [fields[1:3] for fields in report])
        self.assertIn(["end", "main/1=cat", "code", "0"], report)

    def test_a_signal_that_ends_a_process_is_told(self):
        status, _, _, report = self.run_program(_SHELL, "-c", "kill -SEGV $$")
        self.assertEqual(128 + signal.SIGSEGV, status)
        self.assertIn(["end", "main", "signal", str(int(signal.SIGSEGV))], report)

    def test_a_child_that_is_not_waited_for_is_told(self):
        script = ("import os\nif os.fork() == 0: os._exit(0)\n"
                  "os.waitid(os.P_ALL, 0, os.WEXITED | os.WNOWAIT)\n")
        _, _, _, report = self.run_program(sys.executable, "-IS", "-c", script)
        self.assertIn(["zombies", "main", "1"], report)

    def test_a_process_that_runs_on_is_told_and_left_alone(self):
        script = ("import os, signal\npipe = os.pipe()\n"
                  "if os.fork() == 0:\n  os.close(1); os.close(2); signal.pause()\n")
        _, _, _, report = self.run_program(sys.executable, "-IS", "-c", script)
        left = [fields for fields in report if fields[0] == "left"]
        self.assertEqual([["left", "main/1"]], [fields[:2] for fields in left])
        os.kill(int(left[0][2]), signal.SIGKILL)        # fails where it is gone


if __name__ == "__main__":
    unittest.main()
