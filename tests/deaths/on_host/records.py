# SPDX-License-Identifier: Apache-2.0
"""The profile and the run-once record: what is there, and whether it is all old or all new."""

import dataclasses
import os
import re
import zlib

PROFILE = "/var/log/sysboot.log"
RECORD = "/bootbank/bootweav.gz"
_PREFIX = "bootweave.run-once="

_STAMP = r"\d{4}-\d\d-\d\d \d\d:\d\d:\d\d\.\d{6}"
_NEVER = "1970-01-01"


class Wrong(Exception):
    """Says what is not as it has to be."""


def expect(condition, text):
    """Raises Wrong with the text unless the condition holds."""
    if not condition:
        raise Wrong(text)


@dataclasses.dataclass(frozen=True)
class Records:
    """The bytes of both files, None for one that is not there, and what else lies beside them."""
    profile: bytes | None
    record: bytes | None
    temporaries: frozenset

    @staticmethod
    def now():
        return Records(_read(PROFILE), _read(RECORD), frozenset(_temporaries()))


def _read(path):
    try:
        with open(path, "rb") as file:
            return file.read()
    except FileNotFoundError:
        return None


def _temporaries():
    for path in PROFILE, RECORD:
        directory, name = os.path.split(path)
        yield from (f"{directory}/{found}" for found in os.listdir(directory)
                    if found.startswith(name) and found != name)


def keys_of(record):
    """The keys of a record, which must be whole; none when it is not there."""
    if record is None:
        return set()
    unpacker = zlib.decompressobj(wbits=31)
    try:
        text = unpacker.decompress(record).decode()
    except (zlib.error, UnicodeDecodeError) as error:
        raise Wrong(f"the record is damaged: {error}: {record!r}") from None
    expect(unpacker.eof and not unpacker.unused_data, f"the record is not one whole member: {record!r}")
    expect(text.startswith(_PREFIX) and text.endswith("\n"), f"the record holds {text!r}")
    keys = text[len(_PREFIX):-1].split(",")
    expect(keys.pop() == "" and keys == sorted(set(keys)), f"the record holds {text!r}")
    return set(keys)


def pack_keys(keys):
    """The bytes of a record with these keys."""
    packer = zlib.compressobj(wbits=31)
    return packer.compress((_PREFIX + "".join(f"{key}," for key in sorted(keys)) + "\n").encode()) + \
        packer.flush()


def age_of_record(old, new, keys):
    """Whether a record is the "old" one, byte for byte, or the "new" one with exactly these keys."""
    if new == old:
        return "old"
    expect(new is not None, "the record is gone")
    found = keys_of(new)
    expect(found == keys, f"the record has the keys {sorted(found)}, not {sorted(keys)}")
    return "new"


def age_of_profile(old, new, block, names):
    """Whether a profile is the "old" one, byte for byte, or the "new" one.

    :param block: regular expression of what a run writes, with its plugins' lines as the first group
    :param names: the plugins, sorted
    """
    if new == old:
        return "old"
    expect(new is not None, "the profile is gone")
    text = new.decode(errors="replace")
    found = re.fullmatch(block, text)
    expect(found, f"the profile is neither the old one nor a whole new one:\n{text}")
    listed = sorted(re.findall(r": ([^:\n]+)\n", found[1]))
    expect(listed == names, f"the profile lists {listed}, not {names}")
    expect(_NEVER not in found[1], f"a plugin has not run:\n{found[1]}")
    return "new"


def boot_block(parallel, seed):
    """What a boot writes, as a regular expression for age_of_profile()."""
    return (rf"Mantle Initialization Time: \d+000000\n((?:\[{_STAMP} - {_STAMP}\] sysboot: [^\n]+\n)*)"
            rf"=== Bootweave configuration info ===\n Start: {_STAMP}\n End: {_STAMP}\n"
            + _settings(parallel, seed))


def daemon_block(old, parallel, seed):
    """The same for a daemon run behind an old profile."""
    return (re.escape(old.decode()) + rf"((?:\[{_STAMP} - {_STAMP}\] daemon: [^\n]+\n)*)"
            rf"=== Daemon configuration info ===\n Start Daemon: {_STAMP}\n End Daemon: {_STAMP}\n"
            + _settings(parallel, seed))


def _settings(parallel, seed):
    return (rf" Verbose: 0\n Parallel: {int(parallel)}\n Randomize: 1\n Interactive Mode: 0\n"
            rf" Random Seed: {seed}\n")
