# SPDX-License-Identifier: Apache-2.0
"""The JSON Schema of plugin files accepts a document exactly when the loader accepts a file with it.

The schema sees values, the loader texts: what JSON readers make of the same text can differ, and a test says
where."""

import glob
import itertools
import json
import os
import warnings

from harness import PLUGINS, SystemTest
from reference_order import read_plugin

with warnings.catch_warnings():
    warnings.simplefilter("ignore")
    import jsonschema

_ROOT = os.path.join(os.path.dirname(os.path.realpath(__file__)), "..", "..")
_SCHEMA = "/usr/share/bootweave/plugin.schema.json"
_ANALYZE = "/usr/bin/bootweave-analyze"

_LEFT_OUT = object()
_VALUES = [_LEFT_OUT, None, True, False, 0, 1.5, "", "text", [], ["a", "b"], ["a", 1], [["a"]], [None], {},
           {"a": "b"}]
_VERSIONS = [1, 2, 3, 4]
_OTHER_VERSIONS = [0, -1, 0.5, 0.999, 1.0, 1.999, 2.5, 3.9, 4.9, 4.999999, 5, 5.0, 1e3, -1e300, 2**31 + 1,
                   2**32 + 3, 2**64 + 3]
_METADATA = ["version", "requires", "provides", "required_flags", "disabling_flags", "run_once",
             "plugin_version", "unknown"]
_OPERATIONS = ["start", "apply_host_profile", "unknown"]


def _good(version):
    """A document that is right in every version, with every key in it."""
    return {"metadata": {"version": version, "requires": ["a"], "provides": [], "required_flags": ["f"],
                         "disabling_flags": [], "run_once": False, "plugin_version": "1"},
            "operations": {"start": ["a b"], "apply_host_profile": []}}


def _changed(document, path, value):
    """The document with another value in one place, or without it."""
    changed = json.loads(json.dumps(document))
    *parents, key = path
    place = changed
    for parent in parents:
        place = place[parent]
    if value is _LEFT_OUT:
        place.pop(key, None)
    else:
        place[key] = value
    return changed


def _documents():
    """Every key of every version with a value of every type, and without; and what stands beside objects."""
    yield from (value for value in _VALUES if value is not _LEFT_OUT)
    for version in _VERSIONS + _OTHER_VERSIONS:
        yield _good(version)
    paths = [("metadata",), ("operations",), ("unknown",), *(("metadata", key) for key in _METADATA),
             *(("operations", key) for key in _OPERATIONS)]
    for version, path, value in itertools.product(_VERSIONS, paths, _VALUES):
        yield _changed(_good(version), path, value)
    # What is not read is not looked at either, in any number.
    for version, one, other in itertools.product(_VERSIONS, _METADATA[3:7], _METADATA[3:7] + [None]):
        bad = _changed(_good(version), ("metadata", one), {})
        yield bad if other is None else _changed(bad, ("metadata", other), _LEFT_OUT)


class SchemaTest(SystemTest):
    """Base of the cases: both verdicts."""

    def _schema(self):
        return json.loads(self.host().run("/bin/cat", _SCHEMA).stdout)

    def _refused(self, texts):
        """The reasons for which the loader refuses files with these texts, None for those that it loads."""
        host = self.host({f"{PLUGINS}/{number}.json": text for number, text in enumerate(texts)})
        end = host.run(_ANALYZE, "verify", "--json")
        reasons = {finding["plugin"]: finding["text"].split("' is invalid: ")[1]
                   for finding in json.loads(end.stdout)["findings"] if finding["kind"] == "not-loaded"}
        return [reasons.get(str(number)) for number in range(len(texts))]

    def _accepted(self, documents):
        validator = jsonschema.Draft7Validator(self._schema())
        return [validator.is_valid(document) for document in documents]

    def _assert_same(self, documents, texts):
        refused = self._refused(texts)
        accepted = self._accepted(documents)
        for text, reason, is_valid in zip(texts, refused, accepted):
            with self.subTest(text=text[:500], reason=reason):
                self.assertEqual(reason is None, is_valid)
        return refused


