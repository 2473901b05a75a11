# SPDX-License-Identifier: Apache-2.0
"""Which method of a plugin runs, and what is said about it."""

import re

from harness import ERROR, NOTICE, Directory, KernelRecord, Link, SystemTest, command, plugin

_PROFILE = "/etc/corvane/hostprofile.xml"
_PACKED_PROFILE = "/etc/corvane/hostprofile.xml.gz"
_SAY = command("say", "echo $1")


def _both(name, version=2, **metadata):
    """A plugin whose two methods tell which of them runs."""
    return plugin(name, [f"say --start={name}"], version=version,
                  operations={"apply_host_profile": [f"say --apply={name}"]}, **metadata)


class KernelLogTest(SystemTest):
    def test_a_success_is_two_records(self):
        end = self.host(plugin("net-up")).boot()
        self.assertEqual([KernelRecord(NOTICE, "bootweave: Activating Bootweave plugin net-up."),
                          KernelRecord(NOTICE, "bootweave: Bootweave plugin net-up activated.")], end.kernel)

    def test_a_failure_is_two_records_with_the_reason(self):
        end = self.host(plugin("net", ["no.such"])).boot()
        self.assertEqual([KernelRecord(NOTICE, "bootweave: Activating Bootweave plugin net."),
                          KernelRecord(NOTICE, "bootweave: Bootweave plugin net activation failed: "
                                               "net->start() failed: error while executing the cli")],
                         end.kernel)


class MethodTest(SystemTest):
    def test_start_runs_the_start_commands_even_where_there_is_a_host_profile(self):
        end = self.host(_both("a"), _SAY, {_PROFILE: ""}).boot("--method=start")
        self.assertEqual((["--start=a"], ["a"]), (end.command_output, end.succeeded))
        self.assertIn((NOTICE, "executing start plugin: a"), end.said)

    def test_apply_host_profile_runs_its_commands_even_where_there_is_no_host_profile(self):
        end = self.host(_both("a"), _SAY).boot("--method=apply_host_profile")
        self.assertEqual((["--apply=a"], ["a"]), (end.command_output, end.succeeded))
        self.assertIn((NOTICE, "executing host profile plugin: a"), end.said)

    def test_any_other_method_is_a_silent_success(self):
        for method in "foo", "Start", "apply-host-profile", "stop":
            with self.subTest(method):
                end = self.host(_both("a"), plugin("b", ["no.such"]), _SAY).boot(f"--method={method}")
                self.assertEqual((0, ["a", "b"], [], []),
                                 (end.status, sorted(end.succeeded), end.complaints, end.command_output))
                self.assertNotIn("executing", end.stdout)

    def test_a_named_method_that_fails_is_a_failed_invocation(self):
        end = self.host(plugin("a", ["no.such"])).boot("--method=start")
        self.assertEqual({"a": "Method invocation failed"}, end.failed)
        self.assertEqual(
            (ERROR, "Method invocation failed: a->start() failed: error while executing the cli"),
            end.complaints[-1])

    def test_a_plugin_of_version_1_cannot_apply_a_host_profile(self):
        end = self.host(_both("a", version=1), _SAY).boot("--method=apply_host_profile")
        self.assertEqual([(ERROR, "unable to invoke method 'apply_host_profile' on plugin 'a': "
                                  "method `json_plugin::ApplyHostProfile' is not implemented")],
                         end.complaints)
        self.assertEqual(({"a": "Method invocation failed"}, []), (end.failed, end.command_output))

    def test_a_plugin_of_version_2_without_host_profile_commands_applies_nothing_and_succeeds(self):
        host = self.host(plugin("a", ["say --start=a"], version=2), _SAY)
        end = host.boot("--method=apply_host_profile")
        self.assertEqual((["a"], []), (end.succeeded, end.command_output))


