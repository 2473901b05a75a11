# SPDX-License-Identifier: Apache-2.0
"""Shell commands that debug.conf places in the boot: the file, the graph, and the commands."""

from dot_text import read_dot
from harness import ERROR, NOTICE, PLUGINS, WARNING, SystemTest, command, not_provided, plugin
from probe import HOSTILE_CALLER, hostile_caller, probe, report

_CONF = "/etc/corvane/bootweave/debug.conf"


def _conf(*lines):
    return {_CONF: "".join(line + "\n" for line in lines)}


def _malformed(number, line):
    return NOTICE, f"ignoring malformed debug entry at line {number}: {line}"


class FileTest(SystemTest):
    def _run(self, text, setup=None):
        """A boot of a host with this file and no plugins: it is loaded once."""
        end = self.host({_CONF: text} if text is not None else {}, setup=setup).boot(timeout=20)
        self.assertEqual(0, end.status)
        return end

    def _check_malformed(self, text, *lines):
        """Exactly these lines are malformed, and the injection "good" of the file runs all the same."""
        end = self._run(text + "good:x:y:true\n")
        found = [message for message in end.said if "malformed" in message[1]]
        self.assertEqual([_malformed(*line) for line in lines], found)
        self.assertEqual(["good"], end.succeeded)

    def _check_edges(self, requires, provides, fields):
        """The barriers that a line's two lists name, as the graph shows them."""
        end = self.host(_conf(f"d:{fields}:true")).boot("--dump-dependency-tree=/run/dot")
        self.assertEqual((0, [], False), (end.status, end.complaints, "malformed" in end.stdout))
        self.assertEqual(sorted([(name, "d") for name in requires] + [("d", name) for name in provides]),
                         read_dot(end.read("/run/dot")).sorted_edges)

    def test_a_line_is_an_injection(self):
        end = self._run("netdebug:network:netdebug-done:echo dump >/run/dump\n")
        self.assertEqual(("dump\n", ["netdebug"]), (end.read("/run/dump"), end.succeeded))

    def test_lines_that_are_empty_or_blank_are_skipped_and_counted(self):
        self._check_malformed("\n  \t\nbad\n\n", (3, "bad"))

    def test_a_line_of_another_count_of_fields_is_malformed(self):
        for line in ("a", "a:b", "a:b:c", "a:b:c:d:e", "a:x:y:date +%T:%S", ":::", "a:b:c:", "# comment"):
            with self.subTest(line):
                self._check_malformed(line + "\n", (1, line))

    def test_empty_requires_and_provides_leave_two_fields_which_is_malformed(self):
        self._check_malformed("a:::true\n", (1, "a:::true"))

    def test_empty_fields_are_dropped_wherever_they_are(self):
        end = self._run("::d::x:y:::touch /run/ran::\n")
        self.assertEqual(("", ["d"]), (end.read("/run/ran"), end.succeeded))

    def test_malformed_lines_are_shown_trimmed_and_harmless(self):
        self._check_malformed(" \t bad line \r\n", (1, "bad line"))
        self._check_malformed("bad \x1b[2J %s%n\n", (1, "bad \\x1b[2J %s%n"))

    def test_a_bad_escape_in_a_list_is_malformed(self):
        for line in (r"a:x\q:y:true", r"a:x:y\,z\ :true", "a:x\\:y:true", "a:x:y\\:true"):
            with self.subTest(line):
                self._check_malformed(line + "\n", (1, line))

    def test_lists_are_split_at_commas_and_trimmed(self):
        self._check_edges(["a", "b c"], ["d"], " a ,\t b c , : ,,d")

    def test_a_comma_in_quotes_or_behind_a_backslash_is_part_of_the_name(self):
        self._check_edges(["a,b", "c"], ["d,e", "f,g"], "\"a,b\",c:d\\,e,'f,g'")

    def test_a_list_of_nothing_but_separators_names_no_barrier(self):
        self._check_edges([], [], " , :,")

    def test_blanks_around_the_name_go_and_those_in_the_command_stay(self):
        end = self._run("  my name  :x:y:  echo 'a   b' >/run/said  \n")
        self.assertEqual(("a   b\n", ["my name"]), (end.read("/run/said"), end.succeeded))

    def test_carriage_returns_and_a_missing_last_newline_do_no_harm(self):
        end = self._run("a:x:y:echo a >>/run/said\r\nb:y:z:echo b >>/run/said")
        self.assertEqual("a\nb\n", end.read("/run/said"))

    def test_what_is_not_there_or_no_file_holds_no_injections(self):
        directory = "mkdir -p /etc/corvane/bootweave; "
        for setup in (None, f"mkdir -p {_CONF}", f"{directory} mkfifo {_CONF}",
                      f"{directory} ln -s /dev/zero {_CONF}", f"{directory} ln -s /no {_CONF}"):
            with self.subTest(setup):
                end = self._run(None, setup=setup)
                self.assertEqual(([], []), (end.kernel, end.complaints))

    def test_a_link_to_a_file_is_that_file(self):
        end = self._run(None, setup="mkdir -p /etc/corvane/bootweave; echo d:x:y:true >/etc/debug; "
                                    f"ln -s /etc/debug {_CONF}")
        self.assertEqual(["d"], end.succeeded)


