# SPDX-License-Identifier: Apache-2.0
"""The graph as DOT text, for graphs of every shape, in every mode, and to places of every kind."""

import os
import re

from dot_text import DotGraph, dot_in_log, read_dot
from harness import NOTICE, PLUGINS, Directory, File, SystemTest, command, plugin
from init_scripts import PROFILE, begun, init_scripts
from reference_order import read_injections
from sample_plugins import plugin_files, plugin_name, read_document

_DOT = "/run/graph.dot"
_DUMP = f"--dump-dependency-tree={_DOT}"
_ROOT = os.path.join(os.path.dirname(os.path.realpath(__file__)), "..", "..", "examples", "host", "root")
_STORE = {f"/usr/lib/corvane/configstore/{name}": File(f"#!/bin/sh\necho {name} >>/run/store\n", 0o755)
          for name in ("end-auto-conf", "cleanup-boot-state")}


class TextTest(SystemTest):
    def _lines(self, *files, plugins):
        """The dump's lines, with the name of a node in place of its identifier."""
        end = self.host(*files).boot(_DUMP, f"--plugin={plugins}")
        self.assertEqual((0, []), (end.status, end.complaints))
        text = end.read(_DOT)
        names = dict(re.findall(r'(\d+) \[label="(.*?)"', text))
        return [re.sub(r"\d{5,}", lambda found: names[found[0]], line) for line in text.splitlines()]

    def test_nodes_come_with_their_edges_and_plugins_before_barriers(self):
        self.assertEqual(
            ["digraph g {",
             'b [label="b"];',
             'a [label="a"];', "a -> up;", "a -> at;",
             'at [label="at" shape=box];',
             'up [label="up" shape=box];', "up -> b;",
             "}"],
            self._lines(plugin("a", provides=["up", "at"]), plugin("b", requires=["up"]),
                        plugins="b.json,a.json"))

    def test_an_edge_that_was_asked_for_twice_is_there_twice(self):
        self.assertEqual(
            ["digraph g {", 'a [label="a"];', "a -> out;", "a -> out;",
             'in [label="in" shape=box];', "in -> a;", "in -> a;", 'out [label="out" shape=box];', "}"],
            self._lines(plugin("a", requires=["in", "in"], provides=["out", "out"]), plugins="a.json"))

    def test_a_graph_without_plugins_is_the_frame(self):
        end = self.host().boot(_DUMP)
        self.assertEqual((0, "digraph g {\n}\n"), (end.status, end.read(_DOT)))

    def test_barriers_come_in_the_order_of_their_bytes(self):
        names = ["b", "a", "B", "é", "", " ", "a b", "~", "_"]
        end = self.host(plugin("p", requires=names)).boot(_DUMP)
        self.assertEqual(sorted(names, key=str.encode), read_dot(end.read(_DOT)).barriers)

    def test_quotes_and_backslashes_of_a_name_are_escaped(self):
        for name in ('a"b', "a\\", '\\"', '" shape=box];', "a\\nb", '"'):
            with self.subTest(name):
                end = self.host(plugin(name, requires=[f"in {name}"], provides=[f"out {name}"])).boot(_DUMP)
                self.assertEqual(
                    DotGraph([(name, ""), (f"in {name}", "box"), (f"out {name}", "box")],
                             [(name, f"out {name}"), (f"in {name}", name)]),
                    read_dot(end.read(_DOT)))

    def test_a_graph_with_a_circle_is_written_like_any_other(self):
        end = self.host(plugin("a", requires=["y"], provides=["x"]),
                        plugin("b", requires=["x"], provides=["y"])).boot(_DUMP, timeout=20)
        self.assertEqual([("a", "x"), ("b", "y"), ("x", "b"), ("y", "a")],
                         read_dot(end.read(_DOT)).sorted_edges)
        self.assertEqual((0, []), (end.status, end.complaints))

    def test_a_barrier_that_nobody_provides_is_shown_and_not_reported(self):
        end = self.host(plugin("a", requires=["x"])).boot(_DUMP)
        self.assertEqual(([("x", "a")], []), (read_dot(end.read(_DOT)).edges, end.complaints))

    def test_what_is_left_out_of_the_run_is_left_out_of_the_graph(self):
        end = self.host(plugin("a", provides=["x"]), plugin("b", provides=["y"]),
                        plugin("c", version=3, required_flags=["f"], run_once=False, plugin_version="",
                               provides=["z"]), {f"{PLUGINS}/d.json": ""}).boot(_DUMP, "--disable-plugins=b")
        self.assertEqual([("a", ""), ("x", "box")], read_dot(end.read(_DOT)).nodes)

    def test_a_plugin_that_has_run_before_is_part_of_the_graph(self):
        end = self.host(plugin("a", version=3, run_once=True, plugin_version="1", provides=["x"])).boot(
            _DUMP, "--run-once=a1")
        self.assertEqual([("a", "x")], read_dot(end.read(_DOT)).edges)

    def test_debug_injections_come_behind_the_plugins_in_the_order_of_their_lines(self):
        end = self.host(plugin("a", provides=["x"]),
                        {"/etc/corvane/bootweave/debug.conf": "z:x:y:true\nb:y:w:true\n"}).boot(_DUMP)
        found = read_dot(end.read(_DOT))
        self.assertEqual(["a", "z", "b"], found.plugins)
        self.assertEqual([("a", "x"), ("z", "y"), ("b", "w"), ("x", "z"), ("y", "b")], found.edges)


