# SPDX-License-Identifier: Apache-2.0
"""What a boot would take with other settings, beside what it takes."""

import json

from harness import UNTIL, SystemTest, command, plugin
from init_scripts import init_scripts

_ANALYZE = "/usr/bin/bootweave-analyze"
_AGAIN = "until_ sh -c '! pidof -q bootweave' && rm -f /run/corvane/bootweaveExecutor.sock"


def _sleeping(**plugins):
    """Plugins that sleep: name -> (seconds, requires, provides)."""
    files = command("nap", 'exec sleep "${1#--for=}"')
    for name, (seconds, requires, provides) in plugins.items():
        files |= plugin(name, start=[f"nap --for={seconds}"], requires=requires, provides=provides)
    return files


def _injected(**plugins):
    """The same as debug injections, whose commands run side by side. No field of a line may be empty."""
    lines = [f"{name}:{','.join(requires or ['nothing'])}:{','.join([*provides, name])}:sleep {seconds}\n"
             for name, (seconds, requires, provides) in plugins.items()]
    return {"/etc/corvane/bootweave/debug.conf": "".join(lines)}


# The chain a, c, e takes 0.9 s; all of them take 1.9 s.
_PLUGINS = dict(a=(0.4, [], ["x"]), b=(0.3, [], []), c=(0.3, ["x"], ["y"]), d=(0.4, [], []),
                e=(0.2, ["y"], []), f=(0.3, ["x"], []))
_BOOT = _sleeping(**_PLUGINS)
_INJECTED = _injected(**_PLUGINS)


class SimulationTest(SystemTest):
    """Real boots of plugins that sleep."""

    def _reports(self, script, files):
        end = self.host(files).shell(UNTIL + script)
        self.assertEqual((0, ""), (end.status, end.stderr))
        return [json.loads(line) for line in end.stdout.splitlines()]

    def _assert_near(self, expected, actual):
        """Within six percent: on a busy machine a sleep is a little longer."""
        self.assertLess(abs(actual - expected), expected * 0.06, (expected, actual))

    def test_with_the_same_settings_it_takes_what_the_boot_took(self):
        for option in ("", "--parallel"):
            with self.subTest(option):
                report, = self._reports(f"bootweave {option} >/dev/null && exec {_ANALYZE} simulate --json",
                                        _BOOT)
                self._assert_near(report["recorded_us"], report["simulated_us"])

    def test_a_serial_boot_tells_what_a_parallel_one_takes(self):
        for kind, files in (("host commands", _BOOT), ("injections", _INJECTED)):
            with self.subTest(kind):
                imagined, real = self._reports(
                    f"""workers=$((2 * $(nproc))); [ $workers -le 6 ] || workers=6
                    bootweave >/dev/null && {_ANALYZE} simulate --json --threads $workers &&
                    {_AGAIN} && bootweave --parallel >/dev/null && exec {_ANALYZE} simulate --json""", files)
                self.assertEqual(6, len(imagined["plugins"]))
                self.assertGreater(imagined["recorded_us"], 1_900_000)
                taken = {entry["name"]: entry["taken_us"] for entry in imagined["plugins"]}
                self.assertEqual(sum(taken[name] for name in ("a", "c", "e")), imagined["longest_chain_us"])
                self.assertGreaterEqual(imagined["longest_chain_us"], 900_000)
                self.assertEqual(real["threads"], imagined["threads"])
                # What each run took around its plugins is its own: on a busy machine the start may be slow.
                self._assert_near(real["recorded_us"] - real["outside_us"],
                                  imagined["simulated_us"] - imagined["outside_us"])

    def test_without_a_plugin_and_with_a_faster_one_another_chain_decides(self):
        before, after = self._reports(f"""bootweave >/dev/null && {_ANALYZE} simulate --json --threads 6 &&
            exec {_ANALYZE} simulate --json --threads 6 --without e --time c=50""", _INJECTED)
        self.assertAlmostEqual(200_000, before["simulated_us"] - after["simulated_us"], delta=60_000)

    def test_daemons_keep_the_order_of_their_priorities(self):
        host = self.host(init_scripts(one=(10, "sleep 0.2"), two=(10, "sleep 0.2"), late=(20, "sleep 0.1")))
        end = host.shell(f"""bootweave >/dev/null && bootweave --daemon=wait --method=start >/dev/null &&
            exec {_ANALYZE} simulate --boot last --threads 9 --json""")
        self.assertEqual((0, ""), (end.status, end.stderr))
        report = json.loads(end.stdout)
        late = next(entry for entry in report["plugins"] if entry["name"] == "late")
        first = max(entry["taken_us"] for entry in report["plugins"])
        self.assertEqual(first, late["at_us"])
        self.assertEqual(sum(entry["taken_us"] for entry in report["plugins"]), report["work_us"])
        self.assertGreaterEqual(report["work_us"], 500_000)
        self.assertLessEqual(report["work_us"], report["recorded_us"])

    def test_losing_a_provider_costs_a_line(self):
        end = self.host(_BOOT).shell(f"""bootweave --parallel >/dev/null &&
            exec {_ANALYZE} simulate --without a""")
        self.assertEqual((0, "bootweave-analyze: nobody provides x then: what requires it does not wait\n"),
                         (end.status, end.stderr))
