# SPDX-License-Identifier: Apache-2.0
"""Which files become plugins, and which of those take part in a run."""

from harness import (ALERT, ERROR, NOTICE, PLUGINS, WARNING, File, Link, SystemTest, command, not_provided,
                     plugin)


def _flagged(name, **metadata):
    return plugin(name, version=3, run_once=False, plugin_version="1", **metadata)


def _once(name, version, **metadata):
    return plugin(name, version=3, run_once=True, plugin_version=version, **metadata)


def _missing_file(name):
    return ERROR, f"plugin `{PLUGINS}/{name}' is invalid: no such file or directory"


class FileNameTest(SystemTest):
    def test_a_name_without_a_dot_is_of_unspecified_type(self):
        end = self.host({f"{PLUGINS}/README": "read me\n"}, plugin("a")).boot()
        self.assertEqual([(WARNING, "ignoring plugin 'README' of unspecified type...")], end.complaints)
        self.assertEqual(["a"], end.succeeded)

    def test_a_name_that_ends_in_a_dot_is_of_an_unknown_empty_type(self):
        end = self.host({f"{PLUGINS}/x.": "{}"}).boot()
        self.assertEqual([(WARNING, "ignoring plugin 'x.' of unknown type ()...")], end.complaints)

    def test_an_extension_in_capitals_is_unknown(self):
        end = self.host({f"{PLUGINS}/x.JSON": "{}"}).boot()
        self.assertEqual([(WARNING, "ignoring plugin 'x.JSON' of unknown type (JSON)...")], end.complaints)

    def test_only_what_is_behind_the_last_dot_is_the_extension(self):
        end = self.host(plugin("a.b"), {f"{PLUGINS}/c.json.old": "{}"}).boot()
        self.assertEqual(["a.b"], end.succeeded)
        self.assertEqual([(WARNING, "ignoring plugin 'c.json.old' of unknown type (old)...")], end.complaints)

    def test_a_leading_lib_is_no_part_of_the_name_and_taken_off_once(self):
        end = self.host(plugin("libfoo"), plugin("liblibbar"), plugin("a-lib"), plugin("Libz")).boot()
        self.assertEqual(["Libz", "a-lib", "foo", "libbar"], sorted(end.succeeded))

    def test_a_name_of_nothing_but_the_extension_is_a_plugin_without_a_name(self):
        self.assertEqual([""], self.host(plugin("")).boot().succeeded)

    def test_control_characters_in_a_name_forge_no_line_of_any_log(self):
        forged = "x\n2026-11-15T15:04:56.123Z bootweave[1]: all is well\n\r\x1b[2J<5>bootweave: y"
        end = self.host(plugin(forged), {f"{PLUGINS}/{forged}": "{}"}).boot()
        harmless = r"x\x0a2026-11-15T15:04:56.123Z bootweave[1]: all is well\x0a\x0d\x1b[2J<5>bootweave: y"
        self.assertEqual([harmless], end.succeeded)
        self.assertEqual(["bootweave: "], sorted({record.text[:11] for record in end.kernel}))
        self.assertEqual(end.stdout.splitlines(), end.stdout.split("\n")[:-1])
        self.assertIn(f"executing start plugin: {harmless}", end.messages)
        self.assertEqual(1, len(end.complaints))
        self.assertRegex(end.complaints[0][1], r"ignoring plugin 'x\\x0a2026.* of unknown type \(123Z bootw")

    def test_a_name_with_printf_directives_is_shown_as_it_is(self):
        end = self.host(plugin("%s%n%d"), {f"{PLUGINS}/%s%n": ""}).boot("--trace")
        self.assertEqual(["%s%n%d"], end.succeeded)
        self.assertIn("starting execution of plugin: %s%n%d", end.messages)
        self.assertEqual([(WARNING, "ignoring plugin '%s%n' of unspecified type...")], end.complaints)