class DiscoveryTest(SystemTest):
    def _activated(self, *files, arguments=()):
        end = self.host(*files).boot(*arguments)
        self.assertEqual(0, end.status)
        return end.activated

    def test_malformed_lines_are_reported_each_time_the_file_is_loaded(self):
        # Before the directory is walked, and for each name in it that has a dot.
        files = {f"{PLUGINS}/{name}": "" for name in ("README", "c.txt", "d.debug")}
        end = self.host(_conf("bad"), plugin("a"), plugin("b"), files).boot()
        self.assertEqual([_malformed(1, "bad")] * 5, [said for said in end.said if "malformed" in said[1]])

    def test_a_named_plugin_loads_the_file_once_and_runs_no_injections(self):
        end = self.host(_conf("bad", "d:x:y:true"), plugin("a")).boot("--plugin=a.json")
        self.assertEqual(([_malformed(1, "bad")], ["a"]),
                         ([said for said in end.said if "malformed" in said[1]], end.activated))

    def test_in_invoke_mode_no_injection_runs_unless_it_is_named(self):
        host = self.host(_conf("d:x:y:true"), plugin("a"))
        self.assertEqual(["a"], host.boot("--invoke", "--method=start", "--plugin=a.json").activated)
        self.assertEqual(["d"], host.boot("--invoke", "--method=start", "--plugin=d.debug").activated)

    def test_a_file_with_an_injections_name_adds_it_once_more(self):
        self.assertEqual(["x", "x"], self._activated(_conf("x:a:b:true"), {f"{PLUGINS}/x.debug": ""}))

    def test_a_file_adds_each_injection_of_its_name(self):
        self.assertEqual(["x"] * 4 + ["y"], self._activated(_conf("x:a:b:true", "x:b:c:true", "y:c:d:true"),
                                                            {f"{PLUGINS}/x.debug": ""}))

    def test_lib_is_no_part_of_the_files_name(self):
        self.assertEqual(["x", "x"], self._activated(_conf("x:a:b:true"), {f"{PLUGINS}/libx.debug": ""}))

    def test_a_file_without_an_injection_of_its_name_is_nothing_and_not_reported(self):
        end = self.host(_conf("x:a:a2:true"), {f"{PLUGINS}/y.debug": "", f"{PLUGINS}/X.debug": ""}).boot()
        self.assertEqual(["x"], end.activated)
        self.assertEqual([(WARNING, not_provided("a", "x"))], end.complaints[-1:])
        self.assertNotIn("ignoring", end.stdout)

    def test_neither_denylist_nor_flags_nor_record_apply(self):
        self.assertEqual(["x", "x"], self._activated(
            _conf("x:a:b:true"), {f"{PLUGINS}/x.debug": ""},
            arguments=("--disable-plugins=x", "--plugin-flags=x", "--run-once=x")))

    def test_an_injection_and_a_plugin_of_one_name_both_run(self):
        self.assertEqual(["x", "x"], self._activated(_conf("x:a:b:true"), plugin("x")))


class GraphTest(SystemTest):
    def test_an_injection_runs_behind_what_it_requires_and_before_what_requires_it(self):
        host = self.host(plugin("a", provides=["up"]), plugin("b", requires=["checked"]),
                         _conf("check:up:checked:true"))
        for arguments in ((), ("--parallel",), ("--randomize",), ("--init",)):
            with self.subTest(arguments):
                end = host.boot(*arguments)
                self.assertEqual((0, ["a", "check", "b"]), (end.status, end.activated))

    def test_an_injection_that_provides_a_barrier_too_holds_up_those_who_require_it(self):
        host = self.host(plugin("a", provides=["up"]), plugin("b", ["look"], requires=["up"]),
                         command("look", "cat /run/slow"), _conf("slow:,:up:sleep 0.3; echo done >/run/slow"))
        end = host.boot("--parallel")
        self.assertEqual(["done"], end.command_output)

    def test_a_required_barrier_that_nobody_provides_is_reported_and_the_injection_runs(self):
        end = self.host(_conf("d:nowhere:x:touch /run/ran")).boot()
        self.assertEqual(("", [(1, not_provided("nowhere", "d")), (WARNING, not_provided("nowhere", "d"))]),
                         (end.read("/run/ran"), end.complaints))


