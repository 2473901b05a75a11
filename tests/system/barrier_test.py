# SPDX-License-Identifier: Apache-2.0
"""Barriers between plugins: who waits for whom, what nobody provides, and who waits for himself."""

from harness import (ALERT, ERROR, UNTIL, WARNING, KernelRecord, SystemTest, command, not_provided, plugin)

# Boots with these arguments until the log says that the run is stalled, and ends the wait that goes on.
_BOOT_UNTIL_STALLED = UNTIL + """
bootweave "$@" >/run/log &
until_ grep -q 'is stalled' /run/log
kill $!
wait $!
"""


_SELF = plugin("a", requires=["x"], provides=["x"])


def _stalls(end):
    return [message for level, message in end.said if level == ERROR and "stalled" in message]


class BarrierTest(SystemTest):
    def test_a_plugin_waits_for_all_that_provide_what_it_requires(self):
        end = self.host(plugin("last", requires=["up"]), plugin("slow", ["wait"], provides=["up"]),
                        plugin("quick", provides=["up"]), command("wait", "sleep 0.1")).boot("--parallel")
        self.assertEqual(({"slow", "quick"}, "last"), (set(end.succeeded[:2]), end.succeeded[2]))
        self.assertEqual("last", end.activated[2])

    def test_a_failed_provider_lets_those_behind_it_run(self):
        end = self.host(plugin("a", ["no such"], provides=["up"]), plugin("b", requires=["up"])).boot()
        self.assertEqual((["a"], ["b"]), (list(end.failed), end.succeeded))

    def test_a_barrier_that_nobody_requires_is_no_message(self):
        end = self.host(plugin("a", provides=["up", "down", ""])).boot()
        self.assertEqual((["a"], []), (end.succeeded, end.complaints))

    def test_a_barrier_may_have_any_name(self):
        names = ["", " ", "a/b", "%s%n", "é\n", "_<->_priority_<->_10", "x" * 5000]
        end = self.host(plugin("a", provides=names), plugin("b", requires=names)).boot()
        self.assertEqual((["a", "b"], []), (end.succeeded, end.complaints))


class UnprovidedBarrierTest(SystemTest):
    def test_it_is_an_alert_and_a_warning_and_the_plugins_run(self):
        end = self.host(plugin("a", requires=["up"])).boot()
        text = not_provided("up", "a")
        self.assertEqual([(ALERT, text), (WARNING, text)], end.complaints)
        self.assertEqual(KernelRecord(ALERT, "bootweave: " + text), end.kernel[0])
        self.assertIn(text, end.messages)
        self.assertEqual((0, ["a"]), (end.status, end.succeeded))

    def test_in_invoke_mode_it_is_a_warning_only(self):
        end = self.host(plugin("a", requires=["up"])).boot("--invoke", "--method=start", "--plugin=a.json")
        self.assertEqual([(WARNING, not_provided("up", "a"))], end.complaints)
        self.assertEqual((["a"], 2), (end.succeeded, len(end.kernel)))

    def test_those_that_require_it_are_listed_in_their_order_and_as_often_as_they_do(self):
        end = self.host(plugin("a", requires=["x", "up"]), plugin("b", requires=["up", "up"]),
                        plugin("c", provides=["x"], requires=["up"])).boot("--plugin=c.json,b.json,a.json")
        self.assertIn((WARNING, not_provided("up", "c", "b", "b", "a")), end.complaints)
        self.assertEqual(["a", "b", "c"], sorted(end.succeeded))

    def test_its_name_forges_no_line(self):
        end = self.host(plugin("a", requires=["up\n<1>bootweave: forged"])).boot()
        self.assertEqual([(ALERT, not_provided(r"up\x0a<1>bootweave: forged", "a")),
                          (WARNING, not_provided(r"up\x0a<1>bootweave: forged", "a"))], end.complaints)
        self.assertEqual(3, len(end.kernel))