class SampleHostTest(SystemTest):
    """Against the plugin files themselves, read by other means."""

    def _expected(self, names):
        with open(os.path.join(_ROOT, "etc/corvane/bootweave/debug.conf"), encoding="utf-8") as file:
            injections = read_injections(file.read())
        plugins = []
        for name in names:
            metadata = read_document(name)["metadata"]
            if not metadata.get("required_flags"):
                plugins.append((plugin_name(name), (metadata["requires"], metadata["provides"])))
        edges = []
        for name, (required, provided) in plugins + injections:
            edges += [(barrier, name) for barrier in required] + [(name, barrier) for barrier in provided]
        barriers = {barrier for _, lists in plugins + injections for names in lists for barrier in names}
        return [name for name, _ in plugins + injections], sorted(barriers), sorted(edges)

    def test_the_sample_hosts_graph_is_what_its_files_say(self):
        end = self.sample_host().shell(f"ls -U {PLUGINS}; exec bootweave {_DUMP}")
        names = plugin_files(end.stdout)
        self.assertGreater(len(names), 24)
        found = read_dot(end.read(_DOT))
        self.assertEqual(self._expected(names), (found.plugins, found.barriers, found.sorted_edges))
        self.assertEqual({"", "box"}, {shape for _, shape in found.nodes})


class ModeTest(SystemTest):
    """A dump runs nothing; what goes on around it is that of its mode."""

    _FILES = {**plugin("a", ["x"], provides=["up"], version=3, run_once=True, plugin_version="1"),
              **plugin("b", ["x"], requires=["up"]), **command("x", "touch /run/ran"), **_STORE,
              "/etc/corvane/bootweave/debug.conf": "d:up:x:touch /run/ran\n"}

    def _dump(self, *arguments, files=()):
        end = self.host(self._FILES, *files).boot(*arguments, _DUMP)
        self.assertEqual((0, [], None, None),
                         (end.status, end.kernel, end.read("/run/ran"), end.read("/bootbank/bootweav.gz")))
        return end

    def test_nothing_runs_and_the_executor_is_started_and_stopped_all_the_same(self):
        end = self._dump()
        self.assertEqual(["Launching Executor", "Setting up Executor - Reset Requested",
                          "Executor has been Successfully Stopped"], end.messages)
        self.assertEqual("end-auto-conf\ncleanup-boot-state\n", end.read("/run/store"))
        self.assertEqual("", end.stderr)

    def test_with_every_way_of_running_the_graph_is_the_same(self):
        expected = [("a", "up"), ("d", "x"), ("up", "b"), ("up", "d")]
        for arguments in ((), ("--parallel",), ("--randomize",), ("--verbose", "--trace"), ("--interactive",),
                          ("--method=foo",)):
            with self.subTest(arguments):
                self.assertEqual(expected, read_dot(self._dump(*arguments).read(_DOT)).sorted_edges)

    def test_in_init_mode_the_early_services_run_and_the_log_daemon_is_told_to_reload(self):
        services = {path: File('#!/bin/sh\necho "$0" >>/run/services\n', 0o755)
                    for path in ("/usr/lib/corvane/logrelay/bin/logrelayd", "/etc/init.d/obsvd")}
        services["/var/run/corvane/logrelayd.pid"] = "none\n"
        end = self._dump("--init", files=[services])
        self.assertEqual("/usr/lib/corvane/logrelay/bin/logrelayd\n/etc/init.d/obsvd\n",
                         end.read("/run/services"))
        self.assertEqual(["failed to reload logrelayd: No such process."],
                         [message for _, message in end.complaints])

    def test_in_invoke_mode_the_record_is_read_and_no_profile_written(self):
        end = self._dump("--invoke", "--method=start", "--plugin=a.json", "--run-once=a1")
        self.assertEqual([("a", ""), ("up", "box")], read_dot(end.read(_DOT)).nodes)
        self.assertIn((NOTICE, "ignoring plugin 'a' because version '1'  has already been run."), end.said)
        self.assertIsNone(end.read(PROFILE))

    def test_the_profile_has_a_line_of_no_time_for_each_plugin(self):
        never = "1970-01-01 00:00:00.000000"
        lines = self._dump("--plugin=b.json,a.json").read(PROFILE).splitlines()
        self.assertEqual([f"[{never} - {never}] sysboot: {name}" for name in "ba"], lines[1:3])

    def test_in_daemon_mode_it_is_the_graph_of_the_init_scripts(self):
        for method in "start", "stop":
            with self.subTest(method):
                host = self.host(init_scripts(c=30, a=10, b=10), _STORE)
                end = host.boot("--daemon", f"--method={method}", _DUMP)
                self.assertEqual((0, [], [], []), (end.status, end.said, end.kernel, begun(end)))
                low, high = "_<->_priority_<->_10", "_<->_priority_<->_30"
                found = read_dot(end.read(_DOT))
                self.assertEqual([("a", ""), ("b", ""), ("c", ""), (low, "trapezium"), (high, "trapezium")],
                                 found.nodes)
                self.assertEqual(sorted({("a", low), ("b", low), (low, "c"), (low, high), ("c", high)}),
                                 sorted(set(found.edges)))
                self.assertIsNone(end.read("/run/store"))
                self.assertEqual(3, end.read(PROFILE).count("] daemon: "))


