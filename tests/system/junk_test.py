# SPDX-License-Identifier: Apache-2.0
"""Directories with ten thousand files that have no business there."""

from harness import COMMANDS, ERROR, NOTICE, PLUGINS, WARNING, Link, SystemTest, command, plugin
from init_scripts import PROFILE, begun, script

_COUNT = 10000
_FILL = f"""
fill() {{
    python3 -ISc '
import os, sys
directory, *names = sys.argv[1:]
for number in range({_COUNT}):
    name = names[number % len(names)] % number
    os.close(os.open(directory + "/" + name, os.O_CREAT | os.O_WRONLY, 0o755))
' "$@"
}}
"""


def _named(*forms):
    """The names that fill() makes of these forms."""
    return [forms[number % len(forms)] % number for number in range(_COUNT)]


class JunkTest(SystemTest):
    def _boot(self, *files, setup, arguments=()):
        end = self.host(*files, setup=_FILL + setup).boot(*arguments)
        self.assertEqual(0, end.status)
        return end

    def test_among_the_plugins_each_file_costs_its_line_and_the_plugins_run(self):
        kinds = ["junk%d", "%d.conf", "junk%d.", "junk%d", "%d.txt", "%d.json", "junk%d", "%d.debug"]
        end = self._boot(plugin("a", provides=["x"]), plugin("b", requires=["x"]),
                         setup=f"fill {PLUGINS} {' '.join(kinds)}; rm {PLUGINS}/5.json; : >{PLUGINS}/5.so")
        self.assertEqual(["a", "b"], end.succeeded)
        expected = []
        for name in _named(*kinds):
            stem, dot, kind = name.rpartition(".")
            path = f"{PLUGINS}/{name}"
            if not dot:
                expected.append((WARNING, f"ignoring plugin '{name}' of unspecified type..."))
            elif stem == "5":
                path = f"{PLUGINS}/5.so"
                expected.append((ERROR, f"plugin `{path}' is invalid: {path}: file too short"))
            elif kind == "json":
                expected.append((ERROR, f"plugin `{path}' is invalid: plugin root is not an object"))
            elif kind != "debug":
                expected.append((WARNING, f"ignoring plugin '{name}' of unknown type ({kind})..."))
        self.assertEqual(sorted(expected), sorted(end.complaints))

    def test_among_the_commands_it_hides_no_command_and_is_none(self):
        end = self._boot(plugin("a", ["note", "note that", "junk"]), command("note", "echo noted"),
                         command("note.that", "echo that", directory=f"{COMMANDS}/int/ext"),
                         setup="".join(f"fill {COMMANDS}/{place} note%d junk.%d %d junk%d.note; "
                                       for place in ("", "int", "int/ext", "ext")))
        self.assertEqual((["noted", "that"], ["a"]), (end.command_output, list(end.failed)))
        self.assertIn((ERROR, "execution of 'junk' failed : unknown command: junk"), end.complaints)
        self.assertEqual(["Executor failed executing hostcli command: junk"],
                         [message for message in end.messages if message.startswith("Executor failed")])

    def test_among_the_init_scripts_and_their_links_those_that_are_meant_run(self):
        links = {"/etc/rc3.d/S10one": Link("../init.d/one"), "/etc/rc3.d/S20two": Link("../init.d/two"),
                 "/bin/chkconfig": Link("/usr/libexec/bootweave/chkconfig"), PROFILE: "the boot's block\n"}
        # This machine's own links are none of the host's.
        start = "--daemon", "--method=start"
        end = self._boot(script("one"), script("two"), links, arguments=start, setup="""
            for link in /etc/rc[2-5].d/S*; do
                case $link in */S10one | */S20two) ;; *) rm -f "$link" ;; esac
            done
            fill /etc/init.d junk%d S10junk%d
            fill /etc/rc3.d K10junk%d README%d S1-x%d junk%d""")
        self.assertEqual(([], ["start one", "start two"]), (end.complaints, begun(end)))
        self.assertIn((NOTICE, "two started."), end.said)
