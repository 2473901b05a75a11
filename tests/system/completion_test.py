# SPDX-License-Identifier: Apache-2.0
"""What bash offers when TAB is pressed behind a command line of the two programs."""

import os
import pty
import re
import select
import shlex
import time

from harness import PLUGINS, SystemTest, plugin

_FILE = "/usr/share/bash-completion/completions/bootweave"
# compopt works in a completion only; what it is told is printed instead.
_DRIVER = f"""
compopt() {{ echo "($*)"; }}
. {_FILE}
offer() {{
    COMP_WORDS=("$@") COMP_CWORD=$(($# - 1)) COMPREPLY=()
    words=$(complete -p "$1") || return
    words=${{words#*-F }}
    ${{words%% *}}
    printf '%s\\n' "${{COMPREPLY[@]}}"
    echo .
}}
"""


def _words(line, breaks):
    """The words that readline makes of a line."""
    words = []
    for word in line.split(" "):
        words += [part for part in re.split("(=)", word) if part] or [""] if "=" in breaks else [word]
    return words


def _with_value(option):
    """The option as offered, with a value that the program reads where it needs one."""
    values = {"--boot=": "1", "--threads=": "1", "--time=": "x=1"}
    return option + values.get(option, "x" if option.endswith("=") else "")


class CompletionTest(SystemTest):
    def _offers(self, *lines, files=None, breaks="="):
        """What is offered at the end of each line, one list each."""
        script = _DRIVER + "".join(f"offer {shlex.join(_words(line, breaks))}\n" for line in lines)
        end = self.host(files or {}).run("/bin/bash", "-c", script)
        self.assertEqual((0, ""), (end.status, end.stderr))
        offers = [[line for line in text.split("\n") if line] for text in end.stdout.split("\n.\n")[:-1]]
        return offers if len(lines) > 1 else offers[0]

    _plugins = {**plugin("clock"), **plugin("names"), f"{PLUGINS}/libwatch.so": "",
                f"{PLUGINS}/late.debug": "", f"{PLUGINS}/README": "", f"{PLUGINS}/$(touch x).json": "",
                f"{PLUGINS}/a b.json": "",
                "/srv/own/mine.json": "{}", "/srv/own/more/x": ""}

    def test_options_are_offered_with_their_equals_sign_where_they_have_a_value(self):
        self.assertEqual([["--init", "--invoke", "--interactive", "--interactive-mode-requires="],
                          ["(-o nospace)", "--method="], ["--daemon", "--daemon=", "--daemon-wait-timeout="],
                          ["--json"], ["--help"]],
                         self._offers("bootweave --in", "bootweave --parallel --meth", "bootweave --dae",
                                      "bootweave-analyze --js", "bootweave-analyze blame --h"))

    def test_methods_are_those_of_the_mode(self):
        self.assertEqual([["start", "apply_host_profile"], ["apply_host_profile"],
                          ["start", "stop"], ["stop"]],
                         self._offers("bootweave --method=", "bootweave --invoke --method app",
                                      "bootweave --daemon --method=", "bootweave --daemon=wait --method=sto"))

    def test_plugins_come_from_the_directory_of_the_host_or_of_the_line(self):
        self.assertEqual(
            [["clock.json", "names.json", "libwatch.so", "late.debug"], ["clock", "names", "watch"],
             ["mine.json"], ["mine.json"], ["mine"]],
            self._offers("bootweave --plugin=", "bootweave --disable-plugins ",
                         "bootweave --plugin-directory=/srv/own --plugin=",
                         "bootweave --plugin-directory /srv/own --plugin m",
                         "bootweave --plugin-directory /srv/own --interactive-mode-requires=",
                         files=self._plugins))

    def test_a_list_is_completed_behind_its_last_comma(self):
        self.assertEqual([["clock.json,names.json"], ["clock,names", "clock,watch", "clock,clock"]],
                         [sorted(offer, key=lambda word: word[6:] == "clock") for offer in self._offers(
                             "bootweave --plugin=clock.json,n", "bootweave --disable-plugins=clock,",
                             files=self._plugins)])

    def test_values_are_offered_whole_where_the_equals_sign_parts_no_words(self):
        self.assertEqual([["--daemon=wait"], ["--plugin=clock.json,names.json"]],
                         self._offers("bootweave --daemon=w", "bootweave --plugin=clock.json,n",
                                      files=self._plugins, breaks=""))

    def test_names_that_a_shell_reads_as_something_else_are_not_offered_and_never_run(self):
        end = self.host(self._plugins).run("/bin/bash", "-c", _DRIVER + """
            cd /srv; offer bootweave --plugin = ''; ls /srv""")
        self.assertEqual("clock.json\nnames.json\nlibwatch.so\nlate.debug\n.\nown\n", end.stdout)

    def test_files_and_directories_are_offered_where_one_is_wanted(self):
        self.assertEqual([["(-o filenames)", "/srv/own/more"], ["(-o filenames)", "/srv/own/mine.json"],
                          ["(-o filenames)", "/srv/own/mine.json"], ["(-o filenames)", "/srv/own/mine.json"],
                          ["(-o filenames)", "/srv/own/mine.json"], ["blame"]],
                         self._offers("bootweave --plugin-directory=/srv/own/",
                                      "bootweave --dump-dependency-tree=/srv/own/mi",
                                      "bootweave-analyze --profile /srv/own/mi",
                                      "bootweave-analyze --json diff /srv/own/more/x /srv/own/mi",
                                      "bootweave-analyze plot -o /srv/own/mi", "bootweave-analyze -o x bl",
                                      files=self._plugins))

    def test_commands_are_offered_once_and_then_what_follows_them(self):
        self.assertEqual([["critical-chain"], ["critical-chain"], ["clock", "names", "watch", "late"],
                          ["names"], [], ["boot", "last"]],
                         self._offers("bootweave-analyze cri",
                                      "bootweave-analyze --boot=last --profile x cri",
                                      "bootweave-analyze critical-chain ",
                                      "bootweave-analyze --boot last critical-chain na",
                                      "bootweave-analyze blame ", "bootweave-analyze --boot ",
                                      files=self._plugins))

    def test_each_command_is_offered_just_those_options_that_it_takes(self):
        commands = self._offers("bootweave-analyze ")
        self.assertIn("simulate", commands)
        lines = [f"bootweave-analyze {command} --" for command in commands]
        offers = dict(zip(commands, self._offers(*lines)))
        options = self._offers("bootweave-analyze --")
        self.assertIn("--threads=", options)
        # One line for each: the option, the command, and what the program says of them.
        end = self.host().run("/bin/bash", "-c", "".join(
            f"printf '%s %s ' {command} {option}; "
            f"bootweave-analyze {command} {'x y' if command == 'diff' else ''} {_with_value(option)} 2>&1 |"
            "head -n 1\n" for command in commands for option in options))
        refused = re.compile(r"option '--[a-z-]+' is (not )?for |writes a picture, not JSON")
        taken = {command: [] for command in commands}
        for line in end.stdout.splitlines():
            command, option, said = line.split(" ", 2)
            if not refused.search(said):
                taken[command].append(option)
        self.assertEqual(taken, offers)

    def test_options_in_front_of_a_command_are_all_offered(self):
        self.assertEqual([["--strict"], ["(-o nospace)", "--around="], []],
                         self._offers("bootweave-analyze --json --str", "bootweave-analyze --ar",
                                      "bootweave-analyze --profile x blame --str"))

    def test_a_plugin_that_is_to_take_another_time_is_followed_by_that_time(self):
        self.assertEqual([["(-o nospace)", "clock="], [], ["(-o nospace)", "--without="],
                          ["critical-chain"]],
                         self._offers("bootweave-analyze simulate --time=cl",
                                      "bootweave-analyze simulate --time=clock=5",
                                      "bootweave-analyze simulate --time=clock=5 --wi",
                                      "bootweave-analyze --time=clock=5 cri", files=self._plugins))

    def test_debug_injections_are_offered_where_reports_name_plugins(self):
        lines = "\n slow-disk : : storage:sleep 1\nb a:x: :true\n$(touch x):::\nlast::x:true"
        self.assertEqual([["clock", "slow-disk", "last"], ["(-o nospace)", "slow-disk="], ["last"],
                          ["clock"]],
                         self._offers("bootweave-analyze critical-chain ",
                                      "bootweave-analyze simulate --time=sl",
                                      "bootweave-analyze simulate --without la",
                                      "bootweave --disable-plugins=",
                                      files={**plugin("clock"), "/etc/corvane/bootweave/debug.conf": lines}))

    def test_what_takes_no_value_or_any_is_left_to_the_person(self):
        self.assertEqual([[], [], []], self._offers("bootweave --randomize=", "bootweave --plugin-flags ",
                                                    "bootweave --trace="))


class TerminalTest(SystemTest):
    def test_an_interactive_bash_completes_a_line(self):
        master, slave = pty.openpty()
        self.addCleanup(os.close, master)
        host = self.host(plugin("clock"))
        running = host.start("/bin/bash", "--norc", "--noprofile", "-i",
                             stdin=slave, stdout=slave, stderr=slave,
                             environment={"PS1": "$ ", "TERM": "dumb"})
        os.close(slave)
        os.write(master, f". {_FILE}\nbootweave --meth\tst\t --plu\t=c\t\x01echo \n".encode())
        wanted = "\nbootweave --method=start --plugin=clock.json\n"
        seen = self._read(master, wanted)
        os.write(master, b"exit\n")
        running.finish()
        self.assertIn(wanted, seen)

    @staticmethod
    def _read(master, wanted):
        seen, deadline = "", time.monotonic() + 20
        while wanted not in seen and time.monotonic() < deadline:
            if select.select([master], [], [], 0.2)[0]:
                seen += os.read(master, 4096).decode("utf-8", "replace").replace("\r", "")
        return seen
