# SPDX-License-Identifier: Apache-2.0
"""Names as long as they can be, of every byte that their channel can carry, in all that shows them."""

import gzip
import os
import re

from harness import ALERT, NOTICE, PLUGINS, SystemTest, plugin
from native_build import native

_LENGTH = 4000
_LONGEST_FILE_NAME = 255
_LARGEST_KERNEL_RECORD = 900
_DEBUG_CONF = "/etc/corvane/bootweave/debug.conf"
_RECORD = "/bootbank/bootweav.gz"
_PROFILE = "/var/log/sysboot.log"
_ANY = bytes(range(1, 256))
# What a bare byte is no part of: characters of two to four bytes, two of them control characters.
_WIDE = "é\u0080\u009f€😀".encode()
_RUN_AND_DUMP = ("bootweave {0} >/run/out; rm /run/corvane/*.sock; "
                 "bootweave --dump-dependency-tree=/run/dot {0} >/run/out2")


def _text(length, alphabet, without=b""):
    """So many bytes: every byte of the alphabet but some, and wide characters, as often as there is room."""
    once = _WIDE + bytes(byte for byte in alphabet if byte not in without)
    # A blank at either end would be trimmed.
    return b"<" + (once * (length // len(once) + 1))[:length - 2] + b">"


def _units(data):
    """What a log shows of each character: itself, or an escape for each of its bytes."""
    for character in data.decode("utf-8", "surrogateescape"):
        raw = character.encode("utf-8", "surrogateescape")
        code = ord(character) & 0xFF if "\udc80" <= character <= "\udcff" else ord(character)
        if character != "\t" and (code < 0x20 or 0x7F <= code <= 0x9F):
            yield from (b"\\x%02x" % byte for byte in raw)
        else:
            yield raw


def _shown(data):
    """What a log shows of a text."""
    return b"".join(_units(data))


def _kernel_record(level, text):
    """The line of the kernel's log for a text; a long one ends in dots behind a whole character."""
    record = b"<%d>bootweave: " % level
    if len(record + _shown(text)) < _LARGEST_KERNEL_RECORD:
        return record + _shown(text)
    for unit in _units(text):
        if len(record) + len(unit) > _LARGEST_KERNEL_RECORD - len("...\n"):
            break
        record += unit
    return record + b"..."


def _argument(data):
    return os.fsdecode(data)


def _in_c(data):
    """For a string of C source."""
    return "".join(f"\\{byte:03o}" for byte in data)


def _in_list(data):
    """For a list of the debug configuration."""
    return re.sub(rb"""([\\"',])""", rb"\\\1", data).replace(b"\n", b"\\n")


def _in_label(data):
    return re.sub(rb'(["\\])', rb"\\\1", data)


class LongNameTest(SystemTest):
    def _messages(self, end, path="/run/out"):
        """The messages of the log, as their bytes."""
        lines = end.read_bytes(path).split(b"\n")
        self.assertEqual(b"", lines.pop())
        for line in lines:
            self.assertRegex(line, rb"\A\d{4}-\d\d-\d\dT[\d:.]{12}Z bootweave\[\d+\]: ")
        return [line.partition(b"]: ")[2] for line in lines]

    def _check_ran(self, end, *names):
        """That each of these plugins ran, and is named in every place."""
        messages = self._messages(end)
        kernel = end.read_bytes("kmsg").split(b"\n")
        profile = end.read_bytes(_PROFILE)
        syslog = end.read_bytes("syslog")
        dot = end.read_bytes("/run/dot")
        for name in names:
            begins = b"executing start plugin: " + _shown(name)
            self.assertEqual(1, messages.count(begins))
            self.assertIn(b": " + begins + b"\n", syslog)
            for text in b"Activating Bootweave plugin %s.", b"Bootweave plugin %s activated.":
                self.assertEqual(1, kernel.count(_kernel_record(NOTICE, text % name)))
            self.assertEqual(1, profile.count(b"] sysboot: " + _shown(name) + b"\n"))
            self.assertEqual(1, dot.count(b' [label="' + _in_label(name) + b'"];\n'))

    def test_a_file_name_of_255_bytes_of_every_kind(self):
        low = _text(_LONGEST_FILE_NAME - len(".json"), _ANY[:0x7F], without=b"/")
        high = _text(_LONGEST_FILE_NAME - len(".json"), _ANY[0x7F:])
        object_name = _text(_LONGEST_FILE_NAME - len(".so"), _ANY[0x7F:])
        document = '{"metadata": {"version": 1, "requires": [], "provides": []}, "operations": {"start": []}}'
        files = {f"{PLUGINS}/{_argument(name)}.json": document for name in (low, high)}
        end = self.host(files, native("x", file_name=_argument(object_name) + ".so")).shell(
            _RUN_AND_DUMP.format(""))
        self.assertEqual((0, []), (end.status, end.complaints))
        self._check_ran(end, low, high)
        self._check_ran(end, object_name)

    def test_a_file_name_of_255_bytes_that_is_no_plugin(self):
        name = _text(_LONGEST_FILE_NAME, _ANY, without=b"/.")
        other = _text(100, _ANY[:0x7F], without=b"/.") + b"." + _text(154, _ANY[0x7F:])
        end = self.host({f"{PLUGINS}/{_argument(file)}": "" for file in (name, other)}).shell(
            "bootweave >/run/out")
        expected = {b"ignoring plugin '" + _shown(name) + b"' of unspecified type...",
                    b"ignoring plugin '" + _shown(other) + b"' of unknown type (" +
                    _shown(other.partition(b".")[2]) + b")..."}
        self.assertLessEqual(expected, set(self._messages(end)))

    def test_a_debug_injections_name_and_barriers_of_4000_bytes(self):
        first = _text(_LENGTH, _ANY, without=b":\n")
        second = b"2" + first[:-1]
        barrier = _text(_LENGTH, _ANY, without=b":")
        missing = b"-" + barrier[:-1] + b"-"
        fields = [(first, b"none", _in_list(barrier), b"exit 1"),
                  (second, _in_list(barrier) + b"," + _in_list(missing), b"end", b"true"),
                  (b"none", b"end2", b"none", b"true")]
        end = self.host({_DEBUG_CONF: b"".join(b":".join(line) + b"\n" for line in fields)}).shell(
            _RUN_AND_DUMP.format(""))
        self.assertEqual(0, end.status)
        self._check_ran(end, first, second)
        messages = self._messages(end)
        self.assertIn(b"debug injection '" + _shown(first) + b"' returned 0x000100", messages)
        unknown = (b'Bootweave dependency error: Initialization barrier "' + missing +
                   b'" is not provided by any plugin but the following plugins require it: "' + second + b'"')
        self.assertIn(_shown(unknown), messages)
        begun = [messages.index(b"executing start plugin: " + _shown(name)) for name in (first, second)]
        self.assertLess(*begun)
        dot = end.read_bytes("/run/dot")
        for name in barrier, missing:
            self.assertEqual(1, dot.count(b' [label="' + _in_label(name) + b'" shape=box];\n'))

    def test_a_native_plugins_barriers_of_4000_bytes_of_every_value(self):
        barrier = _text(_LENGTH, _ANY)
        missing = barrier[:-1] + b"-"
        end = self.host(native("a", requires=[_in_c(barrier)]), native("b", provides=[_in_c(barrier)]),
                        native("c", requires=[_in_c(missing)])).shell(_RUN_AND_DUMP.format(""))
        self.assertEqual(0, end.status)
        self._check_ran(end, b"a", b"b", b"c")
        self.assertLess(end.activated.index("b"), end.activated.index("a"))
        unknown = (b'Bootweave dependency error: Initialization barrier "' + missing +
                   b'" is not provided by any plugin but the following plugins require it: "c"')
        self.assertEqual([_shown(unknown)],
                         [message for message in self._messages(end) if b"error" in message])
        self.assertEqual(1, end.read_bytes("kmsg").count(_kernel_record(ALERT, unknown) + b"\n"))
        self.assertEqual(1, end.read_bytes("/run/dot").count(
            b' [label="' + _in_label(barrier) + b'" shape=box];\n'))

    def test_a_json_plugins_barriers_and_flags_of_4000_bytes_of_all_that_is_text(self):
        characters = "".join(map(chr, range(1, 0x100))) + _WIDE.decode()
        text = (characters * (_LENGTH // len(characters.encode()) + 1)).replace(",", "")
        barrier = text.encode()[:_LENGTH].decode(errors="ignore")
        missing = barrier + "-"
        both = {"version": 3, "run_once": False, "plugin_version": ""}
        host = self.host(plugin("a", requires=[barrier]), plugin("b", provides=[barrier]),
                         plugin("c", requires=[missing]), plugin("d", required_flags=[barrier], **both),
                         plugin("e", disabling_flags=[barrier], **both))
        end = host.shell('bootweave "$0" >/run/out; rm /run/corvane/*.sock; '
                         'bootweave --dump-dependency-tree=/run/dot "$0" >/run/out2',
                         "--plugin-flags=" + barrier)
        self.assertEqual(0, end.status)
        self._check_ran(end, b"a", b"b", b"c", b"d")
        self.assertLess(end.activated.index("b"), end.activated.index("a"))
        unknown = (f'Bootweave dependency error: Initialization barrier "{missing}" is not provided by any '
                   'plugin but the following plugins require it: "c"').encode()
        disabled = b"ignoring plugin 'e', disabled due to boot flags: " + _shown(barrier.encode()) + b" ."
        self.assertLessEqual({_shown(unknown), disabled}, set(self._messages(end)))
        self.assertIn(_kernel_record(ALERT, unknown), end.read_bytes("kmsg").split(b"\n"))
        self.assertEqual(1, end.read_bytes("/run/dot").count(
            b' [label="' + _in_label(barrier.encode()) + b'" shape=box];\n'))

    def test_boot_flags_of_4000_bytes_of_every_value_but_the_comma(self):
        flag = _text(_LENGTH, _ANY, without=b",")
        other = flag[:-1] + b"-"
        host = self.host(native("a", version=3, required_flags=[_in_c(flag)]),
                         native("b", version=3, disabling_flags=[_in_c(flag)]),
                         native("c", version=3, required_flags=[_in_c(other)]))
        end = host.shell('exec bootweave "$0" >/run/out', _argument(b"--plugin-flags=x," + flag))
        self.assertEqual((0, ["a"]), (end.status, end.succeeded))
        disabled = b"ignoring plugin 'b', disabled due to boot flags: " + _shown(flag) + b" ."
        missing = (b"ignoring plugin 'c', disabled due to missing required boot flags: " + _shown(other) +
                   b" .")
        self.assertLessEqual({disabled, missing}, set(self._messages(end)))

    def test_run_once_versions_and_keys_of_4000_bytes(self):
        version = _text(_LENGTH, _ANY, without=b",")
        key = version[:-1] + b"-"
        host = self.host(native("a", version=3, run_once=1, plugin_version=_in_c(version)))
        end = host.shell('exec bootweave "$0" >/run/out', _argument(b"--run-once=" + key))
        kept = b"a" + re.sub(rb"[^-a-zA-Z0-9._+]", b"", version)
        self.assertEqual((0, ["a"]), (end.status, end.succeeded))
        self.assertEqual(b"bootweave.run-once=%s,%s,\n" % tuple(sorted([kept, key])),
                         gzip.decompress(end.read_bytes(_RECORD)))
        end = host.shell('exec bootweave "$0" >/run/out', _argument(b"--run-once=a" + version))
        self.assertEqual([], end.activated)
        self.assertIn(b"ignoring plugin 'a' because version '" + _shown(version) +
                      b"'  has already been run.", self._messages(end))

    def test_a_denylist_of_names_of_255_bytes(self):
        name = _text(_LONGEST_FILE_NAME - len(".so"), _ANY, without=b"/,")
        end = self.host(native("a", file_name=_argument(name) + ".so")).shell(
            'exec bootweave "$0" >/run/out', _argument(b"--disable-plugins=" + name))
        self.assertIn(b"ignoring plugin '" + _shown(name) + b"' due to denylist.", self._messages(end))
        self.assertEqual((0, []), (end.status, end.activated))