class CircleTest(SystemTest):
    """Plugins that wait for each other wait for ever, and that is said once."""

    def _boot(self, *arguments, files):
        return self.host(*files).run("/bin/sh", "-c", _BOOT_UNTIL_STALLED, "sh", *arguments)

    def _check(self, circle, *files, arguments="", others=()):
        end = self._boot(*filter(None, [arguments]), files=files)
        self.assertEqual([f"Bootweave is stalled: plugins wait for each other: {circle}"], _stalls(end))
        self.assertEqual(143, end.status)
        self.assertEqual(sorted(others), sorted(end.succeeded))

    def test_two_plugins_that_wait_for_each_other_are_named(self):
        self._check("a -> b -> a", plugin("a", requires=["x"], provides=["y"]),
                    plugin("b", requires=["y"], provides=["x"]), arguments="--plugin=a.json,b.json")

    def test_each_is_followed_by_the_one_that_it_waits_for(self):
        self._check("a -> b -> c -> a", plugin("a", requires=["b"], provides=["a"]),
                    plugin("b", requires=["c"], provides=["b"]), plugin("c", requires=["a"], provides=["c"]),
                    arguments="--plugin=a.json,c.json,b.json")

    def test_a_plugin_that_requires_what_it_provides_waits_for_itself(self):
        self._check("a -> a", _SELF)

    def test_a_plugin_that_only_waits_for_a_circle_is_not_in_it(self):
        self._check("b -> c -> b", plugin("a", requires=["x"]), plugin("b", requires=["y"], provides=["x"]),
                    plugin("c", requires=["x"], provides=["y"]), arguments="--plugin=a.json,b.json,c.json")

    def test_all_that_does_not_wait_for_the_circle_runs_first(self):
        others = [plugin(f"o{number}", ["ok"], requires=["go"]) for number in range(5)]
        self._check("a -> a", _SELF, plugin("go", provides=["go"]), *others, command("ok", "true"),
                    arguments="--parallel", others=["go", "o0", "o1", "o2", "o3", "o4"])

    def test_of_two_circles_one_is_named_once(self):
        end = self._boot("--parallel", files=[_SELF, plugin("b", requires=["y"], provides=["y"])])
        self.assertEqual(1, len(_stalls(end)))
        self.assertRegex(_stalls(end)[0], "wait for each other: (a -> a|b -> b)$")

    def test_a_circle_under_randomised_order_is_found_too(self):
        self._check("a -> a", _SELF, plugin("b"), arguments="--randomize", others=["b"])


class SizeTest(SystemTest):
    """Plugins by the thousand, made on the host itself."""

    _MAKE = """
import json, os
os.mkdir("/run/plugins")
for number in range({count}):
    document = {{"metadata": {{"version": 1, "requires": [{requires}], "provides": [{provides}]}},
                 "operations": {{"start": []}}}}
    with open("/run/plugins/p%05d.json" % number, "w") as file:
        json.dump(document, file)
"""

    def _boot(self, prefix, **form):
        host = self.host({"/opt/make.py": self._MAKE.format(**form)})
        return host.shell(f"python3 -IS /opt/make.py && {prefix} bootweave --plugin-directory=/run/plugins "
                          "--method=none", timeout=100)

    def test_a_chain_of_thousands_runs_in_its_order_on_a_small_stack(self):
        # A call takes 48 bytes of stack at the least, and the chain has two nodes for each plugin.
        end = self._boot("ulimit -s 128;", count=4000, requires='"b%d" % number',
                         provides='"b%d" % (number + 1)')
        self.assertEqual(0, end.status)
        self.assertEqual([f"p{number:05}" for number in range(4000)], end.succeeded)

    def test_thousands_behind_one_barrier_of_thousands_run_after_all_of_those(self):
        end = self._boot("", count=4000, requires='*["x"] * (number % 2)',
                         provides='*["x"] * (1 - number % 2)')
        self.assertEqual(0, end.status)
        self.assertEqual([0] * 2000 + [1] * 2000, [int(name[1:]) % 2 for name in end.succeeded])