class FileTest(SystemTest):
    """One file that cannot be loaded costs a line; the boot goes on with the others and ends well."""

    def _check_one_bad(self, complaint, files, setup=None):
        end = self.host(plugin("good"), files, setup=setup).boot(timeout=20)
        self.assertEqual((0, [complaint], ["good"]), (end.status, end.complaints, end.activated))

    def test_a_file_that_is_no_plugin_costs_a_line(self):
        self._check_one_bad((ERROR, f"plugin `{PLUGINS}/bad.json' is invalid: plugin root is not an object"),
                            {f"{PLUGINS}/bad.json": "[]"})

    def test_a_directory_is_no_plugin_and_not_walked(self):
        self._check_one_bad(_missing_file("d.json"), plugin("d.json/inner"))

    def test_a_fifo_does_not_hold_up_the_boot(self):
        self._check_one_bad(_missing_file("f.json"), {}, f"mkfifo {PLUGINS}/f.json")

    def test_a_device_is_no_plugin(self):
        self._check_one_bad(_missing_file("z.json"), {f"{PLUGINS}/z.json": Link("/dev/zero")})

    def test_a_socket_is_no_plugin(self):
        bind = "python3 -c 'import socket, sys; socket.socket(socket.AF_UNIX).bind(sys.argv[1])'"
        self._check_one_bad(_missing_file("s.json"), {}, f"{bind} {PLUGINS}/s.json")

    def test_a_dangling_link_is_no_plugin(self):
        self._check_one_bad(_missing_file("l.json"), {f"{PLUGINS}/l.json": Link("/nowhere")})

    def test_links_in_a_circle_are_no_plugin(self):
        self._check_one_bad(_missing_file("l.json"), {f"{PLUGINS}/l.json": Link("l.json")})

    def test_a_link_to_a_plugin_is_one_under_its_own_name(self):
        host = self.host({f"{PLUGINS}/b.json": Link("/opt/a.json"),
                          "/opt/a.json": plugin("a")[f"{PLUGINS}/a.json"]})
        self.assertEqual(["b"], host.boot().succeeded)

    def test_what_cannot_be_loaded_provides_nothing_and_leaves_nothing_behind(self):
        broken = plugin("broken", provides=["up"], requires=["nobody"], operations={"start": "no list"})
        end = self.host(broken, plugin("a", requires=["up"])).boot()
        self.assertEqual(
            [(ERROR, f"plugin `{PLUGINS}/broken.json' is invalid: "
                     "operations is corrupt (unable to parse start)"),
             (ALERT, not_provided("up", "a")), (WARNING, not_provided("up", "a"))], end.complaints)

    def test_an_empty_directory_is_a_boot_without_plugins(self):
        end = self.host().boot("--parallel")
        self.assertEqual((0, [], []), (end.status, end.complaints, end.kernel))


class NamedPluginTest(SystemTest):
    def test_naming_plugins_leaves_out_all_others(self):
        end = self.host(plugin("a"), plugin("b"), {f"{PLUGINS}/README": ""}).boot("--plugin=b.json")
        self.assertEqual((["b"], []), (end.activated, end.complaints))

    def test_a_name_without_an_extension_is_of_unspecified_type(self):
        end = self.host(plugin("foo")).boot("--plugin=foo")
        self.assertEqual((0, []), (end.status, end.kernel))
        self.assertEqual([(WARNING, "ignoring plugin 'foo' of unspecified type...")], end.complaints)

    def test_a_file_that_is_missing_costs_a_line_and_no_walk_of_the_directory(self):
        end = self.host(plugin("a"), plugin("b")).boot("--plugin=x.json,a.json")
        self.assertEqual((0, ["a"], [_missing_file("x.json")]), (end.status, end.activated, end.complaints))

    def test_a_plugin_named_twice_runs_twice(self):
        end = self.host(plugin("a", ["mark"]), command("mark", "echo ran")).boot("--plugin=a.json,a.json")
        self.assertEqual((["a", "a"], ["ran", "ran"]), (end.succeeded, end.command_output))


class DenylistTest(SystemTest):
    def test_a_disabled_plugin_is_named_in_the_log_and_dropped(self):
        end = self.host(plugin("a"), plugin("b")).boot("--disable-plugins=a")
        self.assertEqual(["b"], end.activated)
        self.assertEqual([(NOTICE, "ignoring plugin 'a' due to denylist.")],
                         [entry for entry in end.said if "denylist" in entry[1]])

    def test_a_plugin_is_disabled_by_its_name_without_lib(self):
        files = plugin("libfoo")
        self.assertEqual([], self.host(files).boot("--disable-plugins=foo").activated)
        self.assertEqual(["foo"], self.host(files).boot("--disable-plugins=libfoo").activated)

    def test_only_the_whole_name_disables(self):
        end = self.host(plugin("network")).boot("--disable-plugins=net,network.json,NETWORK")
        self.assertEqual(["network"], end.activated)

    def test_a_disabled_plugin_provides_nothing(self):
        host = self.host(plugin("a", provides=["up"]), plugin("b", requires=["up"]))
        end = host.boot("--disable-plugins=a")
        self.assertEqual(["b"], end.succeeded)
        self.assertIn((WARNING, not_provided("up", "b")), end.complaints)

    def test_the_denylist_is_asked_before_the_boot_flags(self):
        end = self.host(_flagged("a", disabling_flags=["x"])).boot("--disable-plugins=a", "--plugin-flags=x")
        self.assertEqual([], end.complaints)