class CommandTest(SystemTest):
    def _returned(self, command_line, text=None, setup=None):
        """The command ends so; its plugin and the rest of the boot go on."""
        end = self.host(_conf(f"d:,:x:{command_line}"), plugin("b", requires=["x"]), setup=setup).boot()
        expected = [] if text is None else [(NOTICE, f"debug injection 'd' returned {text}")]
        self.assertEqual(expected, [said for said in end.said if "returned" in said[1]])
        self.assertEqual((0, ["d", "b"], []), (end.status, end.succeeded, end.complaints))

    def test_success_says_nothing(self):
        self._returned("exit 0")

    def test_a_status_is_told_as_the_raw_wait_status(self):
        self._returned("exit 1", "0x000100")
        self._returned("exit 255", "0x00ff00")
        self._returned("no-such-command 2>&-", "0x007f00")

    def test_a_signal_is_told_as_the_raw_wait_status(self):
        self._returned("kill -9 $$", "0x000009")
        self._returned("kill -TERM $$", "0x00000f")

    def test_without_a_shell_it_is_as_if_the_shell_had_not_found_the_command(self):
        self._returned("true", "0x007f00", setup="rm /bin/sh")

    def test_a_name_with_printf_directives_is_shown_as_it_is(self):
        end = self.host(_conf("%s%n:,:x:exit 1")).boot()
        self.assertIn((NOTICE, "debug injection '%s%n' returned 0x000100"), end.said)

    def test_the_command_writes_where_the_program_writes(self):
        end = self.host(_conf("d:,:x:echo out; echo err >&2")).boot()
        self.assertIn("\nout\n", end.stdout)
        self.assertEqual("err\n", end.stderr)

    def test_the_command_works_in_the_root_directory_with_the_programs_environment(self):
        end = self.host(_conf("d:,:x:/opt/probe 1 '2 3'"), probe("/opt/probe")).shell(
            "cd /usr; env -i A=1 PATH=/usr/bin:/bin /usr/sbin/bootweave")
        found = report(end, "probe")
        self.assertEqual((["1", "2 3"], "/"), (found.arguments, found.directory))
        self.assertLessEqual({"A=1", "PATH=/usr/bin:/bin"}, set(found.variables))

    def test_nothing_is_handed_on_of_what_the_caller_left_open_blocked_or_ignored(self):
        end = self.host(_conf("d:,:x:/opt/probe"), probe("/opt/probe"), hostile_caller()).run(
            HOSTILE_CALLER, "/usr/sbin/bootweave")
        found = report(end, "probe")
        self.assertEqual((["0", "1", "2"], 0, 0), (found.descriptors, found.blocked, found.ignored))

    def test_what_the_command_leaves_running_is_not_waited_for(self):
        end = self.host(_conf("d:,:x:sleep 1000 &")).boot(timeout=20)
        self.assertEqual((0, ["d"]), (end.status, end.succeeded))

    def test_many_commands_at_a_time_have_each_its_own_status(self):
        numbers = range(1, 10)
        lines = [f"d{number}:,:x:sleep 0.0{number}; exit {number}" for number in numbers]
        end = self.host(_conf(*lines)).boot("--parallel")
        self.assertEqual([f"debug injection 'd{number}' returned 0x000{number}00" for number in numbers],
                         sorted(message for message in end.messages if "returned" in message))


class MethodTest(SystemTest):
    def test_an_injection_runs_its_command_on_a_host_with_a_host_profile_too(self):
        end = self.host(_conf("d:,:x:touch /run/ran"), {"/etc/corvane/hostprofile.xml": ""}).boot()
        self.assertEqual(("", ["d"]), (end.read("/run/ran"), end.succeeded))
        self.assertIn((NOTICE, "executing start plugin: d"), end.said)

    def test_it_has_no_host_profile_to_apply(self):
        end = self.host(_conf("d:,:x:touch /run/ran")).boot("--method=apply_host_profile")
        self.assertEqual([(ERROR, "unable to invoke method 'apply_host_profile' on plugin 'd': "
                                  "method `DebugPlugin::ApplyHostProfile' is not implemented")],
                         end.complaints)
        self.assertEqual(({"d": "Method invocation failed"}, None), (end.failed, end.read("/run/ran")))

    def test_any_other_method_is_a_silent_success(self):
        end = self.host(_conf("d:,:x:touch /run/ran")).boot("--method=foo")
        self.assertEqual((["d"], None, []), (end.succeeded, end.read("/run/ran"), end.complaints))
