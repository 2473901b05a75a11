# SPDX-License-Identifier: Apache-2.0
"""The record of the plugin versions that have run: over several runs, damaged, and on bad ground."""

import gzip
import zlib

from harness import NOTICE, PLUGINS, File, Link, SystemTest, plugin
from init_scripts import init_scripts

_RECORD = "/bootbank/bootweav.gz"
_PREFIX = "bootweave.run-once="
_INVOKE = "--invoke", "--method=start"


def _once(name, version="1", **metadata):
    return plugin(name, version=3, run_once=True, plugin_version=version, **metadata)


def _packed(text):
    return gzip.compress(text.encode(), mtime=0)


def _text(ending, path=_RECORD):
    """What the record unpacks to; None without one."""
    data = ending.read_bytes(path)
    return None if data is None else gzip.decompress(data).decode()


class WriteTest(SystemTest):
    def _written(self, *files, arguments=()):
        end = self.host(*files).boot(*arguments)
        self.assertEqual((0, []), (end.status, [said for said in end.complaints if "bootbank" in said[1]]))
        return _text(end)

    def test_without_keys_it_is_the_prefix_and_a_newline(self):
        self.assertEqual(_PREFIX + "\n", self._written(plugin("a")))

    def test_keys_are_sorted_by_their_bytes_each_with_a_comma(self):
        self.assertEqual(_PREFIX + "B2,a1,a10,b1,\n",
                         self._written(_once("b"), _once("a"), _once("a1", "0"), _once("B", "2")))

    def test_a_key_is_kept_without_foreign_characters(self):
        self.assertEqual(_PREFIX + "a.b_c-d+e2.0-rc_1+x,\n",
                         self._written(_once("a.b_c-d+é,e", "2.0 -rc_1+x!")))

    def test_keys_that_were_given_are_kept_as_they_are(self):
        self.assertEqual(_PREFIX + "a1,z !,\n", self._written(_once("a"), arguments=["--run-once=z !,a1"]))

    def test_a_plugin_that_fails_counts_as_having_run(self):
        self.assertEqual(_PREFIX + "a1,\n", self._written(
            plugin("a", ["no.such"], version=3, run_once=True, plugin_version="1")))

    def test_plugins_that_take_no_part_do_not_count(self):
        self.assertEqual(_PREFIX + "\n", self._written(
            _once("a"), _once("b", required_flags=["f"]),
            plugin("c", version=3, run_once=False, plugin_version="1"), arguments=["--disable-plugins=a"]))

    def test_every_run_of_the_graph_writes_it(self):
        for arguments in ((), ("--init",), ("--parallel",), ("--method=foo",), (*_INVOKE, "--plugin=a.json"),
                          ("--init", *_INVOKE, "--plugin=a.json")):
            with self.subTest(arguments):
                self.assertEqual(_PREFIX + "a1,\n", self._written(_once("a"), arguments=arguments))

    def test_neither_a_dump_nor_a_daemon_mode_run_writes_it(self):
        host = self.host(_once("a"), init_scripts(s=10))
        for arguments in (("--dump-dependency-tree=/run/dot",), ("--daemon", "--method=start"),
                          ("--daemon", "--method=stop"), ("--init", "--dump-dependency-tree=/run/dot")):
            with self.subTest(arguments):
                self.assertIsNone(_text(host.boot(*arguments)))

    def test_a_run_that_breaks_off_does_not_write_it(self):
        end = self.host().boot("--plugin-directory=/no/where")
        self.assertEqual((1, None), (end.status, _text(end)))

    def test_the_header_has_no_name_no_comment_and_no_time_and_the_checksum_is_right(self):
        data = self.host(_once("a")).boot().read_bytes(_RECORD)
        self.assertEqual(b"\x1f\x8b\x08\x00\x00\x00\x00\x00", data[:8])
        unpacked = zlib.decompress(data, wbits=31)
        self.assertEqual(zlib.crc32(unpacked), int.from_bytes(data[-8:-4], "little"))
        self.assertEqual((_PREFIX + "a1,\n").encode(), unpacked)

    def test_two_runs_write_the_same_bytes(self):
        host = self.host(_once("a"), _once("b"))
        first, second = host.boot(), host.boot("--randomize")
        self.assertEqual(first.read_bytes(_RECORD), second.read_bytes(_RECORD))