class PluginSchemaTest(SchemaTest):
    """The installed schema."""

    def test_it_is_a_schema(self):
        jsonschema.Draft7Validator.check_schema(self._schema())

    def test_it_has_the_keys_that_the_loader_reads_and_no_others(self):
        properties = self._schema()["properties"]
        self.assertEqual(["metadata", "operations"], list(properties))
        self.assertEqual(_METADATA[:-1], list(properties["metadata"]["properties"]))
        self.assertEqual(_OPERATIONS[:-1], list(properties["operations"]["properties"]))

    def test_on_every_key_with_every_type_in_every_version_it_agrees_with_the_loader(self):
        documents = list(_documents())
        refused = self._assert_same(documents, [json.dumps(document) for document in documents])
        # Of both there are many, and of each reason some.
        self.assertGreater(refused.count(None), 300)
        self.assertEqual({
            None, "plugin root is not an object", "invalid metadata interface",
            "metadata is corrupt (unable to parse version)", "Unsupported API version",
            "metadata is corrupt (unable to parse requires)", "requires tag is not a string",
            "metadata is corrupt (unable to parse provides)", "provides tag is not a string",
            "metadata is corrupt (unable to parse required_flags)", "required_flags tag is not a string",
            "metadata is corrupt (unable to parse disabling_flags)", "disabling_flags tag is not a string",
            "metadata is corrupt (unable to parse run_once)",
            "metadata is corrupt (unable to parse plugin_version)", "invalid operations interface",
            "operations is corrupt (unable to parse start)", "command is not a string",
            "operations is corrupt (unable to parse apply-host-profile)"}, set(refused))

    def test_on_the_plugins_of_the_examples_it_agrees_with_the_loader(self):
        paths = sorted(glob.glob(f"{_ROOT}/examples/**/plugins/**/*.json", recursive=True))
        texts = []
        for path in paths:
            with open(path, encoding="utf-8") as file:
                texts.append(file.read())
        texts = [text for text, path in zip(texts, paths) if not path.endswith("/no-json.json")]
        refused = self._assert_same([read_plugin(text) for text in texts], texts)
        self.assertGreater(len(refused), 40)
        self.assertEqual(1, len(refused) - refused.count(None))


class DifferenceTest(SchemaTest):
    """Texts that the loader refuses, while another reader of JSON finds a document in them that the schema
    accepts; and the other way round."""

    def _assert_differs(self, text, document):
        data = text if isinstance(text, bytes) else text.encode()
        self.assertEqual([True], self._accepted([document]))
        self.assertEqual(["plugin root is not an object"], self._refused([data]))

    def test_encodings_but_utf_8_are_refused_by_the_loader_alone(self):
        text = json.dumps(_good(3))
        for encoding in ("utf-16", "utf-32", "utf-8-sig"):
            with self.subTest(encoding=encoding):
                data = text.encode(encoding)
                self._assert_differs(data, json.loads(data))
        latin = text.replace('"1"', '"\u00e4"').encode("latin-1")
        self._assert_differs(latin, json.loads(latin.decode("latin-1")))

    def test_numbers_that_are_none_in_json_are_refused_by_the_loader_alone(self):
        for number in ("NaN", "Infinity"):
            text = json.dumps(_changed(_good(1), ("unknown",), 0))
            text = text.replace('"unknown": 0', f'"unknown": {number}')
            self._assert_differs(text, json.loads(text))

    def test_nesting_deeper_than_32_is_refused_by_the_loader_alone(self):
        deepest = _changed(_good(1), ("unknown",), json.loads("[" * 31 + "]" * 31))
        self._assert_same([deepest], [json.dumps(deepest)])
        deeper = _changed(_good(1), ("unknown",), json.loads("[" * 32 + "]" * 32))
        self._assert_differs(json.dumps(deeper), deeper)

    def test_half_a_character_is_refused_by_the_loader_alone(self):
        text = json.dumps(_good(1)).replace('"a b"', '"\\ud800"')
        self._assert_differs(text, json.loads(text))

    def test_comments_and_trailing_commas_are_for_readers_that_know_them(self):
        text = "/* a */ " + json.dumps(_good(4)).replace("}}", "},} // b")
        self.assertEqual([None], self._refused([text]))
        self.assertEqual([True], self._accepted([read_plugin(text)]))
        with self.assertRaises(ValueError):
            json.loads(text)

    def test_of_a_repeated_key_the_last_one_counts_for_the_loader(self):
        text = json.dumps(_good(1))
        texts = ['{"metadata": 1, ' + text[1:], text[:-1] + ', "metadata": 1}']
        self._assert_same([json.loads(text) for text in texts], texts)
        self.assertEqual([None, "invalid metadata interface"], self._refused(texts))

    def test_what_is_too_large_to_be_read_is_refused_by_the_loader_alone(self):
        document = json.dumps(_good(1))
        host = self.host({f"{PLUGINS}/large.json": document})
        end = host.shell(f"head -c 67108865 /dev/zero | tr '\\\\0' ' ' >>{PLUGINS}/large.json; "
                         f"exec {_ANALYZE} verify --json")
        self.assertEqual([f"plugin `{PLUGINS}/large.json' is invalid: no such file or directory"],
                         [finding["text"] for finding in json.loads(end.stdout)["findings"]
                          if finding["kind"] == "not-loaded"])
        self.assertEqual([True], self._accepted([json.loads(document)]))
