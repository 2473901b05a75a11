# SPDX-License-Identifier: Apache-2.0
"""The questions of an interactive run, answered on a terminal and on what is none."""

import os
import pty
import re
import select
import termios
import time

from harness import ERROR, NOTICE, UNTIL, File, SystemTest, command, plugin
from init_scripts import PROFILE

_MENU = ("\033[35m(c)ontinue\033[0m\t\033[32m(e)xecute\033[0m\t\033[33m(t)roubleshoot\033[0m\t"
         "\033[31m(s)kip\033[0m")
_HIDE, _SHOW, _ERASE = "\033[?25l", "\033[?25h", "\033[2K"
_NAMES = "--plugin=a.json,b.json,c.json,d.json"
_PATIENCE = 20      # seconds until a text that does not come is missed


def _question(name):
    return f"current plugin: \033[36m{name}\n{_MENU}{_HIDE}"


class _Terminal:
    """A terminal and the operator in front of it. What is printed comes out with plain newlines."""

    def __init__(self, case):
        self._master, self.slave = pty.openpty()
        case.addCleanup(os.close, self._master)
        case.addCleanup(os.close, self.slave)
        self.name = os.ttyname(self.slave)
        attributes = termios.tcgetattr(self.slave)
        attributes[1] &= ~termios.OPOST
        termios.tcsetattr(self.slave, termios.TCSANOW, attributes)
        self._unread = ""

    def read_until(self, text):
        """All that is printed up to the end of this text."""
        deadline = time.monotonic() + _PATIENCE
        while text not in self._unread:
            left = deadline - time.monotonic()
            if left <= 0 or not select.select([self._master], [], [], left)[0]:
                raise AssertionError(f"{text!r} did not come, but {self._unread!r}")
            self._unread += os.read(self._master, 65536).decode()
        end = self._unread.index(text) + len(text)
        found, self._unread = self._unread[:end], self._unread[end:]
        return found

    def type(self, keys):
        os.write(self._master, keys.encode())

    def answer(self, keys):
        """Types once keys are taken one by one; the question is there a moment earlier."""
        deadline = time.monotonic() + _PATIENCE
        while self._modes() and time.monotonic() < deadline:
            time.sleep(0.002)
        self.type(keys)

    @property
    def echoes_lines(self):
        return self._modes() == termios.ICANON | termios.ECHO

    def _modes(self):
        return termios.tcgetattr(self.slave)[3] & (termios.ICANON | termios.ECHO)