class SeveralRunsTest(SystemTest):
    """One host, several runs, with the socket removed in between as a host does."""

    def _runs(self, host, *runs):
        lines = ["rm -f /run/corvane/bootweaveExecutor.sock; bootweave " + " ".join(run) for run in runs]
        end = host.shell(" && ".join(lines))
        self.assertEqual(0, end.status)
        return end

    def test_a_second_boot_does_not_read_the_record_and_runs_all_again(self):
        end = self._runs(self.host(_once("a")), ["--init"], ["--init"], [])
        self.assertEqual((["a"] * 3, _PREFIX + "a1,\n"), (end.activated, _text(end)))

    def test_invoke_mode_reads_it_and_leaves_out_what_has_run(self):
        invoke = [*_INVOKE, "--plugin=a.json,b.json"]
        end = self._runs(self.host(_once("a"), _once("b")), ["--plugin=a.json"], invoke, invoke)
        self.assertEqual((["a", "b"], _PREFIX + "a1,b1,\n"), (end.activated, _text(end)))
        self.assertEqual(["a", "a", "b"], [message.split("'")[1] for message in end.messages
                                           if "has already been run" in message])

    def test_a_new_version_of_a_plugin_runs_and_the_old_key_stays(self):
        new = "sed -i 's/\"plugin_version\": \"1\"/\"plugin_version\": \"2\"/' " + f"{PLUGINS}/a.json"
        end = self.host(_once("a")).shell(
            "bootweave; rm /run/corvane/*.sock; " + new + f"; bootweave {' '.join(_INVOKE)} --plugin=a.json")
        self.assertEqual((["a", "a"], _PREFIX + "a1,a2,\n"), (end.activated, _text(end)))

    def test_a_boot_forgets_what_it_does_not_see(self):
        end = self._runs(self.host(_once("a"), _once("b")), [], ["--disable-plugins=a"])
        self.assertEqual(_PREFIX + "b1,\n", _text(end))

    def test_a_version_with_a_foreign_character_runs_every_time(self):
        invoke = [*_INVOKE, "--plugin=a.json"]
        end = self._runs(self.host(_once("a", "1 0")), invoke, invoke, invoke)
        self.assertEqual((["a"] * 3, _PREFIX + "a10,\n"), (end.activated, _text(end)))

    def test_a_daemon_mode_run_in_between_changes_nothing(self):
        end = self._runs(self.host(_once("a"), init_scripts(s=10)), [], ["--daemon", "--method=start"],
                         [*_INVOKE, "--plugin=a.json"])
        self.assertEqual((["a", "s"], _PREFIX + "a1,\n"), (end.activated, _text(end)))


