# SPDX-License-Identifier: Apache-2.0
"""The lister of init scripts that comes with the program."""

import os

from harness import STAGE_VARIABLE, File, Link, SystemTest

LISTER = "/usr/libexec/bootweave/chkconfig"
_USAGE = "usage: chkconfig -p\n"

# This machine's own scripts and links are none of the host's; it has none of its own before "put" makes them.
_CLEAR = """
for place in /etc/init.d /etc/rc?.d; do
    [ ! -d "$place" ] || mount -t tmpfs none "$place"
done
put() {
    mkdir -p "${1%/*}"
    case $2 in
    -) printf '#!/bin/sh\\n' >"$1"; chmod 755 "$1" ;;
    *) ln -s "$2" "$1" ;;
    esac
}
"""


def _script(name):
    """A line that makes a script."""
    return f"put '/etc/init.d/{name}' -"


def _link(link, target=None, levels="2345"):
    """Lines that make a start link in each of these run levels, to the script of its own name by default."""
    target = f"../init.d/{link[3:]}" if target is None else target
    return "\n".join(f"put '/etc/rc{level}.d/{link}' '{target}'" for level in levels)


class ChkconfigTest(SystemTest):
    def _list(self, *lines, errors=""):
        """The lister's lines on a host with just these scripts and links."""
        end = self.host(setup=_CLEAR + "\n".join(lines)).run(LISTER, "-p")
        self.assertEqual((0, errors), (end.status, end.stderr))
        return end.stdout.splitlines()

    def test_each_script_is_a_line_of_path_and_priority(self):
        self.assertEqual(["/etc/init.d/a 10"], self._list(_script("a"), _link("S10a")))

    def test_scripts_come_by_priority_as_a_number_and_then_by_name_as_bytes(self):
        names = ["S09b", "S10z", "S10B", "S10a", "S99a2", "S00last"]
        found = self._list(*[_script(name[3:]) + "\n" + _link(name) for name in names])
        self.assertEqual(["/etc/init.d/last 0", "/etc/init.d/b 9", "/etc/init.d/B 10", "/etc/init.d/a 10",
                          "/etc/init.d/z 10", "/etc/init.d/a2 99"], found)

    def test_the_order_does_not_depend_on_the_callers_language(self):
        lines = [_script("B"), _script("a"), _link("S10B"), _link("S10a")]
        end = self.host(setup=_CLEAR + "\n".join(lines)).run(
            LISTER, "-p", environment={"LC_ALL": "en_US.UTF-8"})
        self.assertEqual("/etc/init.d/B 10\n/etc/init.d/a 10\n", end.stdout)

    def test_a_script_is_listed_once_with_its_lowest_priority(self):
        found = self._list(_script("a"), _script("b"), _link("S30a", levels="2"), _link("S20a", levels="35"),
                           _link("S80a", levels="5"), _link("S25b"))
        self.assertEqual(["/etc/init.d/a 20", "/etc/init.d/b 25"], found)

    def test_a_start_link_of_one_run_level_from_2_to_5_is_enough(self):
        found = self._list(*[_script(name) for name in "abcd"], _link("S40a", levels="2"),
                           _link("S30b", levels="3"), _link("S20c", levels="4"), _link("S10d", levels="5"))
        self.assertEqual(["/etc/init.d/d 10", "/etc/init.d/c 20", "/etc/init.d/b 30", "/etc/init.d/a 40"],
                         found)

    def test_other_run_levels_do_not_count(self):
        self.assertEqual([], self._list(_script("a"), _link("S10a", levels="016S")))

    def test_only_start_links_count(self):
        others = [_link(name, "../init.d/a") for name in ("K10a", "s10a", "S1a", "Sa", "S1xa", "10a", "S10")]
        self.assertEqual([], self._list(_script("a"), *others, _link(".S10a", "../init.d/a")))

    def test_the_path_is_that_of_the_script_whatever_the_link_is_called(self):
        self.assertEqual(["/etc/init.d/a 10"], self._list(_script("a"), _link("S10b", "../init.d/a")))

    def test_an_absolute_link_and_one_over_another_link_lead_to_the_script_too(self):
        found = self._list(_script("a"), _script("b"), _link("S10a", "/etc/init.d/a"),
                           _link("S20c", "/run/detour"), "ln -s /etc/../etc/init.d/./b /run/detour")
        self.assertEqual(["/etc/init.d/a 10", "/etc/init.d/b 20"], found)

    def test_a_script_that_is_a_link_itself_keeps_its_own_name(self):
        found = self._list("put /opt/job -", "put /etc/init.d/a /opt/job", "put /etc/init.d/b /opt/job",
                           _link("S10a"), _link("S20b"))
        self.assertEqual(["/etc/init.d/a 10", "/etc/init.d/b 20"], found)

    def test_a_directory_of_scripts_that_is_a_link_is_still_the_one(self):
        found = self._list("umount /etc/init.d; rm -rf /etc/init.d; ln -s rc.d/init.d /etc/init.d",
                           "put /etc/rc.d/init.d/a -", _link("S10a", "../rc.d/init.d/a"),
                           _link("S20b", "../init.d/a"))
        self.assertEqual(["/etc/init.d/a 10"], found)

    def test_links_that_lead_nowhere_are_left_out(self):
        found = self._list(_script("a"), _link("S10gone"), _link("S20b", "/etc/init.d/b"),
                           "put /etc/init.d/b /opt/gone", _link("S30loop", "S30loop"), _link("S40a"))
        self.assertEqual(["/etc/init.d/a 40"], found)

    def test_links_that_lead_elsewhere_are_left_out(self):
        found = self._list("put /opt/a -", _link("S10a", "/opt/a"), "mkdir -p /etc/init.d/d/e",
                           _link("S20d"), _link("S30init.d", "../init.d"), _link("S40e", "../init.d/d/e"))
        self.assertEqual([], found)

    def test_what_lies_beside_the_links_without_being_one_is_left_out(self):
        self.assertEqual([], self._list(_script("a"), "put /etc/rc3.d/S10a -", "mkdir /etc/rc3.d/S20d"))

    def test_a_script_that_may_not_be_executed_is_listed_so_that_its_failure_is_seen(self):
        self.assertEqual(["/etc/init.d/a 10"],
                         self._list(_script("a"), "chmod 644 /etc/init.d/a", _link("S10a")))

    def test_names_may_hold_whatever_is_no_white_space_and_no_control_character(self):
        names = ['q"q', "$HOME", "`id`", "*", "a;b", "-p", "\\n", "näme", "%s", "S10a"]
        found = self._list(*[_script(name) for name in names],
                           *[_link(f"S10{name}", levels="3") for name in names])
        self.assertEqual(sorted(f"/etc/init.d/{name} 10" for name in names), found)

    def test_a_name_that_the_list_cannot_hold_is_left_out_with_a_word(self):
        # Read as words, the first would be another script's path and a number.
        for name, shown in (("a 5", "a 5"), ("a\tb", "a?b"), ("a\nb", "a?b"), ("a\x1b[1m", "a?[1m")):
            with self.subTest(name):
                found = self._list(_script(name), _script("b"), _link("S20b"),
                                   _link("S10x", f"../init.d/{name}", "3"),
                                   errors=f"chkconfig: left out for its name: /etc/init.d/{shown}\n")
                self.assertEqual(["/etc/init.d/b 20"], found)

    def test_a_host_without_scripts_or_run_levels_has_an_empty_list(self):
        self.assertEqual([], self._list())
        self.assertEqual([], self._list("umount /etc/init.d /etc/rc?.d; rm -rf /etc/init.d /etc/rc?.d"))

    def test_a_list_that_cannot_be_written_is_a_failure(self):
        end = self.host(setup=_CLEAR + _script("a") + "\n" + _link("S10a")).shell(f"{LISTER} -p >/dev/full")
        self.assertNotEqual(0, end.status)
        self.assertIn("No space left on device", end.stderr)

    def test_anything_but_the_one_option_is_wrong_usage(self):
        host = self.host(setup=_CLEAR + _script("a") + "\n" + _link("S10a"))
        for words in ((), ("-p", "-p"), ("-p", ""), ("",), ("--list",), ("-l",), ("a", "on"), ("p",)):
            with self.subTest(words):
                end = host.run(LISTER, *words)
                self.assertEqual((2, "", _USAGE), (end.status, end.stdout, end.stderr))

    def test_it_is_not_installed_where_a_host_may_have_a_lister_of_its_own(self):
        found = [os.path.join(directory, name) for directory, _, names in os.walk(os.environ[STAGE_VARIABLE])
                 for name in names if name == "chkconfig" and "/examples/" not in directory]
        self.assertEqual([os.environ[STAGE_VARIABLE] + LISTER], found)


class InitScriptsTest(SystemTest):
    """The program and the lister together."""

    def test_the_program_starts_what_the_lister_lists(self):
        files = {f"/opt/{name}": File(f"#!/bin/sh\necho {name} >>/run/order\n", 0o755) for name in "abc"}
        lines = [f"cp /opt/{name} /etc/init.d/" for name in "abc"]
        lines += [_link("S20a"), _link("S30b", levels="2"), _link("S10b", levels="3"),
                  _link("S10c", levels="0")]
        host = self.host(files, {"/bin/chkconfig": Link(LISTER)}, setup=_CLEAR + "\n".join(lines))
        end = host.boot("--daemon=wait", "--method=start")
        self.assertEqual((0, "b\na\n"), (end.status, end.read("/run/order")))
