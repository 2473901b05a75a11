# SPDX-License-Identifier: Apache-2.0
"""Native plugins: shared objects built as their authors build them, on a host."""

import os
import re
import shutil
import subprocess
import tempfile

from dot_text import read_dot
from harness import ERROR, NOTICE, PLUGINS, WARNING, Directory, File, Link, SystemTest, command, plugin
from native_build import compile_object, environment, native, native_source

_PROFILE = {"/etc/corvane/hostprofile.xml": ""}
_EXECUTOR = "/usr/lib/corvane/bootweave/nativeExecutor"
_READER = "/usr/lib/corvane/bootweave/nativeReader"
_EXAMPLES = os.path.join(os.path.dirname(os.path.realpath(__file__)), "..", "..", "examples", "plugins")


def _path(name):
    return f"{PLUGINS}/{name}.so"


def _invalid(name, reason):
    """The line about a native plugin that cannot be loaded."""
    return ERROR, f"plugin `{_path(name)}' is invalid: {reason}"


def _no_file(name):
    return _invalid(name, f"{_path(name)}: cannot open shared object file: No such file or directory")


def _on_load(body):
    """C text that runs when the object is loaded."""
    return f"__attribute__((constructor)) static void Load(void) {{ {body} }}\n"


def _on_close(body):
    return f"__attribute__((destructor)) static void Close(void) {{ {body} }}\n"


def _failed(name, reason, method="start"):
    """The line about a method that fails."""
    return ERROR, f"Method invocation failed: {name}->{method}() failed: {reason}"


class RunTest(SystemTest):
    def test_native_plugins_and_others_run_in_the_order_that_their_barriers_ask_for(self):
        end = self.host(native("c", requires=["two"]), native("a", provides=["one"]),
                        plugin("b", requires=["one"], provides=["two"])).boot()
        self.assertEqual((0, ["a", "b", "c"], []), (end.status, end.succeeded, end.complaints))
        self.assertIn((NOTICE, "executing start plugin: a"), end.said)

    def test_several_names_and_several_plugins_of_one_barrier_all_count(self):
        end = self.host(native("z", provides=["up", "down"]), native("y", provides=["up"]),
                        native("x", requires=["down", "up"])).boot()
        self.assertEqual("x", end.succeeded[2])

    def test_null_lists_are_empty(self):
        end = self.host(native("a")).boot("--dump-dependency-tree=/run/dot")
        dot = read_dot(end.read("/run/dot"))
        self.assertEqual((["a"], [], []), (dot.plugins, dot.barriers, dot.edges))

    def test_an_operation_gets_the_name_and_has_the_boots_streams(self):
        body = ('printf("out %s\\n", name); fflush(stdout); fprintf(stderr, "err %s\\n", name); '
                'char input[8]; printf("read %zd\\n", read(0, input, sizeof input));')
        end = self.host(native("foo", body, file_name="libfoo.so")).boot()
        self.assertIn("out foo\n", end.stdout)
        self.assertIn("read 0\n", end.stdout)
        self.assertIn("err foo\n", end.stderr)

    def test_an_operation_has_three_descriptors_and_no_signal_blocked_or_ignored(self):
        body = ('int fds = 0; for (int fd = 0; fd < 1024; ++fd) { fds += fcntl(fd, F_GETFD) >= 0; } '
                'int ignored = 0; for (int number = 1; number < 32; ++number) { struct sigaction action; '
                'ignored += sigaction(number, NULL, &action) == 0 && action.sa_handler != SIG_DFL; } '
                'sigset_t mask; sigprocmask(SIG_BLOCK, NULL, &mask); '
                'printf("%d %d %d\\n", fds, ignored, sigisemptyset(&mask));')
        end = self.host(native("a", body)).shell("trap '' PIPE; exec bootweave 7</dev/null")
        self.assertIn("3 0 1\n", end.stdout)

    def test_each_operation_is_a_process_of_its_own_outside_the_boots(self):
        body = 'printf("%s by %d of %d\\n", name, (int)getpid(), (int)getppid());'
        end = self.host(native("a", body), native("b", body)).boot()
        found = re.findall(r"^([ab]) by (\d+) of (\d+)$", end.stdout, re.MULTILINE)
        self.assertEqual({"a", "b"}, {name for name, _, _ in found})
        self.assertEqual(2, len({process for _, process, _ in found}))
        self.assertEqual({str(end.log[0].process)}, {parent for _, _, parent in found})

    def test_several_run_at_once_in_a_parallel_boot(self):
        # Each waits until all have begun: one after the other they would never end.
        body = ('char mine[64]; snprintf(mine, sizeof mine, "/run/begun-%s", name); '
                'close(open(mine, O_CREAT | O_WRONLY, 0600)); '
                'while (access("/run/begun-a", F_OK) || access("/run/begun-b", F_OK)) { usleep(1000); }')
        end = self.host(native("a", body), native("b", body)).boot("--parallel", timeout=30)
        self.assertEqual((0, ["a", "b"]), (end.status, sorted(end.succeeded)))

    def test_a_dump_has_their_edges_and_runs_none(self):
        end = self.host(native("a", 'puts("ran");', requires=["x"], provides=["y"]),
                        plugin("b", provides=["x"])).boot("--dump-dependency-tree=/run/dot")
        self.assertEqual([("a", "y"), ("b", "x"), ("x", "a")], read_dot(end.read("/run/dot")).sorted_edges)
        self.assertNotIn("ran", end.stdout)

    def test_nothing_that_read_them_is_left_when_plugins_run(self):
        look = ('cat /proc/[0-9]*/comm | grep -c nativeReader; '
                'for stat in /proc/[0-9]*/stat; do grep " Z " $stat; done')
        end = self.host(native("a"), native("b", more=_on_load("raise(SIGKILL);")),
                        plugin("c", ["look"]), command("look", f"({look}) 2>/dev/null; exit 0")).boot()
        self.assertEqual(["0"], end.command_output)


