# SPDX-License-Identifier: Apache-2.0
"""JSON plugin files: what is read, what is refused and why, and how their commands are run."""

import json

from harness import ERROR, EXECUTOR_LOG, PLUGINS, SystemTest, command, plugin

_PROFILE = {"/etc/corvane/hostprofile.xml": "<profile/>\n"}
_V1 = {"version": 1, "requires": [], "provides": []}
_V3 = {"version": 3, "requires": [], "provides": [], "run_once": False, "plugin_version": "1"}
_NO_ROOT = "plugin root is not an object"
_NO_METADATA = "invalid metadata interface"
_NO_VERSION = "metadata is corrupt (unable to parse version)"
_NO_REQUIRES = "metadata is corrupt (unable to parse requires)"
_NO_PROVIDES = "metadata is corrupt (unable to parse provides)"
_NO_REQUIRED_FLAGS = "metadata is corrupt (unable to parse required_flags)"
_NO_DISABLING_FLAGS = "metadata is corrupt (unable to parse disabling_flags)"
_NO_RUN_ONCE = "metadata is corrupt (unable to parse run_once)"
_NO_PLUGIN_VERSION = "metadata is corrupt (unable to parse plugin_version)"
_NO_OPERATIONS = "invalid operations interface"
_NO_START = "operations is corrupt (unable to parse start)"
_NO_APPLY = "operations is corrupt (unable to parse apply-host-profile)"
_NO_COMMAND = "command is not a string"
_BAD_VERSION = "Unsupported API version"


def _document(metadata, operations=None, **more):
    return json.dumps({"metadata": metadata, "operations": operations or {"start": []}, **more})


def _without(mapping, key):
    return {name: value for name, value in mapping.items() if name != key}


def _started(*commands):
    return {"start": list(commands)}