class HostProfileTest(SystemTest):
    def _check(self, expected, *files, **options):
        end = self.host(*files, _SAY, **options).boot()
        self.assertEqual(expected, end.command_output)
        self.assertEqual([], end.complaints)
        return end

    def test_with_a_host_profile_plugins_that_support_it_apply_it(self):
        self._check(["--apply=a"], _both("a"), {_PROFILE: "<profile/>"})

    def test_a_packed_host_profile_counts(self):
        end = self._check(["--apply=a"], _both("a"), {_PACKED_PROFILE: ""})
        self.assertIn((NOTICE, "executing host profile plugin: a"), end.said)

    def test_without_a_host_profile_plugins_start(self):
        end = self._check(["--start=a"], _both("a"), {"/etc/corvane/hostprofile.xml.bak": ""})
        self.assertIn((NOTICE, "executing start plugin: a"), end.said)

    def test_a_directory_in_the_profiles_place_counts(self):
        for path in _PROFILE, _PACKED_PROFILE:
            with self.subTest(path):
                self._check(["--apply=a"], _both("a"), {path: Directory()})

    def test_a_fifo_in_the_profiles_place_counts(self):
        self._check(["--apply=a"], _both("a"), setup=f"mkdir -p /etc/corvane; mkfifo {_PROFILE}")

    def test_a_link_counts_when_it_leads_somewhere(self):
        self._check(["--apply=a"], _both("a"), {_PROFILE: Link("/etc/passwd")})
        self._check(["--start=a"], _both("a"),
                    {_PROFILE: Link("/nowhere"), _PACKED_PROFILE: Link("/nowhere")})

    def test_behind_a_dangling_link_the_packed_profile_counts(self):
        self._check(["--apply=a"], _both("a"), {_PROFILE: Link("/nowhere"), _PACKED_PROFILE: ""})

    def test_plugins_that_do_not_support_it_start(self):
        self._check(["--start=a"], _both("a", version=1), {_PROFILE: ""})
        self._check(["--start=b"], plugin("b", ["say --start=b"], version=4, run_once=False,
                                          plugin_version=""), {_PROFILE: ""})

    def test_an_empty_list_of_host_profile_commands_runs_nothing_and_succeeds(self):
        nothing = plugin("a", ["say --start=a"], version=2, operations={"apply_host_profile": []})
        end = self._check([], nothing, {_PROFILE: ""})
        self.assertEqual(["a"], end.succeeded)

    def test_a_profile_that_comes_later_in_the_boot_changes_nothing(self):
        self._check(["--start=a", "--start=b"], _both("a", provides=["up"]), _both("b", requires=["late"]),
                    plugin("make", ["make"], requires=["up"], provides=["late"]),
                    command("make", f"mkdir -p /etc/corvane; touch {_PROFILE}"))

    def test_a_profile_that_goes_later_in_the_boot_changes_nothing(self):
        self._check(["--apply=a", "--apply=b"], _both("a", provides=["up"]), _both("b", requires=["late"]),
                    plugin("drop", ["drop"], requires=["up"], provides=["late"]),
                    command("drop", f"rm {_PROFILE}"), {_PROFILE: ""})

    def test_plugins_that_do_not_support_it_do_not_decide(self):
        self._check(["--apply=b"], plugin("make", ["make"], provides=["up"]), _both("b", requires=["up"]),
                    command("make", f"mkdir -p /etc/corvane; touch {_PROFILE}"))


class TraceTest(SystemTest):
    def _traced(self, *files):
        end = self.host(*files).boot("--trace")
        return [message for message in end.said if "execution of plugin" in message[1]]

    def _check_traced(self, name, *files):
        started, completed = self._traced(*files)
        self.assertEqual((NOTICE, f"starting execution of plugin: {name}"), started)
        self.assertEqual(NOTICE, completed[0])
        return re.fullmatch(rf"completed execution of plugin: {name} \(took (\d+) us\)", completed[1])

    def test_tracing_tells_when_a_plugin_starts_and_how_long_it_took(self):
        found = self._check_traced("a", plugin("a", ["wait"]), command("wait", "sleep 0.15"))
        self.assertGreaterEqual(int(found[1]), 150000)

    def test_tracing_tells_it_of_failures_too(self):
        self.assertIsNotNone(self._check_traced("a", plugin("a", ["no.such"])))

    def test_without_tracing_nothing_of_it_is_said(self):
        end = self.host(plugin("a"), plugin("b", ["no.such"])).boot("--verbose")
        self.assertNotIn("execution of plugin", end.stdout)