class PlaceTest(SystemTest):
    def _check_failure(self, path, setup=None, run=None):
        """A dump that cannot be written says nothing, ends with 1, and the rest of the run is as ever."""
        host = self.host(plugin("a", ["x"]), command("x", "touch /run/ran"), _STORE, setup=setup)
        end = host.shell(run) if run else host.boot(f"--dump-dependency-tree={path}")
        self.assertEqual((1, [], []), (end.status, end.complaints, end.kernel))
        self.assertIsNone(end.read("/run/ran"))
        self.assertEqual("", end.stderr)
        self.assertIn("] sysboot: a\n", end.read(PROFILE))
        self.assertEqual("end-auto-conf\ncleanup-boot-state\n", end.read("/run/store"))
        self.assertIn((NOTICE, "Executor has been Successfully Stopped"), end.said)
        self.assertNotIn("digraph", end.stdout)
        return end

    def test_a_directory_that_does_not_exist_is_a_silent_failure(self):
        self._check_failure("/no/where/graph.dot")

    def test_a_directory_in_the_files_place_is_a_silent_failure(self):
        self._check_failure("/run")

    def test_a_read_only_file_system_is_a_silent_failure(self):
        self._check_failure("/mnt/graph.dot", setup="mount -t tmpfs -o ro none /mnt")

    def test_an_empty_path_is_a_silent_failure(self):
        self._check_failure("")

    def test_a_full_file_system_is_a_silent_failure(self):
        self._check_failure("/dev/full")

    def test_a_full_standard_output_is_a_silent_failure(self):
        self._check_failure(None, run="bootweave --dump-dependency-tree >/dev/full")

    def test_a_standard_output_that_nobody_reads_is_a_silent_failure(self):
        self._check_failure(None, run="mkfifo /run/pipe; exec 3<>/run/pipe 4>/run/pipe 3<&-; "
                                      "bootweave --dump-dependency-tree >&4")

    def test_in_daemon_mode_too_it_fails_and_the_profile_is_written(self):
        end = self.host(init_scripts(a=10)).boot(
            "--daemon", "--method=start", "--dump-dependency-tree=/no/where")
        self.assertEqual((1, [], []), (end.status, end.said, begun(end)))
        self.assertIn("] daemon: a\n", end.read(PROFILE))

    def test_without_a_path_it_goes_to_standard_output_in_one_piece(self):
        end = self.host(plugin("a", provides=["x"])).boot("--dump-dependency-tree")
        self.assertEqual([("a", ""), ("x", "box")], read_dot(dot_in_log(end.stdout)).nodes)
        self.assertEqual(["Launching Executor", "Setting up Executor - Reset Requested",
                          "Executor has been Successfully Stopped"], end.messages)

    def test_a_word_behind_the_option_is_no_path(self):
        end = self.host(plugin("a")).boot("--dump-dependency-tree", _DOT)
        self.assertEqual((0, ["a"], None),
                         (end.status, read_dot(dot_in_log(end.stdout)).plugins, end.read(_DOT)))

    def test_a_repeated_option_without_a_path_keeps_the_path(self):
        end = self.host(plugin("a")).boot(_DUMP, "--dump-dependency-tree")
        self.assertEqual(["a"], read_dot(end.read(_DOT)).plugins)
        self.assertNotIn("digraph", end.stdout)

    def test_a_relative_path_is_taken_from_the_root_directory(self):
        end = self.host(plugin("a")).shell("cd /usr; exec bootweave --dump-dependency-tree=run/graph.dot")
        self.assertEqual((0, ["a"]), (end.status, read_dot(end.read(_DOT)).plugins))

    def test_what_was_in_the_file_is_gone(self):
        end = self.host(plugin("a"), {_DOT: "old\n" * 1000}).boot(_DUMP)
        self.assertEqual(["a"], read_dot(end.read(_DOT)).plugins)
