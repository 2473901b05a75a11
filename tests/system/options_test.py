# SPDX-License-Identifier: Apache-2.0
"""The command line: options, help, usage errors, and what is refused before anything starts."""

from harness import ERROR, EXECUTOR_LOG, NOTICE, Link, SystemTest, command, plugin

# Blanks at the ends of lines belong to the text.
_HELP = "".join(line + "\n" for line in (
    " -h,--help                  display this help message",
    "    --init                  run in init mode (this will cause logrelay to be",
    "                            launched, and the start method to be invoked on the",
    "                            plugins)",
    "    --invoke                run a particular method from the plugin's function",
    "                            pointer table (requires --method)",
    "    --method=<method>       specifies the method identifier",
    "    --plugin=<plugin>[,<plugin>]",
    "                            comma separated list of plugins to load (note that ",
    "                            this will prevent the loading of all plugins, and ",
    "                            only the specified plugins will be loaded), which",
    "                            are specified by the filename (basename of the",
    "                            plugin path)",
    "    --trace                 trace execution of the plugins for debugging ",
    "                            purposes",
    "    --verbose               logs plugin execution to syslog to aid in debugging",
    "    --randomize[=seed]      evaluate the execution order randomizing the",
    "                            order of independent jobs. Only useful for testing.",
    "                            You can specify an optional seed for reproducibility",
    "    --parallel              evaluate the execution order accounting for",
    "                            parallelism between jobs which are independent",
    "    --plugin-flags=<flag>[,<flag>]",
    "                            specify flags for conditional execution of plugins.",
    "                            If there are multiple occurences of this option, the",
    "                            last one is the only one that counts. See plugin",
    "                            documentation for which plugins support flags.",
    "    --interactive           prompts before performing the action, allowing",
    "                            plugins to be skipped, executed, or to fall to a",
    "                            troubleshooting shell",
    "    --disable-plugins=<plugin>[,<plugin>]",
    "                            a comma separated list of plugins to be disabled",
    "                            during execution, which are specified by the",
    "                            filename (basename of the plugin path)",
    "    --dump-dependency-tree[=<path>]",
    "                            dump plugin dependency tree information to the file",
    "                            specified by path.  If path is not specified, the",
    "                            information will be dumped to the console",
    "    --interactive-mode-requires=<plugin>[,<plugin>]",
    "                            interactive mode requires the specified plugins to ",
    "                            be loaded before it can be activated",
    "    --daemon=[wait|nowait]",
    "                            run daemon operations (requires --method). The ",
    "                            optional wait mode specifies whether bootweave ",
    "                            should wait for daemon start/stop to complete. ",
    "                            Defaults to 'nowait' if unspecified.",
    "    --daemon-wait-timeout=timeoutInSecs",
    "                            specify how long bootweave should wait for daemons ",
    "                            to start/stop, before moving on to the next one.   ",
    "                            The default is 40 secs.                            ",
))

_INVALID = "Invalid combination of options passed. Exiting"
_INCOMPLETE = "invoke requires a method and plugin specified"


class HelpTest(SystemTest):
    def _check_help(self, *arguments):
        end = self.host().boot(*arguments)
        self.assertEqual((0, _HELP, ""), (end.status, end.stdout, end.stderr))
        return end

    def test_long_help_is_the_whole_text_on_standard_output(self):
        self._check_help("--help")

    def test_short_help_is_the_same(self):
        self._check_help("-h")

    def test_options_behind_help_are_not_looked_at(self):
        self._check_help("--help", "--no-such-option")

    def test_help_counts_behind_a_word_that_is_no_option(self):
        self._check_help("word", "--help")

    def test_help_starts_nothing(self):
        end = self._check_help("--init", "--help")
        self.assertEqual(([], [], None), (end.kernel, end.said, end.read(EXECUTOR_LOG)))


class UsageTest(SystemTest):
    """Usage errors are told on standard error, by the parser and by the program."""

    def _check_usage(self, diagnostic, *arguments):
        end = self.host().boot(*arguments)
        self.assertEqual((1, "", f"/usr/sbin/bootweave: {diagnostic}\n"
                                 "usage: /usr/sbin/bootweave --help for usage information\n"),
                         (end.status, end.stdout, end.stderr))
        self.assertEqual(([], [], None), (end.kernel, end.said, end.read(EXECUTOR_LOG)))

    def test_an_unknown_option_ends_the_run_before_anything_starts(self):
        self._check_usage("unrecognized option '--no-such-option'", "--init", "--no-such-option")

    def test_an_unknown_option_in_front_of_help_wins(self):
        self._check_usage("unrecognized option '--wrong'", "--wrong", "--help")

    def test_an_unknown_letter_is_an_unknown_option(self):
        self._check_usage("invalid option -- 'x'", "-x")

    def test_an_option_without_its_argument_is_an_error(self):
        for name in ("plugin-flags", "method", "plugin", "run-once", "disable-plugins", "plugin-directory",
                     "interactive-mode-requires", "daemon-wait-timeout"):
            with self.subTest(name):
                self._check_usage(f"option '--{name}' requires an argument", f"--{name}")

    def test_an_argument_that_an_option_does_not_take_is_an_error(self):
        self._check_usage("option '--init' doesn't allow an argument", "--init=yes")

    def test_the_usage_line_has_the_name_that_the_program_was_started_under(self):
        end = self.host({"/opt/other": Link("/usr/sbin/bootweave")}).run("/opt/other", "--wrong")
        self.assertEqual("usage: /opt/other --help for usage information", end.stderr.splitlines()[1])


