# SPDX-License-Identifier: Apache-2.0
"""How the executor reads a command line, and what becomes of one that it cannot read."""

from harness import ERROR, SystemTest, command, plugin

# Prints each of its arguments on a line of its own, between brackets.
_SHOW = "for word; do printf '[%s]\\n' \"$word\"; done; echo ."


class GrammarTest(SystemTest):
    def _check_accepted(self, table):
        """The table has lines and, for each, the arguments with which the command "a.b" is run."""
        end = self.host(plugin("p", [line for line, _ in table]), command("a.b", _SHOW)).boot()
        shown = "\n".join("".join(f"[{word}]\n" for word in words) + "." for _, words in table)
        self.assertEqual(shown.split("\n"), end.command_output)
        self.assertEqual(([], ["p"]), (end.complaints, end.succeeded))

    def _check_refused(self, table):
        """The table has lines and, for each, the errors of its parsing."""
        end = self.host(plugin("p", [line for line, _ in table]), command("a.b", _SHOW)).boot()
        expected = []
        for line, errors in table:
            expected += [f"Executor was unable to parse command: {error}" for error in errors]
            expected += [f"Executor failed to parse command {line}",
                         f"Executor failed executing hostcli command: {line}"]
        self.assertEqual([(ERROR, message) for message in expected], end.complaints[:-1])
        self.assertEqual([], end.command_output)

    def test_options_reach_the_command_as_long_ones_with_their_values(self):
        self._check_accepted([
            ("a b", []), ("  a\t b  ", []), ("a b --x=1", ["--x=1"]), ("a b --x 1", ["--x=1"]),
            ("a b -n=v", ["--n=v"]), ("a b -n v", ["--n=v"]), ("a b --all", ["--all=true"]),
            ("a b -f", ["--f=true"]),
            ("a b --all --type ssd -f", ["--all=true", "--type=ssd", "--f=true"]),
            ("a b --x=", ["--x="]), ("a b --x ''", ["--x="]), ("a b --x=1=2", ["--x=1=2"]),
            ("a b --a_b-C9=1", ["--a_b-C9=1"])])

    def test_a_repeated_option_is_passed_on_each_time_in_order(self):
        self._check_accepted([("a b --k=1 --k=2", ["--k=1", "--k=2"]),
                              ("a b --k=2 --j=x --k=1 -k 3", ["--k=2", "--j=x", "--k=1", "--k=3"])])

    def test_quotes_and_backslashes_keep_blanks_and_signs(self):
        self._check_accepted([
            ('a b --text "two words"', ["--text=two words"]), ("a b --text 'a\"b\\'", ['--text=a"b\\']),
            ('a b --text="a\\"b\\\\c\\d"', ['--text=a"b\\c\\d']), ("a b --text=a\\ b\\'", ["--text=a b'"]),
            ("a b --text '-5'", ["--text=-5"]), ("a b --text \\-5", ["--text=-5"]),
            ('a b --text "-5"', ["--text=-5"]),
            ("a b --t=$HOME`id`;*|&>", ["--t=$HOME`id`;*|&>"]), ("'a' \"b\" --x='1'2\"3\"", ["--x=123"]),
            ("a b --x='line\nline'", ["--x=line\nline"])])

    def test_what_is_no_command_is_refused_with_each_of_its_errors(self):
        self._check_refused([
            ("", ["empty command"]), (" \t ", ["empty command"]), ("--x=1", ["empty command"]),
            ("a b/c", ["invalid command word 'b/c'"]), ("a ../b", ["invalid command word '../b'"]),
            ("a.b", ["invalid command word 'a.b'"]), ("a '' b", ["invalid command word ''"]),
            ("a --1x", ["invalid option '--1x'"]), ("a -abc", ["invalid option '-abc'"]),
            ("a b -- x", ["invalid option '--'", "unexpected argument 'x'"]), ("a -", ["invalid option '-'"]),
            ("a b --x=1 y", ["unexpected argument 'y'"]), ("a b --x 1 2", ["unexpected argument '2'"]),
            ("a 'b c' --é=1 --x=1 y", ["invalid command word 'b c'", "invalid option '--é=1'",
                                       "unexpected argument 'y'"]),
            ('a "b', ["unterminated quote"]), ("a b/c --x='", ["unterminated quote"]),
            ("a b\\", ["trailing backslash"])])


class RequestTest(SystemTest):
    """The text that travels to the executor, and where it ends."""

    def test_a_command_of_1023_bytes_arrives_whole(self):
        line = "a --x=" + "1" * 1017
        end = self.host(plugin("p", [line]), command("a", "echo ${#1}")).boot()
        self.assertEqual((["p"], ["1021"]), (end.succeeded, end.command_output))

    def test_of_a_longer_command_the_first_1023_bytes_arrive(self):
        line = "a --x=" + "1" * 1017 + "2" * 3000
        end = self.host(plugin("p", [line]), command("a", "echo ${#1} ${1%1}")).boot()
        self.assertEqual((["p"], [f"1021 {line[2:1022]}"]), (end.succeeded, end.command_output))

    def test_a_command_may_be_cut_into_one_that_cannot_be_read(self):
        line = "a --x='" + "1" * 2000 + "'"
        end = self.host(plugin("p", [line]), command("a", "true")).boot()
        self.assertEqual([(ERROR, "Executor was unable to parse command: unterminated quote"),
                          (ERROR, "Executor failed to parse command " + line[:1023]),
                          (ERROR, "Executor failed executing hostcli command: " + line)], end.complaints[:-1])

    def test_a_command_that_no_socket_buffer_holds_is_run_cut_and_counts_as_failed(self):
        line = "a --x=" + "1" * 10000000
        end = self.host(plugin("p", [line, "a --x=2"]), command("a", "echo ${#1}")).boot(timeout=30)
        self.assertEqual(["1021", "5"], end.command_output)
        self.assertEqual((ERROR, "Failed sending command to executor: Broken pipe"), end.complaints[0])

    def test_an_empty_command_fails_and_holds_up_nothing(self):
        end = self.host(plugin("p", ["", "a"]), command("a", "echo ran")).boot(timeout=5)
        self.assertEqual((0, ["ran"], ["p"]), (end.status, end.command_output, list(end.failed)))
        self.assertIn((ERROR, "Executor failed executing hostcli command: "), end.complaints)
