# SPDX-License-Identifier: Apache-2.0
"""Host commands: where they are looked for, which are trusted, what they get, and how their end is told."""

import re

from harness import COMMANDS, ERROR, Directory, File, Link, SystemTest, command, plugin
from probe import HOSTILE_CALLER, hostile_caller, probe, report

_DIRECTORIES = COMMANDS, f"{COMMANDS}/int", f"{COMMANDS}/int/ext", f"{COMMANDS}/ext"
_UNTRUSTED = "not a trusted executable"


class CommandTest(SystemTest):
    def _check_errors(self, errors, *files, line="a b", **options):
        """Runs a command that fails with these errors and returns the ending."""
        end = self.host(plugin("p", [line]), *files, **options).boot()
        self.assertEqual([(ERROR, f"execution of '{line}' failed : {error}") for error in errors] +
                         [(ERROR, f"Executor failed to execute command: {line}"),
                          (ERROR, f"Executor failed executing hostcli command: {line}")], end.complaints[:-1])
        self.assertEqual(0, end.status)
        return end


class LookUpTest(CommandTest):
    def test_the_directories_are_asked_in_their_order(self):
        for first in range(len(_DIRECTORIES)):
            with self.subTest(_DIRECTORIES[first]):
                files = [command("a.b", f"echo {directory}", directory) for directory in _DIRECTORIES[first:]]
                end = self.host(plugin("p", ["a b"]), *files).boot()
                self.assertEqual(([_DIRECTORIES[first]], ["p"]), (end.command_output, end.succeeded))

    def test_the_words_are_joined_by_dots(self):
        files = [command("a.b.c", "echo a.b.c"), command("a.b", "echo a.b"), command("a", "echo a")]
        end = self.host(plugin("p", ["a b c", "a b", "a"]), *files).boot()
        self.assertEqual(["a.b.c", "a.b", "a"], end.command_output)

    def test_directories_are_not_searched_in_depth(self):
        files = command("a.b", "true", f"{COMMANDS}/sub"), command("b", "true", f"{COMMANDS}/a")
        self._check_errors(["unknown command: a b"], *files)

    def test_a_command_that_is_nowhere_is_unknown(self):
        self._check_errors(["unknown command: a b"], command("a", "true"), command("a.b.c", "true"),
                           command("A.b", "true"))

    def test_a_name_too_long_for_any_file_is_unknown(self):
        line = "a " + "b" * 300
        self._check_errors([f"unknown command: {line}"], line=line)

    def test_missing_directories_cost_a_line_each_and_the_others_are_asked(self):
        end = self.host(plugin("p", ["a b"]), command("a.b", "echo found"),
                        setup=f"rm -r {COMMANDS}/int; rmdir {COMMANDS}/ext; touch {COMMANDS}/ext").boot()
        line = "unable to add external directory to the hostcli dispatcher: "
        self.assertEqual([(ERROR, line + "No such file or directory")] * 2 +
                         [(ERROR, line + "Not a directory")], end.complaints)
        self.assertEqual((["found"], ["p"]), (end.command_output, end.succeeded))

    def test_without_any_directory_every_command_is_unknown_and_the_boot_goes_on(self):
        end = self.host(plugin("p", ["a b", "c"]), setup=f"rm -r {COMMANDS}").boot()
        self.assertEqual((0, ["p"]), (end.status, list(end.failed)))
        lines = [message for _, message in end.complaints]
        self.assertEqual(4, len([line for line in lines if line.startswith("unable to add external dir")]))
        self.assertIn("execution of 'a b' failed : unknown command: a b", lines)
        self.assertIn("execution of 'c' failed : unknown command: c", lines)

    def test_a_command_that_comes_later_in_the_boot_is_found(self):
        make = f"printf '#!/bin/sh\\necho new\\n' >{COMMANDS}/a.b; chmod 755 {COMMANDS}/a.b"
        end = self.host(plugin("p", ["make", "a b"]), command("make", make)).boot()
        self.assertEqual((["new"], ["p"]), (end.command_output, end.succeeded))


