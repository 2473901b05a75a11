# SPDX-License-Identifier: Apache-2.0
"""The order in which the sample host's plugins are activated, against a computation of its own."""

import os
import re
import subprocess
import sys

from harness import PLUGINS, SystemTest
from reference_order import Graph, Rand, read_injections
from sample_plugins import plugin_files, plugin_name, read_document

_ROOT = os.path.join(os.path.dirname(os.path.realpath(__file__)), "..", "..", "examples", "host", "root")

# What the host's directory says comes first: both read the same directory of the same host.
_LIST_AND_BOOT = f"ls -U {PLUGINS}; exec bootweave"


class ActivationOrderTest(SystemTest):
    def _boot(self, arguments):
        """Boots the sample host; returns its ending and the names in its plugin directory, in its order."""
        end = self.sample_host().shell(f"{_LIST_AND_BOOT} {arguments}")
        self.assertEqual(0, end.status)
        names = plugin_files(end.stdout)
        self.assertGreater(len(names), 24)
        return end, names

    @staticmethod
    def _graph(names, flags=()):
        documents = [(plugin_name(name), read_document(name)) for name in names]
        with open(os.path.join(_ROOT, "etc/corvane/bootweave/debug.conf"), encoding="utf-8") as file:
            return Graph(documents, flags, read_injections(file.read()))

    def test_serially_each_choice_is_the_longest_chain_and_then_the_earliest_arrival(self):
        end, names = self._boot("--init")
        self.assertEqual(self._graph(names).serial_order(), end.activated)

    def test_boot_flags_choose_who_takes_part_in_the_order(self):
        flags = ("iscsi", "monitored", "snmp")
        end, names = self._boot("--init --plugin-flags=" + ",".join(flags))
        expected = self._graph(names, flags).serial_order()
        self.assertIn("storage-iscsi", expected)
        self.assertEqual(expected, end.activated)

    def test_randomised_each_choice_takes_one_value_of_the_unseeded_rand(self):
        end, names = self._boot("--init --randomize")
        self.assertEqual(self._graph(names).serial_order(Rand()), end.activated)

    def test_a_seed_changes_the_record_of_the_run_and_not_its_order(self):
        end, names = self._boot("--init --randomize=4711")
        self.assertEqual(self._graph(names).serial_order(Rand()), end.activated)

    def test_in_parallel_every_plugin_starts_when_all_it_needs_has_ended_and_runs_once(self):
        end, names = self._boot("--init --parallel")
        self._check_parallel(end, self._graph(names))

    def test_in_parallel_and_randomised_no_dependency_is_broken(self):
        end, names = self._boot("--init --parallel --randomize")
        self._check_parallel(end, self._graph(names))

    def _check_parallel(self, end, graph):
        ended = set()
        begun = []
        for record in end.kernel:
            if found := re.fullmatch(r"bootweave: Activating Bootweave plugin (.*)\.", record.text):
                begun.append(found[1])
                self.assertLessEqual(graph.providers()[found[1]], ended, f"{found[1]} started too early")
            elif found := re.match(r"bootweave: Bootweave plugin (\S+) activat(ed|ion failed)", record.text):
                ended.add(found[1])
        self.assertEqual(sorted(plugin.name for plugin in graph.plugins), sorted(begun))
        self.assertEqual(set(begun), ended)
        self.assertGreater(self._most_at_a_time(end), 1, "no two plugins ran at the same time")

    @staticmethod
    def _most_at_a_time(end):
        running = most = 0
        for record in end.kernel:
            running += 1 if "Activating" in record.text else -1
            most = max(most, running)
        return most


class RandTest(SystemTest):
    def test_the_model_of_rand_is_the_c_librarys(self):
        script = "import ctypes; c = ctypes.CDLL(None); print(*[c.rand() for _ in range(2000)])"
        values = subprocess.run([sys.executable, "-IS", "-c", script], check=True, text=True,
                                stdout=subprocess.PIPE)
        model = Rand()
        self.assertEqual([int(value) for value in values.stdout.split()], [model() for _ in range(2000)])