class ReadTest(SystemTest):
    """Invoke mode with a record that someone else has written; "p" has not run, and what is read is kept."""

    def _keys(self, data, setup=None):
        files = {} if data is None else {_RECORD: File(data)}
        end = self.host(plugin("p"), files, setup=setup).boot(*_INVOKE, "--plugin=p.json", timeout=20)
        self.assertEqual((0, [], ["p"]), (end.status, end.complaints, end.succeeded))
        text = _text(end)
        self.assertRegex(text, rf"\A{_PREFIX}(?s:.*)\n\Z")
        return text[len(_PREFIX):-1]

    def test_without_a_record_there_are_no_keys(self):
        self.assertEqual("", self._keys(None))

    def test_blanks_around_keys_and_empty_keys_are_dropped(self):
        self.assertEqual("a,b,", self._keys(_packed(_PREFIX + " a , ,b\n")))
        self.assertEqual("a b,", self._keys(_packed(_PREFIX + ",,\t\n a b \r,\n,\n\n")))

    def test_a_key_without_a_comma_at_the_end_counts(self):
        self.assertEqual("a,b,", self._keys(_packed(_PREFIX + "a,b")))

    def test_any_other_prefix_holds_no_keys(self):
        for prefix in ("Bootweave.run-once=", "bootweave.run-once:", "bootweave.run_once=", " " + _PREFIX, "",
                       "bootweave.run-once"):
            with self.subTest(prefix):
                self.assertEqual("", self._keys(_packed(prefix + "a,b,\n")))

    def test_what_is_not_packed_holds_no_keys(self):
        for data in (b"", b"\0", (_PREFIX + "a,\n").encode(), b"\x1f\x8b", _packed("")[:5],
                     bytes(range(256))):
            with self.subTest(data):
                self.assertEqual("", self._keys(data))

    def test_a_record_that_other_tools_have_packed_is_read(self):
        pack = f"printf '{_PREFIX}a,b,\\n' >/bootbank/bootweav; gzip -9N /bootbank/bootweav"
        end = self.host(plugin("p"), setup=pack).boot(*_INVOKE, "--plugin=p.json")
        self.assertEqual(_PREFIX + "a,b,\n", _text(end))

    def test_keys_that_were_complete_before_the_damage_count(self):
        whole = _packed(_PREFIX + "first1,second1,third1,\n")
        # Without its checksum, and with a wrong one, everything in it is still there.
        self.assertEqual("first1,second1,third1,", self._keys(whole[:-8]))
        self.assertEqual("first1,second1,third1,", self._keys(whole[:-8] + bytes(8)))
        keys = "".join(f"key{number:05}," for number in range(5000))
        packed = _packed(_PREFIX + keys + "\n")
        found = self._keys(packed[:len(packed) // 2])
        self.assertTrue(keys.startswith(found) and found.endswith(","), found[-30:])
        self.assertGreater(len(found), len(keys) / 4)

    def test_a_record_in_several_members_is_read_to_its_end(self):
        self.assertEqual("a,b,c,", self._keys(_packed(_PREFIX + "a,b") + _packed("") + _packed(",c,\n")))

    def test_garbage_behind_the_record_does_no_harm(self):
        self.assertEqual("a,", self._keys(_packed(_PREFIX + "a,\n") + b"garbage"))

    def test_what_is_no_file_holds_no_keys_and_holds_nothing_up(self):
        self.assertEqual("", self._keys(None, setup=f"mkfifo {_RECORD}"))

    def test_many_keys_come_through(self):
        keys = "".join(f"{number:06},".rjust(40, "k") for number in range(20000))
        self.assertEqual(keys, self._keys(_packed(_PREFIX + keys + "\n")))

    def test_no_other_mode_reads_it(self):
        for arguments in ((), ("--init",), ("--plugin=a.json",)):
            with self.subTest(arguments):
                end = self.host(_once("a"), {_RECORD: File(_packed(_PREFIX + "a1,old,\n"))}).boot(*arguments)
                self.assertEqual((["a"], _PREFIX + "a1,\n"), (end.activated, _text(end)))


class GroundTest(SystemTest):
    """A record that cannot be written costs no word and changes no status; what was there stays whole."""

    def _check_kept(self, setup, names, old=_PREFIX + "old,\n"):
        """The old record, if any, and nothing else is on the boot bank afterwards."""
        files = {} if old is None else {"/root/old.gz": File(_packed(old))}
        # Copied, as what lies on a file system that the set-up has mounted is not kept by itself.
        end = self.host(_once("a"), files, setup=setup).shell(
            f"bootweave; echo ended $?; ls -A /bootbank; cp {_RECORD} /run/record.gz 2>/run/reason; exit 0")
        self.assertIn("ended 0", end.stdout)
        self.assertEqual(names, end.stdout.split("ended 0\n")[1].split())
        self.assertEqual(([], ["a"], ""), (end.complaints, end.succeeded, end.stderr))
        self.assertEqual(old, _text(end, "/run/record.gz"))
        self.assertIn((NOTICE, "Executor has been Successfully Stopped"), end.said)

    def test_without_a_boot_bank(self):
        end = self.host(_once("a"), setup="rmdir /bootbank").boot()
        self.assertEqual((0, [], ["a"], None), (end.status, end.complaints, end.succeeded, _text(end)))

    def test_on_a_read_only_boot_bank(self):
        self._check_kept("mount -t tmpfs none /bootbank; cp /root/old.gz /bootbank/bootweav.gz; "
                         "mount -o remount,ro /bootbank", ["bootweav.gz"])

    def test_on_a_boot_bank_without_room_for_another_file(self):
        self._check_kept("mount -t tmpfs -o nr_inodes=2 none /bootbank; "
                         "cp /root/old.gz /bootbank/bootweav.gz", ["bootweav.gz"])

    def test_on_a_boot_bank_without_room_for_its_content(self):
        self._check_kept("mount -t tmpfs -o size=8k none /bootbank; cp /root/old.gz /bootbank/bootweav.gz; "
                         "dd if=/dev/zero of=/bootbank/full bs=4k count=1 status=none",
                         ["bootweav.gz", "full"])

    def test_with_a_directory_in_its_place(self):
        self._check_kept(f"mkdir {_RECORD}", ["bootweav.gz"], old=None)

    def test_with_links_in_a_circle_in_its_place(self):
        self._check_kept(f"ln -s bootweav.gz {_RECORD}", ["bootweav.gz"], old=None)

    def test_a_damaged_record_is_whole_again_after_the_run(self):
        end = self.host(_once("a"), {_RECORD: File(b"\x1f\x8b damaged")}).boot()
        self.assertEqual((_PREFIX + "a1,\n", []), (_text(end), end.complaints))

    def test_a_fifo_in_its_place_is_replaced_and_holds_nothing_up(self):
        end = self.host(_once("a"), setup=f"mkfifo {_RECORD}").boot(timeout=20)
        self.assertEqual((0, _PREFIX + "a1,\n"), (end.status, _text(end)))

    def test_nothing_else_is_left_on_the_boot_bank(self):
        end = self.host(_once("a")).shell("bootweave; ls -A /bootbank >/run/names")
        self.assertEqual("bootweav.gz\n", end.read("/run/names"))

    def test_the_files_mode_is_kept_and_a_new_one_may_be_read_by_all(self):
        for old, mode in ((None, "644"), (0o600, "600"), (0o640, "640")):
            with self.subTest(mode):
                files = {} if old is None else {_RECORD: File(_packed(_PREFIX), old)}
                end = self.host(_once("a"), files).shell(f"bootweave; stat -c %a {_RECORD} >/run/mode")
                self.assertEqual((mode + "\n", _PREFIX + "a1,\n"), (end.read("/run/mode"), _text(end)))

    def test_a_link_stays_one_and_the_file_behind_it_has_the_record(self):
        for target, path in (("/run/record", "/run/record"), ("../run/corvane/r", "/run/corvane/r")):
            for there in (False, True):
                with self.subTest(target=target, there=there):
                    files = {path: File(_packed(_PREFIX + "old,\n"))} if there else {}
                    end = self.host(_once("a"), files, {_RECORD: Link(target)}).shell(
                        f"bootweave; test -L {_RECORD} && test ! -L {path}")
                    self.assertEqual((0, _PREFIX + "a1,\n"), (end.status, _text(end, path)))