class CombinationTest(SystemTest):
    def _check_refused(self, message, output, *arguments):
        end = self.host(plugin("x")).boot(*arguments)
        self.assertEqual((1, [message], [(ERROR, message)]), (end.status, end.messages, end.said))
        self.assertEqual((output, ""), (end.stdout.split("\n", 1)[1], end.stderr))
        self.assertEqual(([], None), (end.kernel, end.read(EXECUTOR_LOG)))

    def test_daemon_mode_with_plugins_is_refused(self):
        self._check_refused(_INVALID, "", "--daemon", "--method=start", "--plugin=x")

    def test_daemon_mode_knows_start_and_stop_only(self):
        for method in ("restart", "Start", "stop ", "apply_host_profile"):
            with self.subTest(method):
                self._check_refused(_INVALID, "", "--daemon", f"--method={method}")

    def test_daemon_mode_needs_a_method(self):
        self._check_refused(_INVALID, "", "--daemon=wait")

    def test_daemon_mode_agrees_with_no_other_mode(self):
        for other in ("--init", "--invoke", "--interactive"):
            with self.subTest(other):
                self._check_refused(_INVALID, "", "--daemon=nowait", "--method=stop", other)

    def test_daemon_mode_is_judged_before_invoke_mode(self):
        self._check_refused(_INVALID, "", "--invoke", "--daemon")

    def test_invoke_without_a_method_is_refused_with_the_help_text(self):
        self._check_refused(_INCOMPLETE, _HELP, "--invoke", "--plugin=x")

    def test_invoke_without_a_plugin_is_refused_with_the_help_text(self):
        self._check_refused(_INCOMPLETE, _HELP, "--invoke", "--method=start", "--plugin=,,")

    def test_init_and_invoke_go_together(self):
        end = self.host(plugin("x")).boot("--init", "--invoke", "--method=start", "--plugin=x.json")
        self.assertEqual((0, ["x"]), (end.status, end.succeeded))


class ValueTest(SystemTest):
    """What a list or a number becomes, by what the run then does."""

    def test_items_of_a_list_are_split_at_commas_and_empty_ones_dropped(self):
        end = self.host(plugin("a"), plugin("b")).boot("--plugin=a.json,,b.json,")
        self.assertEqual(["a", "b"], end.succeeded)

    def test_blanks_in_a_list_belong_to_its_items(self):
        end = self.host(plugin("a"), plugin("b")).boot("--plugin=a.json, b.json")
        self.assertIn((ERROR, "plugin `/usr/libexec/bootweave/plugins/ b.json' is invalid: "
                              "no such file or directory"), end.complaints)
        self.assertEqual(["a"], end.succeeded)

    def test_plugin_lists_add_up_in_their_order(self):
        end = self.host(plugin("a"), plugin("b"), plugin("c")).boot("--plugin", "c.json", "--plugin=a.json")
        self.assertEqual(["c", "a"], end.succeeded)

    def test_disabled_plugins_add_up(self):
        end = self.host(plugin("a"), plugin("b"), plugin("c")).boot("--disable-plugins=a",
                                                                    "--disable-plugins", "b")
        self.assertEqual(["c"], end.activated)

    def test_run_once_names_add_up(self):
        files = [plugin(name, version=3, run_once=True, plugin_version="1") for name in "abc"]
        end = self.host(*files).boot("--run-once=a1", "--run-once=b1")
        self.assertEqual(["c"], end.activated)

    def test_of_several_lists_of_flags_the_last_one_counts(self):
        files = [plugin(name, version=3, run_once=False, plugin_version="1", required_flags=[name])
                 for name in "abc"]
        end = self.host(*files).boot("--plugin-flags=a,b", "--plugin-flags=c")
        self.assertEqual(["c"], end.activated)

    def test_an_empty_list_of_flags_takes_back_an_earlier_one(self):
        files = plugin("a", version=3, run_once=False, plugin_version="1", required_flags=["a"])
        end = self.host(files).boot("--plugin-flags=a", "--plugin-flags=")
        self.assertEqual([], end.activated)

    def test_the_last_method_counts_and_an_empty_one_is_none(self):
        end = self.host(plugin("a", ["mark"]), command("mark", "echo ran")).boot("--method=foo", "--method=")
        self.assertEqual(["ran"], end.command_output)

    def test_words_that_are_no_options_are_ignored(self):
        end = self.host(plugin("a")).boot("first", "--plugin=a.json", "second", "--", "--wrong")
        self.assertEqual((0, ["a"], ""), (end.status, end.succeeded, end.stderr))

    def test_a_number_that_is_none_is_ignored_without_a_word(self):
        for words in (("--randomize=abc",), ("--randomize=",), ("--randomize=2147483648",),
                      ("--randomize=-2147483649",), ("--randomize=1e3",), ("--randomize=5 ",),
                      ("--daemon-wait-timeout=abc",), ("--daemon-wait-timeout=4294967296",),
                      ("--daemon-wait-timeout", "")):
            with self.subTest(words):
                self._check_accepted(*words)

    def test_a_number_may_have_a_sign(self):
        self._check_accepted("--randomize=-5", "--randomize=+5", "--daemon-wait-timeout=-1",
                             "--daemon-wait-timeout", "+7")

    def test_a_seed_in_a_word_of_its_own_is_no_seed_and_ignored(self):
        self._check_accepted("--randomize", "5")

    def test_options_that_the_help_text_leaves_out_are_accepted(self):
        self._check_accepted("--run-once=x1", "--plugin-directory=/usr/libexec/bootweave/plugins")

    def _check_accepted(self, *words):
        end = self.host(plugin("a")).boot(*words)
        self.assertEqual((0, ["a"], "", []), (end.status, end.succeeded, end.stderr, end.complaints))
        self.assertIn((NOTICE, "executing start plugin: a"), end.said)