class LoadingTest(SystemTest):
    """Each table is one boot: text of a file and why it is refused; None when it is not."""

    def _check(self, *table):
        names = [f"p{number:02}" for number in range(len(table))]
        files = {f"{PLUGINS}/{name}.json": text for name, (text, _) in zip(names, table)}
        end = self.host(files).boot("--plugin=" + ",".join(name + ".json" for name in names))
        self.assertEqual(0, end.status)
        self.assertEqual([(ERROR, f"plugin `{PLUGINS}/{name}.json' is invalid: {reason}")
                          for name, (_, reason) in zip(names, table) if reason is not None], end.complaints)
        self.assertEqual([name for name, (_, reason) in zip(names, table) if reason is None], end.succeeded)

    def test_what_is_no_object_or_no_json_has_no_root(self):
        good = _document(_V1)
        self._check(
            ("", _NO_ROOT), (" \n", _NO_ROOT), ("[]", _NO_ROOT), ("null", _NO_ROOT), ('"text"', _NO_ROOT),
            ("{", _NO_ROOT), (good + "}", _NO_ROOT), (good + good, _NO_ROOT), ("{metadata: {}}", _NO_ROOT),
            (good[:-1], _NO_ROOT), (good.encode("utf-16"), _NO_ROOT), (b"\0" * 5000, _NO_ROOT),
            (b'{"metadata": "\xff"}', _NO_ROOT), ("{" * 100000, _NO_ROOT), ("[" * 1000000, _NO_ROOT),
            ('{"a":' * 100000 + "1" + "}" * 100000, _NO_ROOT), ("/* never closed", _NO_ROOT),
            ("#!/bin/sh\n", _NO_ROOT), (good, None))

    def test_the_metadata_is_an_object(self):
        self._check(
            ("{}", _NO_METADATA), ('{"operations": {"start": []}}', _NO_METADATA),
            (_document([]), _NO_METADATA), (_document(None), _NO_METADATA), (_document("x"), _NO_METADATA),
            ('{"Metadata": {}}', _NO_METADATA), (_document({}), _NO_VERSION))

    def test_the_version_is_a_number_whose_whole_part_is_1_to_4(self):
        def version(text):
            return '{"metadata": {"version": %s, "requires": [], "provides": [], "run_once": false,' \
                   ' "plugin_version": ""}, "operations": {"start": []}}' % text
        self._check(
            (_document(_without(_V1, "version")), _NO_VERSION), (version('"1"'), _NO_VERSION),
            (version("null"), _NO_VERSION), (version("true"), _NO_VERSION), (version("[1]"), _NO_VERSION),
            (version("0.5"), _BAD_VERSION), (version("0"), _BAD_VERSION), (version("-1"), _BAD_VERSION),
            (version("5"), _BAD_VERSION), (version("4294967297"), _BAD_VERSION),
            (version("-4294967295"), _BAD_VERSION), (version("18446744073709551617"), _BAD_VERSION),
            (version("1e300"), _BAD_VERSION), (version("-1e300"), _BAD_VERSION),
            (version("0.99999"), _BAD_VERSION),
            (version("1"), None), (version("2"), None), (version("3.0"), None), (version("4"), None),
            (version("4.9"), None), (version("1.999"), None), (version("4e0"), None),
            (version("0.1e1"), None))

    def test_the_version_is_judged_before_the_keys_behind_it(self):
        self._check((_document({"version": 9}), _BAD_VERSION), (_document({"version": 1}), _NO_REQUIRES))

    def test_requires_and_provides_are_lists_of_strings(self):
        self._check(
            (_document(_without(_V1, "requires")), _NO_REQUIRES),
            (_document({**_V1, "requires": None}), _NO_REQUIRES),
            (_document({**_V1, "requires": "up"}), _NO_REQUIRES),
            (_document({**_V1, "requires": {}}), _NO_REQUIRES),
            (_document({**_V1, "requires": ["a", 1]}), "requires tag is not a string"),
            (_document({**_V1, "requires": [None]}), "requires tag is not a string"),
            (_document({**_V1, "requires": [["a"]]}), "requires tag is not a string"),
            (_document(_without(_V1, "provides")), _NO_PROVIDES),
            (_document({**_V1, "provides": False}), _NO_PROVIDES),
            (_document({**_V1, "provides": ["a", {}]}), "provides tag is not a string"),
            (_document({"version": 1, "provides": 1, "requires": 1}), _NO_REQUIRES),
            (_document(_V1), None))

    def test_the_flags_of_version_3_are_lists_of_strings_when_they_are_there(self):
        self._check(
            (_document({**_V3, "required_flags": None}), _NO_REQUIRED_FLAGS),
            (_document({**_V3, "required_flags": "a"}), _NO_REQUIRED_FLAGS),
            (_document({**_V3, "required_flags": [1]}), "required_flags tag is not a string"),
            (_document({**_V3, "disabling_flags": None}), _NO_DISABLING_FLAGS),
            (_document({**_V3, "disabling_flags": {}}), _NO_DISABLING_FLAGS),
            (_document({**_V3, "disabling_flags": ["a", []]}), "disabling_flags tag is not a string"),
            (_document({**_V3, "disabling_flags": 1, "required_flags": 1}), _NO_REQUIRED_FLAGS),
            (_document({**_V3, "required_flags": [], "disabling_flags": []}), None))

    def test_run_once_and_plugin_version_are_needed_from_version_3_on(self):
        self._check(
            (_document(_without(_V3, "run_once")), _NO_RUN_ONCE),
            (_document({**_without(_V3, "run_once"), "version": 4}), _NO_RUN_ONCE),
            (_document({**_V3, "run_once": 1}), _NO_RUN_ONCE),
            (_document({**_V3, "run_once": "true"}), _NO_RUN_ONCE),
            (_document({**_V3, "run_once": None}), _NO_RUN_ONCE),
            (_document(_without(_V3, "plugin_version")), _NO_PLUGIN_VERSION),
            (_document({**_V3, "plugin_version": 1}), _NO_PLUGIN_VERSION),
            (_document({**_V3, "plugin_version": None}), _NO_PLUGIN_VERSION),
            (_document({**_V3, "run_once": 0, "plugin_version": 0, "disabling_flags": [0]}),
             "disabling_flags tag is not a string"),
            (_document(_V3), None))

    def test_what_version_3_brought_is_not_looked_at_before(self):
        wrong = {"run_once": "yes", "plugin_version": 7, "required_flags": 7, "disabling_flags": [7]}
        self._check((_document({**_V1, **wrong}), None), (_document({**_V1, **wrong, "version": 2}), None),
                    (_document({**_V1, **wrong, "version": 2.99}), None),
                    (_document({**_V1, "required_flags": ["never given"], "version": 2}), None))

    def test_the_operations_are_an_object_with_a_list_of_commands(self):
        self._check(
            (json.dumps({"metadata": _V1}), _NO_OPERATIONS),
            (json.dumps({"metadata": _V1, "operations": []}), _NO_OPERATIONS),
            (json.dumps({"metadata": _V1, "operations": None}), _NO_OPERATIONS),
            (_document(_V1, {"stop": []}), _NO_START), (_document(_V1, {"start": None}), _NO_START),
            (_document(_V1, {"start": "a"}), _NO_START), (_document(_V1, {"start": {}}), _NO_START),
            (_document(_V1, _started("a", 1)), _NO_COMMAND), (_document(_V1, _started(None)), _NO_COMMAND))

    def test_the_host_profile_commands_are_looked_at_from_version_2_on(self):
        v2 = {**_V1, "version": 2}
        self._check(
            (_document(v2, {"start": [], "apply_host_profile": None}), _NO_APPLY),
            (_document(v2, {"start": [], "apply_host_profile": "a"}), _NO_APPLY),
            (_document(v2, {"start": [], "apply_host_profile": [1]}), _NO_COMMAND),
            (_document(v2, {"start": 1, "apply_host_profile": 1}), _NO_START),
            (_document(v2, {"start": [], "apply-host-profile": 1}), None),
            (_document(_V1, {"start": [], "apply_host_profile": 1}), None))

    def test_comments_trailing_commas_and_unknown_keys_are_allowed(self):
        self._check(
            ('// first\n{ /* one */ "metadata": {"version": 1, // two\n'
             '"requires": [/**/], "provides": [],}, "operations": {"start": [],},}\n// last', None),
            (_document({**_V1, "colour": [1, {}]}, {"start": [], "stop": 5}, extra=None), None))


