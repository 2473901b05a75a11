# SPDX-License-Identifier: Apache-2.0
"""A few of the kills that scripts/deaths makes by the hundred; a failure names its seed."""

import os
import random
import sys

sys.path.insert(0, os.path.join(os.path.dirname(os.path.realpath(__file__)), "..", "deaths"))

from harness import SystemTest      # noqa: E402 (the path comes first)
from killing_host import kill       # noqa: E402


class RandomDeathTest(SystemTest):
    """Nothing is half written, the texts are those of the manual, and the next run is like any other."""

    def _kill(self, count, *kinds):
        seed = random.SystemRandom().randrange(10**6)
        lines, failed = kill(self, seed, 1, count, kinds)
        self.assertIsNone(failed, f"seed {seed}\n" + "\n".join(lines.values()))
        self.assertEqual(count, len(lines))

    def test_whoever_dies_during_a_boot_the_next_one_is_whole(self):
        self._kill(6, "serial boot", "parallel boot")

    def test_whoever_dies_while_plugins_are_invoked_or_scripts_are_stopped_the_next_run_is_whole(self):
        self._kill(14, "invoke", "daemon stop")