class MethodTest(SystemTest):
    _BOTH = {"start": 'puts("started");', "apply": 'puts("applied");'}

    def test_with_a_host_profile_one_of_version_2_applies_it(self):
        end = self.host(native("a", version=2, **self._BOTH), _PROFILE).boot()
        self.assertEqual(("applied\n", ["a"]), (self._said(end), end.succeeded))
        self.assertIn((NOTICE, "executing host profile plugin: a"), end.said)

    def test_without_a_host_profile_it_starts(self):
        end = self.host(native("a", version=2, **self._BOTH)).boot()
        self.assertEqual("started\n", self._said(end))

    def test_one_of_version_2_without_the_operation_starts_even_with_a_host_profile(self):
        end = self.host(native("a", 'puts("started");', version=2), _PROFILE).boot()
        self.assertEqual(("started\n", ["a"]), (self._said(end), end.succeeded))

    def test_one_of_version_1_starts_even_with_the_operation_and_a_host_profile(self):
        end = self.host(native("a", version=1, **self._BOTH), _PROFILE).boot()
        self.assertEqual("started\n", self._said(end))

    def test_applying_is_not_implemented_below_version_2_or_without_the_operation(self):
        for options in {"version": 1, **self._BOTH}, {"version": 2}:
            with self.subTest(options):
                end = self.host(native("a", **options)).boot("--method=apply_host_profile")
                self.assertEqual([(ERROR, "unable to invoke method 'apply_host_profile' on plugin 'a': "
                                          "method `NativePlugin::ApplyHostProfile' is not implemented")],
                                 end.complaints)
                self.assertEqual(({"a": "Method invocation failed"}, ""), (end.failed, self._said(end)))

    def test_a_named_method_runs_its_operation(self):
        host = self.host(native("a", version=2, **self._BOTH))
        for method, said in ("apply_host_profile", "applied\n"), ("start", "started\n"):
            end = host.boot("--invoke", f"--method={method}", "--plugin=a.so")
            self.assertEqual((0, said, ["a"]), (end.status, self._said(end), end.succeeded))

    def test_any_other_method_is_a_silent_success(self):
        end = self.host(native("a", version=2, **self._BOTH)).boot("--method=foo")
        self.assertEqual(("", ["a"], []), (self._said(end), end.succeeded, end.complaints))

    @staticmethod
    def _said(end):
        return "".join(line + "\n" for line in end.stdout.splitlines() if line in ("started", "applied"))