class TerminalTest(SystemTest):
    def _start(self, *arguments, files=(), setup=None):
        """Begins an interactive run of a, b, c and d; returns the operator's terminal and the host."""
        terminal = _Terminal(self)
        host = self.host(*[plugin(name) for name in "abcd"], *files, setup=setup)
        running = host.start("/usr/sbin/bootweave", *(arguments or ("--interactive",)), _NAMES,
                             stdin=terminal.slave, stdout=terminal.slave, console=terminal.name)
        return terminal, running

    def test_each_question_shows_the_plugin_and_the_menu_and_then_the_choice(self):
        terminal, running = self._start()
        first = terminal.read_until(_HIDE)
        self.assertTrue(first.endswith(_question("a")), first)
        terminal.answer("e")
        self.assertEqual(
            f"{_SHOW}\r\033[37m(c)ontinue\033[0m\t\033[32m(e)xecute\033[0m\t\033[37m(t)roubleshoot\033[0m\t"
            "\033[37m(s)kip\033[0m\n", terminal.read_until("(s)kip\033[0m\n"))
        terminal.read_until(_question("b"))
        terminal.answer("c")
        self.assertEqual(["a", "b", "c", "d"], running.finish().succeeded)

    def test_keys_of_either_case_execute_skip_and_continue(self):
        for keys in "esc", "ESC":
            with self.subTest(keys):
                terminal, running = self._start()
                for name, key in zip("abc", keys):
                    terminal.read_until(_question(name))
                    terminal.answer(key)
                end = running.finish()      # d is not asked about
                self.assertEqual((0, ["a", "c", "d"], []), (end.status, end.succeeded, end.complaints))
                self.assertIn((NOTICE, "skipping plugin b (interactive mode request)"), end.said)
                self.assertTrue(terminal.echoes_lines)

    def test_a_skipped_plugin_leaves_no_line_in_the_kernels_log_and_holds_up_nobody(self):
        terminal = _Terminal(self)
        host = self.host(plugin("a", provides=["up"]), plugin("b", requires=["up"]))
        running = host.start("/usr/sbin/bootweave", "--interactive", "--plugin=a.json,b.json",
                             stdin=terminal.slave, stdout=terminal.slave)
        for name, key in ("a", "s"), ("b", "e"):
            terminal.read_until(_question(name))
            terminal.answer(key)
        self.assertEqual(["bootweave: Activating Bootweave plugin b.",
                          "bootweave: Bootweave plugin b activated."],
                         [record.text for record in running.finish().kernel])

    def test_other_keys_do_nothing_and_are_not_echoed(self):
        terminal, running = self._start()
        terminal.read_until(_question("a"))
        terminal.answer("x1 \n\t\033[AqZ")
        terminal.type("s")
        self.assertEqual(_SHOW, terminal.read_until(_SHOW))
        terminal.read_until(_question("b"))
        terminal.answer("c")
        self.assertEqual(["b", "c", "d"], running.finish().activated)

    def test_no_question_comes_up_to_the_last_of_the_required_plugins(self):
        for required in "b,a", "a,b", "b", "b,a,b,b":
            with self.subTest(required):
                terminal, running = self._start("--interactive", f"--interactive-mode-requires={required}")
                before = terminal.read_until(_question("c"))
                self.assertEqual(1, before.count("current plugin"))
                self.assertIn("executing start plugin: b", before)
                terminal.answer("s")
                terminal.read_until(_question("d"))
                terminal.answer("s")
                self.assertEqual(["a", "b"], running.finish().activated)

    def test_behind_the_troubleshooting_shell_the_plugin_runs_without_a_new_question(self):
        terminal, running = self._start()
        terminal.read_until(_question("a"))
        terminal.answer("t")
        terminal.read_until("(s)kip\033[0m\n")
        terminal.type('echo "begun: $(wc -l </dev/kmsg), session $(cut -d" " -f6 /proc/$$/stat) of $$"; '
                      'grep Sig[BI] /proc/self/status; exit\n')
        shell = terminal.read_until(_ERASE)
        found = re.search(r"begun: 0, session (\d+) of (\d+)\nSigBlk:\t0+\nSigIgn:\t0+\n", shell)
        self.assertIsNotNone(found, shell)
        self.assertEqual(found[1], found[2])
        self.assertIn("executing start plugin: a", terminal.read_until(_question("b")))
        terminal.answer("c")
        self.assertEqual(["a", "b", "c", "d"], running.finish().succeeded)

    def test_a_shell_that_cannot_be_started_costs_a_line_and_the_plugin_runs(self):
        terminal, running = self._start(setup="rm /bin/sh")
        terminal.read_until(_question("a"))
        terminal.answer("t")
        terminal.read_until(_question("b"))
        terminal.answer("c")
        end = running.finish()
        self.assertEqual([(ERROR, "unable to exec shell: No such file or directory")], end.complaints)
        self.assertEqual((0, ["a", "b", "c", "d"]), (end.status, end.succeeded))

    def test_the_later_of_interactive_and_parallel_counts(self):
        terminal, running = self._start("--parallel", "--interactive")
        terminal.read_until(_question("a"))
        terminal.answer("c")
        end = running.finish()
        # The answer has ended the interactive mode.
        self.assertRegex(end.read(PROFILE), r"\n Parallel: 0\n(.*\n)* Interactive Mode: 0\n")
        end = self.host(plugin("a")).boot("--interactive", "--parallel")
        self.assertNotIn("current plugin", end.stdout)
        self.assertRegex(end.read(PROFILE), r"\n Parallel: 1\n(.*\n)* Interactive Mode: 0\n")


class NoTerminalTest(SystemTest):
    """Standard input is no terminal, and comes to an end before anybody has answered."""

    # Processor time that the program has taken, in hundredths of a second.
    _TICKS = 'ticks() { set -- $(cut -d" " -f14,15 /proc/$pid/stat); echo $(($1 + $2)); }\n'
    _ASK = UNTIL + _TICKS + """
        mkfifo /run/keys
        bootweave --interactive </run/keys >/run/log &
        pid=$!
        : >/run/keys
        until_ grep -qF '(s)kip' /run/log
    """

    def test_an_end_of_input_is_no_answer_and_the_wait_behind_it_is_no_busy_loop(self):
        end = self.host(plugin("a")).shell(self._ASK + """
            before=$(ticks)
            sleep 1.5
            echo $(($(ticks) - before))
            kill $pid
            wait $pid
        """)
        self.assertEqual((143, []), (end.status, end.activated))
        self.assertLess(int(end.stdout), 20)        # a loop would take 150

    def test_a_key_behind_the_end_of_input_still_counts(self):
        end = self.host(plugin("a")).shell(self._ASK + "printf e >/run/keys; wait $pid", timeout=20)
        self.assertEqual((0, ["a"]), (end.status, end.succeeded))

    def test_what_is_no_terminal_is_told_and_asked_all_the_same(self):
        end = self.host(plugin("a", ["x"]), command("x", "true"), {"/run/keys": File("zs")}).shell(
            "exec bootweave --interactive </run/keys")
        self.assertEqual((0, []), (end.status, end.activated))
        self.assertEqual([(ERROR, "unable to get terminal io state."),
                          (ERROR, "unable to set terminal io state."),
                          (ERROR, "unable to restore terminal io state.")], end.complaints)
        self.assertIn(_question("a"), end.stdout)