class TrustTest(CommandTest):
    def _check_untrusted(self, *files, setup=None):
        # A good one in a later directory is hidden by the one that comes first.
        self._check_errors([f"a.b: {_UNTRUSTED}"], command("a.b", "echo ran", f"{COMMANDS}/ext"), *files,
                           setup=setup)

    def test_a_file_that_is_not_executable_is_not_trusted(self):
        self._check_untrusted({f"{COMMANDS}/a.b": "#!/bin/sh\n"})

    def test_a_directory_is_not_trusted(self):
        self._check_untrusted({f"{COMMANDS}/a.b": Directory()})

    def test_a_fifo_is_not_trusted_and_not_waited_for(self):
        self._check_untrusted(setup=f"mkfifo -m 755 {COMMANDS}/a.b")

    def test_a_device_is_not_trusted(self):
        self._check_untrusted({f"{COMMANDS}/a.b": Link("/dev/null")})

    def test_a_dangling_link_and_links_in_a_circle_are_not_trusted(self):
        self._check_untrusted({f"{COMMANDS}/a.b": Link("/nowhere")})
        self._check_untrusted({f"{COMMANDS}/a.b": Link("a.b")})

    def test_a_file_that_others_may_write_is_not_trusted(self):
        for mode in "775", "757", "722":
            with self.subTest(mode):
                self._check_untrusted(command("a.b", "echo ran"), setup=f"chmod {mode} {COMMANDS}/a.b")

    def test_a_link_to_a_file_that_others_may_write_is_not_trusted(self):
        self._check_untrusted({f"{COMMANDS}/a.b": Link("/opt/a"), "/opt/a": File("#!/bin/sh\n", 0o755)},
                              setup="chmod 777 /opt/a")

    def test_another_users_file_is_not_trusted(self):
        self.need_users()
        self._check_untrusted(command("a.b", "echo ran"), setup=f"chown 65534 {COMMANDS}/a.b")

    def test_a_good_file_of_roots_is_trusted_through_a_link(self):
        end = self.host(plugin("p", ["a b"]), {f"{COMMANDS}/a.b": Link("/opt/real"),
                                              "/opt/real": File("#!/bin/sh\necho ran\n", 0o700)}).boot()
        self.assertEqual((["ran"], []), (end.command_output, end.complaints))


class EnvironmentTest(SystemTest):
    def _report(self, *arguments, line="a b", caller="exec"):
        end = self.host(hostile_caller(), probe(f"{COMMANDS}/a.b"), plugin("p", [line])).shell(
            f"umask 027; export SECRET=1; cd /usr; {caller} /usr/sbin/bootweave {' '.join(arguments)}")
        self.assertEqual((0, ["p"]), (end.status, end.succeeded))
        return report(end, "a.b")

    def test_a_command_has_these_three_variables_and_no_other(self):
        self.assertEqual(["HOSTCLI_COMMAND=a.b", "HOSTCLI_DISPATCHER=bootweave",
                          "PATH=/usr/sbin:/usr/bin:/sbin:/bin"], sorted(self._report().variables))

    def test_a_command_gets_its_own_path_and_its_options(self):
        found = self._report(line="a b --x=1 -y 'two words'")
        self.assertEqual((f"{COMMANDS}/a.b", ["--x=1", "--y=two words"]), (found.name, found.arguments))

    def test_a_command_starts_in_the_root_directory(self):
        self.assertEqual("/", self._report().directory)

    def test_a_command_has_the_umask_that_the_program_was_started_with(self):
        self.assertEqual("0027", self._report().umask)

    def test_a_command_reads_nothing_and_prints_into_the_executors_log(self):
        input_, output, errors = self._report().streams
        self.assertEqual(("/dev/null", "/var/log/bootweave-hostcli-stdout.log"), (input_, output))
        self.assertRegex(errors, "pipe:")

    def test_nothing_but_its_streams_is_open_whatever_the_caller_left_open(self):
        self.assertEqual(["0", "1", "2"], self._report(caller=HOSTILE_CALLER).descriptors)

    def test_no_signal_is_blocked_or_ignored_whatever_the_caller_did(self):
        found = self._report(caller=HOSTILE_CALLER)
        self.assertEqual((0, 0), (found.blocked, found.ignored))

    def test_it_is_the_same_in_a_parallel_boot(self):
        found = self._report("--parallel", caller=HOSTILE_CALLER)
        self.assertEqual((["0", "1", "2"], 0, 0), (found.descriptors, found.blocked, found.ignored))