class FailureTest(SystemTest):
    """A plugin whose operation fails; beside it a good one, which must not suffer."""

    def _check(self, reason, *files, **options):
        end = self.host(plugin("good"), *files).boot(**options)
        self.assertEqual((0, ["good"], [_failed("a", reason)]), (end.status, end.succeeded, end.complaints))
        self.assertEqual({"a": f"a->start() failed: {reason}"}, end.failed)

    def test_an_operation_that_returns_anything_but_0(self):
        self._check("exited with code 1", native("a", "return 77;"))

    def test_an_operation_that_exits(self):
        self._check("exited with code 3", native("a", "exit(3);"))

    def test_an_operation_that_is_killed(self):
        self._check("exited with signal: 9", native("a", "raise(SIGKILL);"))

    def test_an_operation_that_crashes(self):
        self._check("exited with signal: 11", native("a", "*(volatile int *)8 = 1;"))

    def test_an_operation_that_aborts(self):
        self._check("exited with signal: 6", native("a", "abort();"))

    def test_an_object_that_crashes_only_when_it_is_loaded_to_run(self):
        more = _on_load('if (access("/run/bootweave-read", F_OK) == 0) { raise(SIGSEGV); } '
                        'close(open("/run/bootweave-read", O_CREAT | O_WRONLY, 0600));')
        self._check("exited with signal: 11", native("a", more=more))

    def test_an_object_that_is_gone_when_it_is_to_run(self):
        gone = plugin("b", ["gone"], provides=["gone"])
        self._check_more("exited with code 3", gone, native("a", requires=["gone"]),
                         command("gone", f"rm {_path('a')}"))

    def _check_more(self, reason, *files):
        end = self.host(*files).boot()
        self.assertEqual([_failed("a", reason)], end.complaints)
        self.assertIn(f"nativeExecutor: {_path('a')}: cannot open shared object file", end.stderr)

    def test_an_executor_that_cannot_be_started(self):
        self._check("failed to spawn: Permission denied", native("a"), {_EXECUTOR: "no program"})

    def test_an_executor_that_is_killed_or_exits(self):
        self._check("exited with signal: 9", native("a"), {_EXECUTOR: File("#!/bin/sh\nkill -9 $$\n", 0o755)})
        self._check("exited with code 3", native("a"), {_EXECUTOR: File("#!/bin/sh\nexit 3\n", 0o755)})

    def test_an_operation_that_hangs_for_a_while_holds_up_only_what_waits_for_it(self):
        slow = native("a", 'while (access("/run/go", F_OK)) { usleep(1000); }', provides=["late"])
        end = self.host(slow, plugin("b", ["go"]), plugin("c", requires=["late"]),
                        command("go", "touch /run/go")).boot("--parallel", timeout=30)
        self.assertEqual((0, ["a", "b", "c"]), (end.status, sorted(end.succeeded)))
        self.assertEqual("c", end.activated[2])

    def test_an_operation_that_prints_garbage(self):
        body = ('for (int i = 0; i < 1000; ++i) { putchar(i & 0xFF); } '
                'puts("\\n<2>bootweave: Bootweave plugin good activated.");')
        end = self.host(plugin("good"), native("a", body)).boot()
        self.assertEqual((["a", "good"], []), (sorted(end.succeeded), end.complaints))


