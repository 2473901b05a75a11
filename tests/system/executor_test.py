# SPDX-License-Identifier: Apache-2.0
"""The executor process and its control socket, as the program and as others meet them."""

from harness import COMMANDS, ERROR, EXECUTOR_LOG, NOTICE, UNTIL, WARNING, File, SystemTest, command, plugin

_SOCKET = "/run/corvane/bootweaveExecutor.sock"
_LOST = "Failed to recieve command status from Executor: Connection reset by peer"
_REFUSED = "Could not connect to Executor:Connection refused"

# Sends each of its arguments over a connection of its own and prints the answer: a number, or how it ended.
# In an argument, an escape such as \\x00 stands for its byte.
_ASK = {"/usr/bin/ask": File("""#!/usr/bin/python3 -IS
import socket, struct, sys
for word in sys.argv[1:]:
    request = word.encode().decode("unicode_escape").encode("latin-1")
    with socket.socket(socket.AF_UNIX) as client:
        try:
            client.connect("/run/corvane/bootweaveExecutor.sock")
            client.sendall(request)
            client.shutdown(socket.SHUT_WR)
            reply = client.recv(100)
            print(struct.unpack("=i", reply)[0] if len(reply) == 4 else f"end after {reply!r}")
        except OSError as error:
            print(error.strerror)
""", 0o755)}

# A run that ends early and leaves its executor behind.
_LEAVE_EXECUTOR = "bootweave --plugin-directory=/no/where >/dev/null;"
# Waits for the executor's last line, which may come after the end of who asked for it.
_AWAIT_STOP = f"until_ grep -q 'signalled to stop' {EXECUTOR_LOG}"
_NOTE = command("note", 'echo "$*"')
_KILL_EXECUTOR = command("die", "kill -9 $PPID; exec sleep 1000")


class LifeTest(SystemTest):
    def test_the_executor_ends_with_the_run_and_leaves_its_socket_file(self):
        end = self.host(plugin("p", ["note"]), _NOTE).shell(
            UNTIL + f"bootweave; until_ sh -c '! pidof -q bootweave'; test -S {_SOCKET} && echo left")
        self.assertEqual((0, "left"), (end.status, end.stdout.splitlines()[-1]))

    def test_after_the_run_nobody_answers_any_more(self):
        end = self.host(_ASK).shell("bootweave >/dev/null; ask note")
        self.assertEqual("Connection refused\n", end.stdout)

    def test_the_executor_is_a_daemon_in_the_root_directory_with_its_streams_in_its_log(self):
        look = "cd /proc/$PPID; cut -d' ' -f4 stat; readlink cwd fd/0 fd/1 fd/2; cut -d' ' -f1,6 stat"
        end = self.host(plugin("p", ["look"]), command("look", look)).shell("cd /usr; bootweave")
        parent, cwd, *streams, session = end.command_output
        self.assertEqual(("1", "/", ["/dev/null", EXECUTOR_LOG, EXECUTOR_LOG]), (parent, cwd, streams))
        self.assertEqual(*session.split())      # it leads one of its own

    def test_nothing_that_the_caller_left_open_stays_open_in_the_executor(self):
        look = command("look", "ls -l /proc/$PPID/fd | grep -c /etc/passwd")
        end = self.host(plugin("p", ["look"]), look).shell("exec 3</etc/passwd 7</etc/passwd; bootweave")
        self.assertEqual(["0"], end.command_output)

    def test_an_executor_that_answers_is_used_and_stopped(self):
        end = self.host(plugin("p", ["note"]), _NOTE).shell(_LEAVE_EXECUTOR + "bootweave")
        self.assertEqual(["Launching Executor", "executing start plugin: p",
                          "Executor has been Successfully Stopped"], end.messages)
        self.assertEqual((0, ["p"]), (end.status, end.succeeded))
        self.assertEqual(1, end.executor_messages.count("Executor Reset - polling for commands"))

    def test_a_stop_without_an_executor_is_a_notice(self):
        end = self.host(plugin("p", ["stop"])).boot()
        self.assertIn((NOTICE, "Executor already gone."), end.said)
        self.assertEqual(0, end.status)


