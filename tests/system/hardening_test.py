# SPDX-License-Identifier: Apache-2.0
"""What the installed files are like: who trusts them before the log-in looks at them here."""

import os
import re
import stat
import subprocess

from harness import PRESET_VARIABLE, STAGE_VARIABLE, SystemTest

_PROGRAMS = ("usr/sbin/bootweave", "usr/lib/corvane/bootweave/nativeExecutor",
             "usr/lib/corvane/bootweave/nativeReader")


def _readelf(path, *options):
    """What is said of a file, names whole."""
    command = ["readelf", "-W", *options, path]
    return subprocess.run(command, check=True, capture_output=True, text=True).stdout


def _functions(path):
    """The names of the functions that it calls in libraries."""
    return re.findall(r"\bUND (\w+)@", _readelf(path, "--dyn-syms"))


class ProgramTest(SystemTest):
    def setUp(self):
        super().setUp()
        self._stage = os.environ[STAGE_VARIABLE]

    def _each(self):
        for program in _PROGRAMS:
            with self.subTest(program):
                yield os.path.join(self._stage, program)

    def _need_packaged(self):
        if os.environ.get(PRESET_VARIABLE, "release") != "release":
            self.skipTest("only the release preset is built as a package is")

    def test_it_can_be_loaded_anywhere(self):
        for path in self._each():
            self.assertRegex(_readelf(path, "-h"), r"Type: +DYN \(Position-Independent Executable file\)")

    def test_its_tables_cannot_be_written_once_it_runs(self):
        for path in self._each():
            self.assertRegex(_readelf(path, "-l"), r"\bGNU_RELRO\b")
            self.assertRegex(_readelf(path, "-d"), r"FLAGS_1\).*\bNOW\b")

    def test_none_of_its_memory_can_be_both_written_and_executed(self):
        for path in self._each():
            segments = re.findall(r"^ +(LOAD|GNU_STACK) .* ([R ][W ][E ]) +0x", _readelf(path, "-l"), re.M)
            self.assertIn("GNU_STACK", [name for name, _ in segments])
            self.assertEqual([], [flags for _, flags in segments if "W" in flags and "E" in flags])

    def test_it_notices_an_overrun_stack(self):
        for path in self._each():
            self.assertIn("__stack_chk_fail", _functions(path))

    def test_it_calls_the_checked_functions(self):
        self._need_packaged()
        names = _functions(os.path.join(self._stage, _PROGRAMS[0]))
        self.assertIn("__vsnprintf_chk", names)
        self.assertNotIn("vasprintf", names)

    def test_it_needs_the_c_library_and_its_loader_alone_and_no_path_to_them(self):
        self._need_packaged()
        for path in self._each():
            dynamic = _readelf(path, "-d")
            needed = re.findall(r"\(NEEDED\).*\[(.*)\]", dynamic)
            self.assertIn("libc.so.6", needed)
            others = [name for name in needed if not re.fullmatch(r"libc\.so\.6|ld-linux.*", name)]
            self.assertEqual([], others)
            self.assertNotRegex(dynamic, r"\((RPATH|RUNPATH)\)")


class FileTest(SystemTest):
    def test_what_others_put_into_the_program_s_directories_has_them_there_at_once(self):
        for directory in ("etc/corvane/bootweave", "usr/lib/corvane/hostcli/ext",
                          "usr/lib/corvane/hostcli/int/ext", "usr/libexec/bootweave/plugins"):
            mode = os.lstat(os.path.join(os.environ[STAGE_VARIABLE], directory)).st_mode
            self.assertTrue(stat.S_ISDIR(mode), directory)
            self.assertEqual(0o755, stat.S_IMODE(mode), directory)

    def test_nobody_but_their_owner_may_write_them_and_none_runs_as_somebody_else(self):
        stage = os.environ[STAGE_VARIABLE]
        found = []
        for directory, _, names in os.walk(stage):
            for name in names:
                path = os.path.join(directory, name)
                mode = os.lstat(path).st_mode
                found.append(os.path.relpath(path, stage))
                if stat.S_ISLNK(mode):      # to a file beside it, which is looked at itself
                    if "/share/doc/" not in path:
                        self.assertIn(os.readlink(path), names, path)
                    continue
                self.assertTrue(stat.S_ISREG(mode), path)
                self.assertEqual(0, mode & (stat.S_IWGRP | stat.S_IWOTH | stat.S_ISUID | stat.S_ISGID), path)
        self.assertLessEqual(set(_PROGRAMS), set(found))