class LoadTest(SystemTest):
    """A file that cannot be loaded costs a line; the good ones beside it run."""

    def _check(self, line, *files):
        end = self.host(native("good"), plugin("other"), *files).boot()
        self.assertEqual((0, ["good", "other"], [line]), (end.status, sorted(end.succeeded), end.complaints))
        return end

    def test_versions_other_than_1_to_4(self):
        for version in 0, 5, -1, 2147483647:
            with self.subTest(version):
                self._check(_invalid("a", "Unsupported API version"), native("a", version=version))

    def test_versions_1_to_4(self):
        end = self.host(*(native(f"v{version}", version=version) for version in (1, 2, 3, 4))).boot()
        self.assertEqual((["v1", "v2", "v3", "v4"], []), (sorted(end.succeeded), end.complaints))

    def test_a_missing_symbol(self):
        text = native_source()
        for symbol in "operations", "metadata":
            with self.subTest(symbol):
                kept = "".join(line + "\n" for line in text.splitlines()
                               if not line.startswith(f"BOOTWEAVE_PLUGIN_{symbol.upper()}"))
                kept = kept.replace("static int Start", "int Start")
                self._check((ERROR, f"Failed loading symbol: {symbol} Located at: {_path('a')} Reason: "
                                    f"{_path('a')}: undefined symbol: {symbol}"),
                            {_path("a"): compile_object(kept)})

    def test_what_is_no_object(self):
        self._check(_invalid("a", f"{_path('a')}: invalid ELF header"), {_path("a"): "x" * 1000})
        self._check(_invalid("a", f"{_path('a')}: file too short"), {_path("a"): ""})

    def test_an_object_that_needs_another_one_that_is_not_there(self):
        needs = native_source("missing_function();", more="void missing_function(void);")
        # Bound when it is called, so that it can be loaded.
        end = self.host({_path("a"): compile_object(needs)}).boot()
        self.assertEqual({"a": "a->start() failed: exited with code 127"}, end.failed)

    def test_a_name_without_a_file(self):
        end = self.host(native("good")).boot("--plugin=none.so,good.so")
        self.assertEqual((["good"], [_no_file("none")]), (end.succeeded, end.complaints))

    def test_what_is_no_regular_file(self):
        self._check(_no_file("a"), {_path("a"): Directory()})
        self._check(_no_file("a"), {_path("a"): Link("/dev/zero")})
        self._check(_no_file("a"), {_path("a"): Link("/nowhere")})
        end = self.host(native("good")).shell(f"mkfifo {_path('a')}; exec bootweave", timeout=30)
        self.assertEqual((0, ["good"], [_no_file("a")]), (end.status, end.succeeded, end.complaints))

    def test_a_link_to_a_good_object(self):
        end = self.host({"/opt/x": compile_object(native_source()), _path("a"): Link("/opt/x")}).boot()
        self.assertEqual(["a"], end.succeeded)

    def test_an_object_that_crashes_while_it_is_loaded(self):
        self._check(_invalid("a", "metadata reader exited with signal: 11"),
                    native("a", more=_on_load("*(volatile int *)8 = 1;")))

    def test_an_object_that_crashes_while_it_is_closed(self):
        self._check(_invalid("a", "metadata reader exited with signal: 11"),
                    native("a", more=_on_close("*(volatile int *)8 = 1;")))

    def test_an_object_that_exits_while_it_is_loaded(self):
        self._check(_invalid("a", "metadata reader exited with code 3"),
                    native("a", more=_on_load("exit(3);")))
        self._check(_invalid("a", "metadata reader exited with code 0"),
                    native("a", more=_on_load("_exit(0);")))

    def test_an_object_whose_lists_lead_nowhere(self):
        wild = native_source().replace("(1, NULL,", "(1, (const char *const *)8,")
        self._check(_invalid("a", "metadata reader exited with signal: 11"),
                    {_path("a"): compile_object(wild)})

    def test_an_object_that_hangs_while_it_is_loaded_costs_ten_seconds_and_itself(self):
        end = self._check(_invalid("a", "metadata reader did not answer within 10 s"),
                          native("a", more=_on_load("for (;;) { pause(); }")))
        self.assertGreaterEqual(end.seconds, 10)

    def test_an_object_that_hangs_for_a_while_while_it_is_loaded_is_waited_for(self):
        end = self.host(native("a", more=_on_load("usleep(300000);"))).boot()
        self.assertEqual((["a"], []), (end.succeeded, end.complaints))

    def test_an_object_that_prints_garbage_while_it_is_loaded(self):
        garbage = ('for (int fd = 1; fd < 64; ++fd) { if (write(fd, "\\0\\0\\0\\7garbage\\377\\n", 13) < 0) '
                   '{ continue; } }')
        end = self.host(native("a", more=_on_load(garbage) + _on_close(garbage)), native("good")).boot()
        self.assertEqual((["a", "good"], []), (sorted(end.succeeded), end.complaints))
        self.assertIn("garbage", end.stdout)

    def test_an_object_that_closes_every_descriptor_while_it_is_loaded_spoils_no_other(self):
        close_all = _on_load("for (int fd = 0; fd < 1024; ++fd) { close(fd); }")
        end = self.host(*(native(name, more=close_all) for name in "abc"), native("good")).boot()
        self.assertEqual((["a", "b", "c", "good"], []), (sorted(end.succeeded), end.complaints))

    def test_an_object_that_sets_a_timer_and_ignores_signals_spoils_no_other(self):
        spoil = _on_load("for (int i = 1; i < 32; ++i) { signal(i, SIG_IGN); } "
                         "signal(SIGALRM, SIG_DFL); ualarm(50000, 0);")
        end = self.host(native("a", more=spoil), native("b", more=_on_load("usleep(200000);"))).boot()
        self.assertEqual((["a", "b"], []), (sorted(end.succeeded), end.complaints))

    def test_a_process_that_an_object_leaves_behind_while_it_is_loaded_is_ended(self):
        stay = _on_load('if (fork() == 0) { setsid(); for (;;) { pause(); } }')
        look = "for c in /proc/[0-9]*/comm; do grep nativeReader $c; done 2>/dev/null; exit 0"
        end = self.host(native("a", more=stay), plugin("b", ["look"]), command("look", look)).boot()
        self.assertEqual((["a", "b"], []), (sorted(end.succeeded), end.command_output))

    def test_objects_with_the_same_global_symbols_keep_their_own(self):
        files = {}
        for name in "abc":
            names = (f'BOOTWEAVE_PLUGIN_EXPORT const char *const all_names[]; '
                     f'const char *const all_names[] = {{"{name}-up", NULL}};')
            source = native_source(more=names).replace("(1, NULL, NULL,", "(1, NULL, all_names,")
            files[_path(name)] = compile_object(source)
        end = self.host(files).boot("--dump-dependency-tree=/run/dot")
        self.assertEqual([("a", "a-up"), ("b", "b-up"), ("c", "c-up")],
                         read_dot(end.read("/run/dot")).sorted_edges)

    def test_objects_cut_at_many_lengths_do_not_take_the_boot_down(self):
        whole = compile_object(native_source(provides=["up"]))
        lengths = range(0, len(whole), max(1, len(whole) // 60))
        files = {_path(f"cut{length}"): whole[:length] for length in lengths}
        end = self.host(files, native("good")).boot()
        self.assertEqual(0, end.status)
        self.assertIn("good", end.succeeded)
        # Each is a plugin that has begun, or one line.
        refused = sum("is invalid" in text or "Failed loading" in text for _, text in end.complaints)
        self.assertEqual(len(files) + 1, len(end.activated) + refused)
        self.assertGreater(len(end.complaints), 10)

    def test_a_reader_that_cannot_be_started_costs_the_native_plugins_only(self):
        end = self.host(native("a"), native("b"), plugin("c"), {_READER: "no program"}).boot()
        reason = "metadata reader failed to spawn: Permission denied"
        self.assertEqual((0, ["c"], [_invalid("a", reason), _invalid("b", reason)]),
                         (end.status, end.succeeded, sorted(end.complaints)))


class FilterTest(SystemTest):
    """What is asked of JSON plugins is asked of native ones."""

    def test_a_leading_lib_does_not_belong_to_the_name(self):
        host = self.host(native("foo", file_name="libfoo.so"))
        self.assertEqual(["foo"], host.boot("--disable-plugins=libfoo").succeeded)
        end = host.boot("--disable-plugins=foo")
        self.assertEqual([], end.activated)
        self.assertIn((NOTICE, "ignoring plugin 'foo' due to denylist."), end.said)

    def test_flags_count_from_version_3_on(self):
        options = {"required_flags": ["fast", "big"], "disabling_flags": ["broken"]}
        host = self.host(native("old", version=2, **options), native("new", version=3, **options))
        end = host.boot("--plugin-flags=broken")
        self.assertEqual((["old"], [
            (WARNING, "ignoring plugin 'new', disabled due to boot flags: broken ."),
            (WARNING, "ignoring plugin 'new', disabled due to missing required boot flags: big fast .")]),
            (end.succeeded, end.complaints))
        self.assertEqual(["new", "old"], sorted(host.boot("--plugin-flags=big,fast").succeeded))

    def test_run_once_counts_from_version_3_on(self):
        options = {"run_once": 128, "plugin_version": "1.0"}
        host = self.host(native("old", version=2, **options), native("new", version=4, **options))
        end = host.boot("--run-once=old1.0,new1.0")
        self.assertEqual(["old"], end.succeeded)
        self.assertIn((NOTICE, "ignoring plugin 'new' because version '1.0'  has already been run."),
                      end.said)
        self.assertEqual(["new", "old"], sorted(host.boot("--run-once=new").succeeded))

    def test_a_version_that_is_null_is_empty(self):
        end = self.host(native("a", version=3, run_once=1)).boot("--run-once=a")
        self.assertIn((NOTICE, "ignoring plugin 'a' because version ''  has already been run."), end.said)

    def test_other_extensions_are_no_native_plugins(self):
        data = compile_object(native_source())
        end = self.host({f"{PLUGINS}/a.SO": data, f"{PLUGINS}/b.so.1": data}).boot()
        self.assertEqual([(WARNING, "ignoring plugin 'a.SO' of unknown type (SO)..."),
                          (WARNING, "ignoring plugin 'b.so.1' of unknown type (1)...")],
                         sorted(end.complaints))


class ExecutorProgramTest(SystemTest):
    """The program by itself, as a plugin's author may run it."""

    def _check(self, status, said, words, *files):
        end = self.host(*files).shell(f"exec {_EXECUTOR} {words}")
        self.assertEqual((status, said), (end.status, end.stderr))

    def test_success_and_failure_of_the_operation(self):
        both = native("a", apply="return 5;")
        self._check(0, "", f"{_path('a')} a start", both)
        self._check(1, "", f"{_path('a')} a apply_host_profile", both)

    def test_wrong_usage(self):
        usage = "nativeExecutor: usage: nativeExecutor PATH NAME METHOD\n"
        for words in "", "/a.so", "/a.so a", "/a.so a start now":
            self._check(2, usage, words)

    def test_an_object_that_cannot_be_loaded(self):
        self._check(3, "nativeExecutor: /a.so: cannot open shared object file: No such file or directory\n",
                    "/a.so a start")

    def test_a_method_that_there_is_not(self):
        self._check(4, f"nativeExecutor: {_path('a')}: unknown method stop\n",
                    f"{_path('a')} a stop", native("a"))
        self._check(4, f"nativeExecutor: {_path('a')}: has no operation for apply_host_profile\n",
                    f"{_path('a')} a apply_host_profile", native("a"))

    def test_the_reader_is_for_the_boot_only(self):
        end = self.host().shell(f"exec {_READER} </dev/null")
        usage = "nativeReader: is for bootweave, which starts it with a socket as descriptor 3\n"
        self.assertEqual((2, usage), (end.status, end.stderr))


class ExampleTest(SystemTest):
    """The examples, built outside the tree with nothing but what is installed."""

    def _built(self, folder):
        """Files as "make install" lays them."""
        directory = tempfile.mkdtemp(prefix="bootweave-system-")
        self.addCleanup(shutil.rmtree, directory)
        work = shutil.copytree(os.path.join(_EXAMPLES, folder), os.path.join(directory, "work"))
        root = os.path.join(directory, "root")
        subprocess.run(["make", "-s", "-C", work, "install", f"DESTDIR={root}"], env=environment(),
                       check=True)
        files = {}
        for place, _, names in os.walk(root):
            for name in names:
                path = os.path.join(place, name)
                with open(path, "rb") as file:
                    files["/" + os.path.relpath(path, root)] = file.read()
        return files

    def test_the_example_in_c(self):
        files = self._built("native-c")
        self.assertEqual([f"{PLUGINS}/random-seed.so"], list(files))
        end = self.host(files, plugin("s", provides=["scratch"]),
                        {"/var/lib/corvane/random-seed": b"\7" * 100}).boot()
        self.assertEqual((["s", "random-seed"], []), (end.succeeded, end.complaints))
        self.assertIn("random-seed: 100 bytes\n", end.stdout)

    def test_the_example_in_cpp(self):
        files = self._built("native-cpp")
        self.assertEqual([f"{PLUGINS}/rack-label.so"], list(files))
        host = self.host(files, plugin("s", provides=["names"]), {"/var/lib/corvane": Directory()})
        end = host.shell("hostname rack7 && exec bootweave")
        self.assertEqual((["s", "rack-label"], []), (end.succeeded, end.complaints))
        self.assertEqual("rack7\n", end.read("/var/lib/corvane/rack-label"))
        host.write(_PROFILE)
        end = host.shell("hostname rack7 && exec bootweave")
        self.assertEqual("rack7 (profile)\n", end.read("/var/lib/corvane/rack-label"))
        self.assertEqual(["s"], host.boot("--plugin-flags=maintenance").succeeded)
        self.assertEqual(["s"], host.boot("--run-once=rack-label1.0").succeeded)


class SampleHostTest(SystemTest):
    def test_the_sample_hosts_native_plugins_start(self):
        end = self.sample_host().boot("--init")
        self.assertLessEqual({"cpu-power", "hardware-inventory", "watchdog-arm"}, set(end.succeeded))
        self.assertEqual("balanced\n", end.read("/var/lib/corvane/cpu-power"))
        self.assertRegex(end.read("/var/lib/corvane/hardware-inventory"),
                         r"^processors \d+\nmemory-mib \d+\n$")

    def test_with_a_host_profile_the_one_that_supports_it_applies_it(self):
        end = self.sample_host(profile="edge").boot("--init")
        self.assertEqual("performance\n", end.read("/var/lib/corvane/cpu-power"))
        self.assertIn("hardware-inventory", end.succeeded)