class DeathTest(SystemTest):
    """Plugins whose commands stop or kill the executor, or keep it busy."""

    def test_a_command_that_begins_with_stop_stops_the_executor_instead_of_running(self):
        for line in "stop", "stopwatch start", "STOP", "StOpping --x=1":
            with self.subTest(line):
                end = self.host(plugin("p", [line]), command(line.split()[0], "echo ran")).shell(
                    UNTIL + "bootweave && " + _AWAIT_STOP)
                self.assertEqual([(ERROR, _LOST)], end.complaints[:1])
                self.assertIn("Bootweave executor signalled to stop", end.executor_messages)
                self.assertEqual((0, [], ["p"]), (end.status, end.command_output, list(end.failed)))

    def test_stop_behind_a_blank_is_a_command(self):
        end = self.host(plugin("p", [" stop"]), command("stop", "echo ran")).boot()
        self.assertEqual((["ran"], ["p"]), (end.command_output, end.succeeded))

    def test_behind_a_stopped_executor_each_command_tries_ten_times_and_fails(self):
        host = self.host(plugin("p", ["stop", "note"]), plugin("q", ["note"]), _NOTE)
        end = host.boot("--plugin=p.json,q.json")
        reset = ["Failed connecting to executor Connection refused", "Setting up Executor - Reset Requested",
                 "Resetting Executor failed, retrying: Bootweave executor failed to start"] * 10 + [_REFUSED]
        failed = "Method invocation failed: {}->start() failed: error while executing the cli"
        self.assertEqual(["executing start plugin: p", _LOST, *reset, failed.format("p"),
                          "executing start plugin: q", *reset, failed.format("q"), "Executor already gone."],
                         end.messages[2:])
        self.assertEqual(20, end.executor_messages.count(
            "Unable to start executor: Failed to bind to executor control socket: Address already in use"))
        self.assertEqual((0, []), (end.status, end.command_output))

    def test_levels_of_a_lost_executor_are_errors(self):
        end = self.host(plugin("p", ["stop", "note"]), _NOTE).boot()
        self.assertEqual({ERROR}, {level for level, message in end.complaints})
        self.assertIn((NOTICE, "Setting up Executor - Reset Requested"), end.said[5:])

    def test_a_killed_executor_is_started_anew_where_its_socket_file_is_gone(self):
        end = self.host(plugin("p", ["die", "note --n=1", "note --n=2"]), _NOTE,
                        command("die", f"rm {_SOCKET}; kill -9 $PPID; exec sleep 1000")).boot()
        self.assertEqual(["--n=1", "--n=2"], end.command_output)
        self.assertEqual([(ERROR, _LOST), (ERROR, "Failed connecting to executor No such file or directory")],
                         end.complaints[:2])
        self.assertEqual(0, end.status)
        self.assertIn((NOTICE, "Executor has been Successfully Stopped"), end.said)

    def test_in_parallel_only_one_executor_is_started_anew(self):
        self.need_plain_threads()
        plugins = [plugin(f"p{number}", ["note"] * 3, requires=["dead"]) for number in range(6)]
        end = self.host(plugin("p", ["die"], provides=["dead"]), *plugins, _NOTE,
                        command("die", f"rm {_SOCKET}; kill -9 $PPID; exec sleep 1000")).boot("--parallel")
        self.assertEqual((18, 6), (len(end.command_output), len(end.succeeded)))
        self.assertEqual(2, end.executor_messages.count("Executor Reset - polling for commands"))
        self.assertNotIn("failed, retrying", end.stdout)

    def test_a_killed_executor_costs_its_command_and_the_boot_goes_on(self):
        end = self.host(plugin("p", ["die"]), plugin("q"), _KILL_EXECUTOR).boot(timeout=20)
        self.assertEqual((0, ["p"], ["q"]), (end.status, list(end.failed), end.succeeded))
        self.assertEqual([(ERROR, _LOST)], end.complaints[:1])

    def test_a_suspended_executor_is_waited_for_and_the_wait_is_no_busy_loop(self):
        # The command suspends its executor; its child wakes it when the driver has done nothing for a while.
        halt = UNTIL + """
            driver=$(for p in $(pidof bootweave); do [ $p = $PPID ] || echo $p; done)
            kill -STOP $PPID
            (trap '' HUP
             ticks() { cut -d' ' -f14,15 /proc/$driver/stat; }
             before=$(ticks); sleep 0.5; [ "$before" = "$(ticks)" ] && touch /run/asleep
             kill -CONT $PPID) >/dev/null 2>&1 &"""
        end = self.host(plugin("p", ["halt", "note"]), _NOTE, command("halt", halt)).boot(timeout=30)
        self.assertEqual((["p"], []), (end.succeeded, end.command_output[1:]))
        self.assertEqual("", end.read("/run/asleep"))


