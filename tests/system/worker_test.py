# SPDX-License-Identifier: Apache-2.0
"""How many workers run the plugins, and which plugin they take next."""

import os

from harness import EXECUTOR_LOG, UNTIL, WARNING, Directory, Link, SystemTest, command, plugin
from probe import DRIVER

# Prints how many threads the program has: the main one and the workers.
_COUNT = command("count", DRIVER + "ls /proc/$(driver)/task | wc -l")
_MOST = 2 * os.sysconf("SC_NPROCESSORS_ONLN")
_NO_WORKERS = ("Failed to initialize bootweave: Could not create enough execution threads. "
               "({} created, 2requested)")


class WorkerCountTest(SystemTest):
    def setUp(self):
        super().setUp()
        self.need_plain_threads()

    def _workers(self, *arguments, plugins=9, files=()):
        """How many workers run this many plugins."""
        others = [plugin(f"p{number}") for number in range(1, plugins)]
        end = self.host(plugin("p0", ["count"]), *others, _COUNT, *files).boot(*arguments)
        self.assertEqual((0, plugins), (end.status, len(end.succeeded)))
        return int(end.command_output[0]) - 1

    def test_a_serial_boot_has_one(self):
        self.assertEqual(1, self._workers())

    def test_a_parallel_boot_has_two_for_each_processor(self):
        self.assertEqual(_MOST, self._workers("--parallel", plugins=_MOST + 1))

    def test_a_parallel_boot_has_no_more_than_it_has_plugins(self):
        self.assertEqual(_MOST - 1, self._workers("--parallel", plugins=_MOST - 1))
        self.assertEqual(1, self._workers("--parallel", plugins=1))

    def test_plugins_that_were_dropped_do_not_count(self):
        host = self.host(plugin("p", ["count"]), plugin("q"), _COUNT)
        self.assertEqual(["2"], host.boot("--parallel", "--disable-plugins=q").command_output)

    def test_a_run_once_plugin_that_has_run_counts(self):
        once = plugin("q", version=3, run_once=True, plugin_version="1")
        end = self.host(plugin("p", ["count"]), once, _COUNT).boot("--parallel", "--run-once=q1")
        self.assertEqual((["p"], ["3"]), (end.succeeded, end.command_output))

    def test_a_host_without_a_state_of_its_own_boots_serially(self):
        for entry in "", Directory(), Link("/nowhere"):
            with self.subTest(entry):
                self.assertEqual(1, self._workers("--parallel", files=[{"/stateless.tgz": entry}]))

    def test_behind_interactive_parallel_counts(self):
        self.assertEqual(2, self._workers("--interactive", "--parallel", plugins=2))


class TooFewThreadsTest(SystemTest):
    """Each thread wants a stack of four gigabytes, and the address space ends after some of them."""

    def _boot(self, gigabytes, afterwards=":"):
        self.need_small_limits()
        files = plugin("p0"), plugin("p1")
        limits = f"ulimit -s 4194304; ulimit -v {gigabytes * 1048576}"
        return self.host(*files).shell(
            f"{UNTIL} ({limits}; bootweave --parallel); status=$?; {afterwards}; exit $status")

    def test_workers_that_cannot_be_made_end_the_run(self):
        end = self._boot(6)
        self.assertEqual((1, [(WARNING, _NO_WORKERS.format(1))], []),
                         (end.status, end.complaints, end.kernel))

    def test_an_executor_without_its_event_loop_says_so_in_its_own_log(self):
        end = self._boot(3, f"until_ grep -q 'Unable to start' {EXECUTOR_LOG}")
        self.assertEqual(["Unable to start executor: Failed creating Executor Event Loop thread"],
                         end.executor_messages)
        self.assertIn((WARNING, _NO_WORKERS.format(0)), end.complaints)
        self.assertEqual(1, end.status)


class OrderTest(SystemTest):
    def _order(self, names, *files, arguments=()):
        listed = "--plugin=" + ",".join(f"{name}.json" for name in names)
        end = self.host(*files).boot(listed, *arguments)
        self.assertEqual(0, end.status)
        return end.activated

    def test_serially_independent_plugins_run_in_the_order_of_their_discovery(self):
        names = "dbcaefzyx"
        self.assertEqual(list(names), self._order(names, *[plugin(name) for name in names]))

    def test_a_plugin_that_many_wait_for_runs_before_one_that_was_ready_earlier(self):
        files = (plugin("leaf"), plugin("base", provides=["1"]),
                 plugin("mid", requires=["1"], provides=["2"]), plugin("top", requires=["2"]))
        self.assertEqual(["base", "mid", "leaf", "top"], self._order(["leaf", "base", "mid", "top"], *files))

    def test_randomised_a_single_candidate_is_taken(self):
        files = [plugin(f"p{n}", requires=[f"b{n}"] * (n > 0), provides=[f"b{n + 1}"]) for n in range(8)]
        names = [f"p{n}" for n in range(8)]
        self.assertEqual(names, self._order(reversed(names), *files, arguments=["--randomize"]))

    def test_two_randomised_runs_make_the_same_choices_whatever_the_seed(self):
        names = [f"p{number}" for number in range(12)]
        files = [plugin(name) for name in names]
        first = self._order(names, *files, arguments=["--randomize"])
        self.assertEqual(first, self._order(names, *files, arguments=["--randomize=7"]))
        self.assertNotEqual(names, first)