class CommandTest(SystemTest):
    def test_commands_run_in_their_order(self):
        commands = ["say --n=1", "say --n=2", "say --n=3"]
        end = self.host(plugin("a", commands), command("say", "echo $1")).boot()
        self.assertEqual(["--n=1", "--n=2", "--n=3"], end.command_output)

    def test_a_command_that_fails_never_keeps_those_behind_it_from_running(self):
        end = self.host(plugin("a", ["fail", "say --n=2", "say --n=3"]), command("say", "echo $1"),
                        command("fail", "exit 1")).boot()
        self.assertEqual(["--n=2", "--n=3"], end.command_output)
        self.assertEqual({"a": "a->start() failed: error while executing the cli"}, end.failed)
        self.assertEqual(
            [(ERROR, "execution of 'fail' failed : exited with status 1"),
             (ERROR, "Executor failed to execute command: fail"),
             (ERROR, "Executor failed executing hostcli command: fail"),
             (ERROR, "Method invocation failed: a->start() failed: error while executing the cli")],
            end.complaints)

    def test_each_failure_is_a_line_and_all_together_are_one_failed_method(self):
        end = self.host(plugin("a", ["fail --n=1", "fail --n=2"]), command("fail", "exit 1")).boot()
        self.assertEqual(["Executor failed executing hostcli command: fail --n=1",
                          "Executor failed executing hostcli command: fail --n=2",
                          "Method invocation failed: a->start() failed: error while executing the cli"],
                         [message for message in end.messages if "fail" in message])

    def test_an_empty_list_is_a_success(self):
        end = self.host(plugin("a")).boot()
        self.assertEqual((["a"], []), (end.succeeded, end.complaints))

    def test_texts_reach_the_command_as_the_file_has_them(self):
        end = self.host({f"{PLUGINS}/a.json": _document(_V1, _started("say --text='Grüße \\ \"x\" 日本'"))},
                        command("say", 'printf "%s\\n" "$1"')).boot()
        self.assertEqual(['--text=Grüße \\ "x" 日本'], end.command_output)

    def test_the_plugins_own_failure_names_the_method_that_failed(self):
        operations = {"apply_host_profile": ["no.such"]}
        end = self.host(plugin("a", version=2, operations=operations), _PROFILE).boot()
        self.assertEqual({"a": "a->apply_host_profile() failed: error while executing the cli"}, end.failed)

    def test_a_file_with_many_and_with_very_long_names_is_read(self):
        end = self.host(plugin("a", [], requires=[f"r{n}" for n in range(1000)], provides=["x" * 100000]),
                        plugin("b", provides=[f"r{n}" for n in range(1000)])).boot("--plugin=a.json,b.json")
        self.assertEqual(["b", "a"], end.succeeded)


class ForgedTextTest(SystemTest):
    """The text of a command appears in several logs and can forge a line of none."""

    def test_control_characters_of_a_command_are_made_harmless(self):
        line = "x\n2026-11-15T15:04:56.123Z bootweave[1]: all is well"
        end = self.host({f"{PLUGINS}/a.json": _document(_V1, _started(line))}).boot()
        self.assertNotIn("all is well", end.messages + end.executor_messages)
        self.assertIn("Executor failed executing hostcli command: "
                      r"x\x0a2026-11-15T15:04:56.123Z bootweave[1]: all is well", end.messages)
        self.assertEqual([], [text for text in end.read(EXECUTOR_LOG).split("\n")
                              if not text.startswith("20") and text != ""])

    def test_a_null_character_ends_a_command(self):
        end = self.host(plugin("a", ["say --n=1\0 --n=2"]), command("say", 'echo "$*"')).boot()
        self.assertEqual((["a"], ["--n=1"]), (end.succeeded, end.command_output))