class SocketTest(SystemTest):
    def _ask(self, *requests, files=(), before="", after=""):
        """Sends these to an executor that no program waits for; returns the answers and the ending."""
        words = " ".join(f"'{request}'" for request in requests)
        end = self.host(_ASK, _NOTE, *files).shell(f"{UNTIL} {_LEAVE_EXECUTOR}{before} ask {words}; {after}")
        return end.stdout.splitlines(), end

    def test_the_socket_is_its_owners_alone_whatever_the_umask(self):
        for mask in "000", "022", "777":
            with self.subTest(mask):
                end = self.host(plugin("p", ["look"]), command("look", f"stat -c '%a %U' {_SOCKET}")).shell(
                    f"umask {mask}; bootweave; chmod 644 {EXECUTOR_LOG}")
                self.assertEqual(["600 root"], end.command_output)

    def test_each_request_is_answered_by_four_bytes(self):
        answers, _ = self._ask("note", "unknown", "note", "not/a/word")
        self.assertEqual(["0", "1", "0", "1"], answers)

    def test_a_request_of_no_bytes_is_a_request_like_any_other(self):
        answers, end = self._ask("", "note")
        self.assertEqual(["1", "0"], answers)
        # That it polls is said by another thread than the one that answers: at any time.
        self.assertEqual(["Executor was unable to parse command: empty command",
                          "Executor failed to parse command "],
                         [message for message in end.executor_messages if "pars" in message])

    def test_a_request_ends_at_its_first_null_byte(self):
        answers, end = self._ask(r"note --x=1\x00 --y=2", r"\x00note")
        self.assertEqual((["0", "1"], ["--x=1"]), (answers, end.command_output))

    def test_a_request_of_strange_bytes_is_a_failed_command(self):
        answers, end = self._ask(r"\xff\xfe", r"\x01" * 2000, "%s%n%s%n", "note --x=%n", after="ask note")
        self.assertEqual(["1", "1", "1", "0", "0"], answers)
        self.assertIn(r"Executor failed to parse command %s%n%s%n", end.executor_messages)

    def test_a_stop_request_in_any_case_is_answered_by_the_end_alone(self):
        for request in "stop", "STOP now", r"sToP\x00note", "stop" + "x" * 5000:
            with self.subTest(request):
                answers, end = self._ask(request, "note", after=_AWAIT_STOP)
                self.assertIn(answers[0], ("end after b''", "Connection reset by peer"))
                self.assertEqual("Connection refused", answers[1])
                self.assertIn("Bootweave executor signalled to stop", end.executor_messages)

    def test_less_than_stop_is_a_command(self):
        answers, _ = self._ask("sto", "note")
        self.assertEqual(["1", "0"], answers)

    def test_who_leaves_before_the_answer_costs_a_line(self):
        leave = "import socket; s = socket.socket(socket.AF_UNIX); s.connect(\"" + _SOCKET + \
                "\"); s.send(b\"note\"); s.close(); open(\"/run/left\", \"w\")"
        await_leaving = command("note", UNTIL + 'until_ test -e /run/left\necho "$*"')
        answers, end = self._ask("note --last", files=[await_leaving], before=f"python3 -ISc '{leave}';",
                                 after=f"until_ grep -q 'Sending command' {EXECUTOR_LOG}")
        self.assertEqual((["0"], ["", "--last=true"]), (answers, end.command_output))
        self.assertIn((WARNING, "Sending command status to bootweave failed"), end.complaints)

    def test_who_says_nothing_holds_up_the_others_for_a_while_only(self):
        hold = "import socket, time; s = socket.socket(socket.AF_UNIX); s.connect(\"" + _SOCKET + \
               "\"); open(\"/run/held\", \"w\"); time.sleep(1000)"
        answers, end = self._ask("note", before=UNTIL + f"python3 -ISc '{hold}' & until_ test -e /run/held;")
        self.assertEqual(["0"], answers)
        self.assertIn((WARNING, "Failed to read message from socket - Resource temporarily unavailable"),
                      end.complaints)

    def test_another_user_cannot_connect(self):
        self.need_users()
        end = self.host(_ASK, _NOTE).shell(
            f"{_LEAVE_EXECUTOR} setpriv --reuid=65534 --clear-groups ask note stop; ask note")
        self.assertEqual(["Permission denied"] * 2 + ["0"], end.stdout.splitlines())

    def test_another_user_who_got_through_is_closed_unanswered_with_a_warning(self):
        self.need_users()
        end = self.host(_ASK, _NOTE).shell(f"{_LEAVE_EXECUTOR} chmod 666 {_SOCKET};"
                                           "setpriv --reuid=65534 --clear-groups ask note stop;"
                                           "ask 'note --n=1'")
        *others, own = end.stdout.splitlines()
        self.assertEqual((["--n=1"], "0"), (end.command_output, own))
        for answer in others:
            self.assertIn(answer, ("end after b''", "Connection reset by peer", "Broken pipe"))
        refused = [entry for entry in end.complaints if "user 65534" in entry[1]]
        self.assertEqual([WARNING, WARNING], [level for level, _ in refused])

    def test_sixteen_who_come_at_once_are_all_answered(self):
        answers, end = self._ask("note --n=0", after="for n in $(seq 16); do ask note & done; wait")
        self.assertEqual(["0"] * 17, answers)
        self.assertEqual(17, len(end.command_output))