class EndTest(CommandTest):
    """How a command ends is success, or a list of errors."""

    def test_status_0_is_success_whatever_was_written(self):
        end = self.host(plugin("p", ["a b"]), command("a.b", "echo trouble >&2")).boot()
        self.assertEqual((["p"], []), (end.succeeded, end.complaints))
        self.assertNotIn("trouble", end.stdout)

    def test_each_line_of_standard_error_is_an_error(self):
        self._check_errors(["first", "  second line ", "third"],
                           command("a.b", "printf 'first\\n  second line \\nthird' >&2; exit 1"))

    def test_without_standard_error_the_status_is_the_error(self):
        self._check_errors(["exited with status 3"], command("a.b", "echo to the log; exit 3"))

    def test_without_standard_error_the_signal_is_the_error(self):
        self._check_errors(["killed by signal 9"], command("a.b", "kill -9 $$"))

    def test_a_command_killed_in_its_words_has_said_them(self):
        self._check_errors(["words"], command("a.b", "echo words >&2; kill -9 $$"))

    def test_control_characters_in_errors_forge_no_line(self):
        self._check_errors([r"\x1b[2J\x0dforged"],
                           command("a.b", "printf '\\033[2J\\rforged\\n' >&2; exit 1"))

    def test_an_interpreter_that_is_missing_is_the_systems_error(self):
        self._check_errors(["a.b: No such file or directory"],
                           {f"{COMMANDS}/a.b": File("#!/no/shell\n", 0o755)})

    def test_a_file_that_is_no_program_is_the_systems_error(self):
        self._check_errors(["a.b: Exec format error"], {f"{COMMANDS}/a.b": File("echo ran\n", 0o755)})

    def test_an_empty_file_is_the_systems_error(self):
        self._check_errors(["a.b: Exec format error"], {f"{COMMANDS}/a.b": File("", 0o755)})

    def test_a_file_system_without_execution_is_the_systems_error(self):
        self._check_errors(["a.b: Permission denied"], setup=f"""
            mount -t tmpfs -o noexec,mode=755 none {COMMANDS}
            mkdir -p {COMMANDS}/int/ext {COMMANDS}/ext
            printf '#!/bin/sh\\n' >{COMMANDS}/a.b
            chmod 755 {COMMANDS}/a.b""")

    def test_of_standard_error_the_first_64_kib_are_kept_and_the_command_is_not_held_up(self):
        write = "head -c 3000000 /dev/zero | tr '\\0' x >&2; echo done; exit 1"
        end = self.host(plugin("p", ["a b"]), command("a.b", write)).boot(timeout=30)
        self.assertIn("execution of 'a b' failed : " + "x" * 65536, end.executor_messages)
        self.assertEqual(["done"], end.command_output)

    def test_a_process_left_behind_with_standard_error_holds_up_nothing(self):
        leave = command("a.b", "sleep 1000 & echo left")
        end = self.host(plugin("p", ["a b", "a b"]), leave).boot(timeout=20)
        self.assertEqual((["left", "left"], ["p"]), (end.command_output, end.succeeded))

    def test_a_process_left_behind_that_never_stops_writing_holds_up_nothing(self):
        self._check_errors(["said"], command("a.b", "echo said >&2; setsid yes '' >&2 & exit 1"))

    def test_errors_of_a_failed_command_are_told_though_a_process_was_left_behind(self):
        self._check_errors(["said"], command("a.b", "echo said >&2; sleep 1000 & exit 1"))

    def test_a_command_that_closes_its_standard_error_is_still_waited_for(self):
        end = self.host(plugin("p", ["a b", "c"]), command("a.b", "exec 2>&-; sleep 0.2; echo first"),
                        command("c", "echo second")).boot()
        self.assertEqual(["first", "second"], end.command_output)

    def test_two_commands_never_run_at_a_time(self):
        one = "mkdir /run/busy || echo two at a time; sleep 0.02; rmdir /run/busy"
        plugins = [plugin(f"p{number}", ["a b"] * 4) for number in range(6)]
        end = self.host(*plugins, command("a.b", one)).boot("--parallel")
        self.assertEqual(([], 6), (end.command_output, len(end.succeeded)))
        self.assertEqual([], [line for line in end.executor_messages if re.search("fail", line)])
