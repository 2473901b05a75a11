# SPDX-License-Identifier: Apache-2.0
"""The graph of a boot, as Graphviz takes it."""

import re
import shutil
import subprocess
import xml.etree.ElementTree

from harness import SystemTest, plugin
from init_scripts import init_scripts

_ANALYZE = "/usr/bin/bootweave-analyze"
_SVG = "{http://www.w3.org/2000/svg}"


class GraphTest(SystemTest):
    """What "dot" writes."""

    def _drawn(self, text):
        """The labels of the nodes that Graphviz draws, by their identifiers, and the number of its edges."""
        if shutil.which("dot") is None:
            self.skipTest("graphviz is not installed")
        result = subprocess.run(["dot", "-Tsvg"], input=text, text=True, check=False, timeout=120,
                                stdout=subprocess.PIPE, stderr=subprocess.PIPE)
        self.assertEqual((0, ""), (result.returncode, result.stderr))
        root = xml.etree.ElementTree.fromstring(result.stdout)
        labels, edges = {}, 0
        for group in root.iter(_SVG + "g"):
            kind = (group.get("class") or "").split()
            if "node" in kind:
                labels[group.find(_SVG + "title").text] = [text.text for text in group.iter(_SVG + "text")]
            edges += "edge" in kind
        return labels, edges

    def test_hostile_names_are_labels(self):
        name, barrier = "\"]; <b>\\N &amp; {|}\u00e4\u65e5", "x\\"
        host = self.host(plugin(name, provides=[barrier]), plugin("b", requires=[barrier]))
        end = host.shell(f"bootweave >/dev/null && exec {_ANALYZE} dot")
        self.assertEqual((0, ""), (end.status, end.stderr))
        labels, edges = self._drawn(end.stdout)
        self.assertEqual([name, [barrier], "b"], [
            next(label[0] for label in labels.values() if label[0] == name),
            labels["barrier:" + barrier.replace("\\", "\\\\")], labels["plugin:b"][0]])
        self.assertEqual((3, 2), (len(labels), edges))

    def test_the_sample_host_is_drawn_with_the_chain_marked(self):
        end = self.sample_host().shell(f"""bootweave --init --parallel >/dev/null 2>&1 &&
            {_ANALYZE} critical-chain | cut -f4 && exec {_ANALYZE} dot""")
        self.assertEqual((0, ""), (end.status, end.stderr))
        chain, graph = end.stdout.split("digraph", 1)
        labels, edges = self._drawn("digraph" + graph)
        self.assertGreater(len(labels), 60)
        self.assertGreater(edges, 60)
        marked = re.findall(r'^"plugin:([^"]*)" \[.*class=critical', graph, re.MULTILINE)
        self.assertEqual(sorted(chain.split()), sorted(marked))

    def test_a_neighbourhood_is_part_of_it(self):
        host = self.host(plugin("a", provides=["x"]), plugin("b", requires=["x"], provides=["y"]),
                         plugin("c", requires=["y"]))
        end = host.shell(f"bootweave >/dev/null && exec {_ANALYZE} dot --around a")
        self.assertEqual((0, ""), (end.status, end.stderr))
        labels, edges = self._drawn(end.stdout)
        self.assertEqual({"plugin:a", "barrier:x", "plugin:b"}, set(labels))
        self.assertEqual(2, edges)

    def test_daemons_have_a_graph_of_their_priorities(self):
        host = self.host(init_scripts(one=10, two=20))
        end = host.shell(f"""bootweave >/dev/null && bootweave --daemon=wait --method=start >/dev/null &&
            exec {_ANALYZE} dot --boot last""")
        self.assertEqual((0, ""), (end.status, end.stderr))
        labels, edges = self._drawn(end.stdout)
        self.assertEqual({"plugin:one", "plugin:two", "barrier:priority 10", "barrier:priority 20"},
                         set(labels))
        self.assertEqual(3, edges)

    def test_the_graph_of_a_dump_is_drawn_though_nothing_ran(self):
        host = self.host(plugin("a", provides=["x"]), plugin("b", requires=["x"]))
        end = host.shell(f"bootweave --dump-dependency-tree >/dev/null && exec {_ANALYZE} dot")
        self.assertEqual((0, ""), (end.status, end.stderr))
        labels, edges = self._drawn(end.stdout)
        self.assertEqual(["a", "json, did not run"], labels["plugin:a"])
        self.assertEqual(2, edges)