class BootFlagTest(SystemTest):
    def test_common_flags_are_listed_in_ascending_order_with_a_blank_behind_each(self):
        end = self.host(_flagged("p", disabling_flags=["c", "b", "a"])).boot("--plugin-flags=b,x,a")
        self.assertEqual([(WARNING, "ignoring plugin 'p', disabled due to boot flags: a b .")],
                         end.complaints)
        self.assertEqual([], end.activated)

    def test_missing_flags_are_listed_in_ascending_order_with_a_blank_behind_each(self):
        end = self.host(_flagged("p", required_flags=["z", "m", "a"])).boot("--plugin-flags=m")
        self.assertEqual(
            [(WARNING, "ignoring plugin 'p', disabled due to missing required boot flags: a z .")],
            end.complaints)
        self.assertEqual([], end.activated)

    def test_a_plugin_that_fails_both_tests_says_both(self):
        end = self.host(_flagged("p", disabling_flags=["a"], required_flags=["b"])).boot("--plugin-flags=a")
        self.assertEqual(
            [(WARNING, "ignoring plugin 'p', disabled due to boot flags: a ."),
             (WARNING, "ignoring plugin 'p', disabled due to missing required boot flags: b .")],
            end.complaints)

    def test_a_plugin_without_required_flags_needs_none(self):
        end = self.host(_flagged("p", required_flags=[]), _flagged("q", disabling_flags=["a"])).boot()
        self.assertEqual(["p", "q"], sorted(end.succeeded))

    def test_a_plugin_whose_required_flags_are_all_given_runs(self):
        end = self.host(_flagged("p", required_flags=["a", "b"])).boot("--plugin-flags=c,b,a")
        self.assertEqual(["p"], end.succeeded)

    def test_a_rejected_plugin_provides_nothing(self):
        rejected = _flagged("p", provides=["up"], required_flags=["a"])
        end = self.host(rejected, plugin("q", requires=["up"])).boot()
        self.assertEqual(["q"], end.succeeded)
        self.assertIn((WARNING, not_provided("up", "q")), end.complaints)


class RunOnceTest(SystemTest):
    def test_a_version_that_has_run_is_left_alone_and_holds_up_nobody(self):
        host = self.host(_once("net", "1.0", provides=["up"]), plugin("next", requires=["up"]))
        end = host.boot("--run-once=net1.0")
        self.assertEqual(["next"], end.activated)
        self.assertEqual([], end.complaints)
        self.assertIn((NOTICE, "ignoring plugin 'net' because version '1.0'  has already been run."),
                      end.said)

    def test_another_version_runs(self):
        end = self.host(_once("net", "1.1")).boot("--run-once=net1.0,net,1.1")
        self.assertEqual(["net"], end.succeeded)

    def test_the_key_is_looked_up_as_it_is_and_not_as_it_is_kept(self):
        files = _once("net", "1 0")
        self.assertEqual(["net"], self.host(files).boot("--run-once=net10").succeeded)
        self.assertEqual([], self.host(files).boot("--run-once=net1 0").activated)

    def test_a_plugin_that_does_not_ask_for_it_runs_again(self):
        end = self.host(_flagged("net")).boot("--run-once=net1")
        self.assertEqual(["net"], end.succeeded)

    def test_of_two_files_with_one_key_only_the_first_runs(self):
        files = _once("a", "1"), _once("liba", "1")
        end = self.host(*files).boot("--plugin=liba.json,a.json")
        self.assertEqual(["a"], end.activated)
        self.assertIn((NOTICE, "ignoring plugin 'a' because version '1'  has already been run."), end.said)

    def test_of_two_files_with_one_foreign_key_both_run(self):
        end = self.host(_once("a", "1/2"), _once("liba", "1/2")).boot("--plugin=liba.json,a.json")
        self.assertEqual(["a", "a"], end.activated)


class PluginDirectoryTest(SystemTest):
    _ELSEWHERE = {"/opt/boot/x.json": File('{"metadata": {"version": 1, "requires": [], "provides": []},'
                                           ' "operations": {"start": []}}')}

    def test_another_directory_takes_the_place_of_the_usual_one(self):
        end = self.host(self._ELSEWHERE, plugin("a")).boot("--plugin-directory=/opt/boot")
        self.assertEqual(["x"], end.succeeded)

    def test_a_relative_directory_is_taken_from_where_the_program_was_started(self):
        end = self.host(self._ELSEWHERE).shell("cd /opt; exec bootweave --plugin-directory=boot")
        self.assertEqual(["x"], end.succeeded)

    def test_an_empty_directory_name_is_where_the_program_was_started(self):
        host = self.host(self._ELSEWHERE, plugin("a"))
        end = host.shell("cd /opt/boot; exec bootweave --plugin-directory=")
        self.assertEqual(["x"], end.succeeded)

    def test_links_in_the_directory_name_are_kept_in_messages(self):
        host = self.host({"/opt/link": Link("boot"), "/opt/boot/y.json": "no"})
        end = host.shell("cd /opt; exec bootweave --plugin-directory=link")
        self.assertEqual([(ERROR, "plugin `/opt/link/y.json' is invalid: plugin root is not an object")],
                         end.complaints)

    def test_the_last_of_several_directories_counts(self):
        end = self.host(self._ELSEWHERE).boot("--plugin-directory=/nowhere", "--plugin-directory=/opt/boot")
        self.assertEqual(["x"], end.succeeded)