class LimitTest(SystemTest):
    """Processes that may have but a few descriptors, or no child."""

    def test_without_descriptors_for_their_sockets_client_and_executor_say_so(self):
        self.need_small_limits()
        end = self.host(plugin("p", ["note"]), _NOTE).shell(UNTIL + f"""
            (ulimit -n 4; exec bootweave --plugin=p.json)
            until_ grep -q 'Poll Loop' {EXECUTOR_LOG}""")
        self.assertIn("Failed creating bootweave client socket Too many open files", end.messages)
        self.assertIn("Failed setting up Poll Loop for executor", end.executor_messages)

    _NOT_ACCEPTED = (WARNING, "Error accepting connection on contol socket - Too many open files")

    def test_a_connection_that_cannot_be_accepted_is_closed_and_a_later_one_answered(self):
        end = self.host(_ASK, _NOTE).shell(UNTIL + _LEAVE_EXECUTOR + """
            executor=$(pidof bootweave)
            ask note
            prlimit --pid $executor --nofile=$(ls /proc/$executor/fd | wc -l):
            ask note note
            prlimit --pid $executor --nofile=100:
            ask note""", timeout=30)
        self.assertEqual(["0", "end after b''", "end after b''", "0"], end.stdout.splitlines())
        refused = [entry for entry in end.complaints if "accepting" in entry[1]]
        self.assertEqual([self._NOT_ACCEPTED] * 2, refused)

    def test_commands_are_known_again_after_a_first_one_without_a_descriptor_to_be_had(self):
        self.need_small_limits()
        end = self.host(_ASK, _NOTE).shell(UNTIL + _LEAVE_EXECUTOR + """
            executor=$(pidof bootweave)
            prlimit --pid $executor --nofile=$(($(ls /proc/$executor/fd | wc -l) + 1)):
            ask note
            prlimit --pid $executor --nofile=100:
            ask 'note --n=1'""", timeout=30)
        first, second = end.stdout.splitlines()
        self.assertNotEqual("0", first)
        self.assertEqual(("0", ["--n=1"]), (second, end.command_output))

    def test_commands_run_where_stacks_are_limited_to_24_KiB(self):
        # 16 are too few: the kernel begins the main thread's stack up to 8 further down.
        self.need_small_limits()
        end = self.host(plugin("p", ["note"]), _NOTE).shell("ulimit -s 24; exec bootweave --plugin=p.json")
        self.assertEqual((0, ["p"], []), (end.status, end.succeeded, end.complaints))

    def test_a_run_with_hardly_a_descriptor_ends_and_leaves_no_executor_behind(self):
        self.need_small_limits()
        host = self.host(plugin("p", ["note"]), _NOTE)
        for limit in range(5, 9):
            with self.subTest(limit):
                end = host.shell(UNTIL + f"prlimit --nofile={limit} bootweave --plugin=p.json; echo $?;"
                                 "until_ sh -c '! pidof -q bootweave'", timeout=30)
                self.assertEqual((0, "0", ["p"]), (end.status, end.stdout.splitlines()[-1], list(end.failed)))

    def test_without_a_process_to_be_had_the_run_ends(self):
        self.need_users()
        end = self.host(plugin("p"), setup="chown 65534 /run/corvane").shell(
            "setpriv --reuid=65534 --clear-groups prlimit --nproc=1 bootweave")
        text = "Failed to start executor Failed to forkResource temporarily unavailable"
        self.assertEqual((1, (WARNING, text)), (end.status, end.complaints[-1]))


class OtherUserTest(SystemTest):
    """The whole program, run by somebody else than root."""

    def _boot(self, *files, setup="true"):
        self.need_users()
        return self.host(*files, setup=f"chown 65534 /run/corvane /var/log; {setup}").shell(
            "exec setpriv --reuid=65534 --clear-groups --bounding-set=-all bootweave")

    def test_commands_of_its_own_and_of_roots_are_trusted(self):
        end = self._boot(plugin("p", ["note --n=1", "own"]), _NOTE, command("own", "echo own"),
                         setup=f"chown 65534 {COMMANDS}/own")
        self.assertEqual((0, ["--n=1", "own"]), (end.status, end.command_output))

    def test_commands_of_a_third_user_are_not(self):
        end = self._boot(plugin("p", ["note"]), _NOTE, setup=f"chown 65533 {COMMANDS}/note")
        self.assertIn((ERROR, "execution of 'note' failed : note: not a trusted executable"),
                      end.complaints)

    def test_a_kernel_log_that_is_not_its_to_write_is_told_to_the_system_log(self):
        end = self._boot(plugin("p"))
        self.assertEqual((ERROR, "Exception occurred while logging msg: Permission denied"),
                         end.complaints[0])
        self.assertEqual(0, end.status)
