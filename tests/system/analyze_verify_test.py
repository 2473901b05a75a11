# SPDX-License-Identifier: Apache-2.0
"""bootweave-analyze verify: it finds what a boot would, in the words of the boot, and changes nothing."""

import json
import os
import pty
import re

from harness import COMMANDS, PLUGINS, File, SystemTest, command, plugin
from native_build import native

_MISTAKES = os.path.join(os.path.dirname(os.path.realpath(__file__)), "..", "..", "examples", "mistakes")
_ANALYZE = "/usr/bin/bootweave-analyze"
_DEBUG = "/etc/corvane/bootweave/debug.conf"

# Names each file and directory of the host's own that has changed since the stamp.
_CHANGED = f"find /mistakes {PLUGINS} {COMMANDS} /etc /var/log /run /bootbank -newercm /stamp"


def _read(name):
    with open(os.path.join(_MISTAKES, name), encoding="utf-8") as file:
        return file.read()


def _mistakes(place):
    """The plugins of examples/mistakes, below this directory of a host, and the commands of that host."""
    files = {f"{place}/plugins/{name}": _read(f"plugins/{name}")
             for name in os.listdir(os.path.join(_MISTAKES, "plugins"))}
    return {**files, f"{place}/debug.conf": _read("debug.conf"), **command("net.ip.set", "true"),
            **command("net.link.up", "true", mode=0o644)}


def _findings(end):
    return json.loads(end.stdout)["findings"]


def _texts(end, *kinds):
    return [finding["text"] for finding in _findings(end) if finding["kind"] in kinds]


class MistakesTest(SystemTest):
    """One of each mistake."""

    def _verify(self, *words):
        script = f"""cd /mistakes && chmod 666 plugins/writable.json &&
            exec {_ANALYZE} verify plugins debug.conf {" ".join(words)}"""
        return self.host(_mistakes("/mistakes")).shell(script)

    def test_each_mistake_is_found_and_what_stands_beside_it_is_not(self):
        end = self._verify()
        self.assertEqual((1, "", _read("expected.txt")), (end.status, end.stderr, end.stdout))

    def test_the_example_has_every_kind_but_what_cannot_be_read(self):
        end = self._verify("--json")
        self.assertEqual({
            "not-loaded", "syntax", "ignored", "unknown-key", "unread-key", "repeated-key", "flags",
            "run-once", "command", "writable", "duplicate-name", "debug-line", "debug-file", "cycle",
            "not-provided", "not-required"}, {finding["kind"] for finding in _findings(end)})

    def test_programs_get_the_same_findings(self):
        end = self._verify("--json")
        report = json.loads(end.stdout)
        lines = [f"{found['file']}: {found['severity']}: {found['text']}" for found in report["findings"]]
        lines.append(f"{report['plugins']} plugins: {report['errors']} errors, {report['warnings']} warnings")
        self.assertEqual((1, _read("expected.txt").splitlines()), (end.status, lines))


class SameWordsTest(SystemTest):
    """What is found is what a boot logs."""

    def _boot(self, *files):
        """What comes of a host's verification, and of its boot."""
        host = self.host(*files)
        return host.run(_ANALYZE, "verify", "--json"), host.boot()

    def test_files_that_are_not_loaded_and_lines_that_are_malformed_have_the_texts_of_the_log(self):
        files = {path.replace("/mistakes/plugins", PLUGINS).replace("/mistakes/debug.conf", _DEBUG): file
                 for path, file in _mistakes("/mistakes").items() if "circle" not in path}
        verified, end = self._boot(files)
        texts = _texts(verified, "not-loaded", "ignored", "debug-line")
        self.assertEqual(7, len(texts))
        self.assertEqual([], [text for text in texts if text not in end.messages])

    def test_a_native_plugin_that_is_refused_has_the_text_of_the_log(self):
        verified, end = self._boot(native("new", version=5), native("good"))
        self.assertEqual([f"plugin `{PLUGINS}/new.so' is invalid: Unsupported API version"],
                         _texts(verified, "not-loaded"))
        self.assertIn(_texts(verified, "not-loaded")[0], end.messages)

    def test_commands_that_are_not_run_have_the_errors_of_the_executor(self):
        lines = ["net up", "net down --x=1", "a/b", "a 'b", "c"]
        verified, end = self._boot(plugin("p", start=lines), command("net.up", "true", mode=0o644),
                                   command("net.up", "true", directory=f"{COMMANDS}/int"))
        expected = ["command 'net up': net.up: not a trusted executable",
                    "command 'net down --x=1': unknown command: net down",
                    "command 'a/b': invalid command word 'a/b'",
                    "command 'a 'b': unterminated quote",
                    "command 'c': unknown command: c"]
        self.assertEqual(expected, _texts(verified, "command"))
        failures = [f"execution of '{line}' failed : {text.split(': ', 1)[1]}"
                    for line, text in zip(lines, expected) if line in ("net up", "net down --x=1", "c")]
        failures += [f"Executor was unable to parse command: {text.split(': ', 1)[1]}"
                     for line, text in zip(lines, expected) if line in ("a/b", "a 'b")]
        self.assertEqual([], [text for text in failures if text not in end.executor_messages])

    def test_a_command_that_is_fine_runs_in_a_boot_and_not_before(self):
        verified, end = self._boot(plugin("p", start=["net up --all"]),
                                   command("net.up", "touch /var/log/ran"))
        self.assertEqual((0, []), (verified.status, _findings(verified)))
        self.assertEqual((None, ""), (verified.read("/var/log/ran"), end.read("/var/log/ran")))

    def test_plugins_that_wait_for_each_other_are_those_that_stall_a_boot(self):
        host = self.host(plugin("a", requires=["x"], provides=["y"]),
                         plugin("b", requires=["y"], provides=["z"]),
                         plugin("c", requires=["z"], provides=["x"]), plugin("d", requires=["x"]))
        script = f"""{_ANALYZE} verify --json
            bootweave >/log & until grep -q stalled /log; do sleep 0.02; done; kill $!; cat /log"""
        end = host.shell(script)
        report, *log = end.stdout.splitlines()
        found = [finding["text"] for finding in json.loads(report)["findings"] if finding["kind"] == "cycle"]
        self.assertEqual(["plugins wait for each other: a -> c -> b -> a"], found)
        stalled = next(line for line in log if "stalled" in line)
        # A boot may begin anywhere in the circle.
        circles = [f"{one} -> {two} -> {three} -> {one}"
                   for one, two, three in (("a", "c", "b"), ("c", "b", "a"), ("b", "a", "c"))]
        self.assertIn(stalled.split("wait for each other: ")[1], circles)

    def test_barriers_that_nobody_provides_are_those_that_a_boot_reports(self):
        verified, end = self._boot(plugin("a", requires=["x", "y"]), plugin("b", provides=["y", "z"]))
        self.assertEqual(["nobody provides the barrier 'x' that it requires",
                          "nobody requires the barrier 'z' that it provides"],
                         _texts(verified, "not-provided", "not-required"))
        self.assertEqual(["x"], [re.search('"(.*?)"', text)[1] for text in end.messages
                                 if "not provided" in text])

    def test_a_plugin_whose_run_once_key_is_never_found_runs_on_every_boot(self):
        once = {"version": 3, "run_once": True}
        host = self.host(plugin("a", plugin_version="1 0", **once), plugin("b", plugin_version="1.0", **once))
        boot = ("bootweave --invoke --method=start --plugin=a.json,b.json >/dev/null; "
                "rm /run/corvane/bootweaveExecutor.sock; ")
        end = host.shell(f"{boot}{boot}exec {_ANALYZE} verify --json")
        self.assertEqual(["a", "b", "a"], sorted(end.activated[:2]) + end.activated[2:])
        self.assertEqual(["runs on every boot: its run-once key 'a1 0' is recorded as 'a10'"],
                         _texts(end, "run-once"))


class HostTest(SystemTest):
    """What is verified."""

    def test_without_arguments_it_is_the_host_and_a_good_one_has_nothing_to_mend(self):
        host = self.host(plugin("a", provides=["x"]), native("b", requires=["x"], provides=["y"]),
                         {_DEBUG: "c:y:z:true\n"}, plugin("d", requires=["z"]))
        end = host.run(_ANALYZE, "verify", "--strict")
        self.assertEqual((0, "4 plugins: nothing is wrong\n", ""), (end.status, end.stdout, end.stderr))

    def test_the_sample_host_has_no_error(self):
        end = self.sample_host().run(_ANALYZE, "verify")
        debug = "/etc/corvane/bootweave/debug.conf: warning: injection "
        self.assertEqual((0, [
            f"{debug}'net-snapshot': nobody requires the barrier 'net-snapshot' that it provides",
            f"{debug}'overlay-check': nobody requires the barrier 'overlay-checked' that it provides",
            f"{PLUGINS}/README: warning: ignoring plugin 'README' of unspecified type...",
            f"{PLUGINS}/storage-iscsi.json: warning: nobody requires the barrier 'storage-paths-remote' "
            "that it provides",
            f"{PLUGINS}/switch-overlay.json: warning: nobody provides the barrier 'overlay-controller' "
            "that it requires",
            "39 plugins: 0 errors, 5 warnings",
        ]), (end.status, end.stdout.splitlines()))

    def test_another_plugin_directory_can_be_the_hosts(self):
        host = self.host(plugin("a", requires=["x"]),
                         {"/other/b.json": next(iter(plugin("b", provides=["x"]).values()))})
        script = f"""{_ANALYZE} verify --plugin-directory /other
            {_ANALYZE} verify --plugin-directory=/other {PLUGINS}/a.json"""
        self.assertEqual(["/other/b.json: warning: nobody requires the barrier 'x' that it provides",
                          "1 plugin: 0 errors, 1 warning", "1 plugin: nothing is wrong"],
                         host.shell(script).stdout.splitlines())

    def test_what_a_native_plugin_prints_when_it_is_loaded_is_no_part_of_a_report(self):
        loud = '__attribute__((constructor)) static void Shout(void) { puts("loud"); fflush(stdout); }'
        host = self.host(native("a", more=loud))
        script = f"""bootweave >/dev/null && {_ANALYZE} verify --json && {_ANALYZE} critical-chain --json &&
            exec {_ANALYZE} dot"""
        end = host.shell(script)
        self.assertEqual((0, "loud\nloud\nloud\n"), (end.status, end.stderr))
        verified, chain, first, *_ = end.stdout.splitlines()
        self.assertEqual([], json.loads(verified)["findings"])
        self.assertEqual("a", json.loads(chain)["plugins"][0]["name"])
        self.assertTrue(first.startswith("digraph"))

    def test_nothing_is_written_and_nothing_is_left_running(self):
        host = self.host(_mistakes("/mistakes"), native("b"))
        script = f"""touch /stamp
            {_ANALYZE} verify /mistakes/plugins /mistakes/debug.conf {PLUGINS}/b.so >/out
            {_CHANGED}; grep -l nativeReader /proc/[0-9]*/comm"""
        end = host.shell(script)
        self.assertEqual(("", ""), (end.stdout, end.stderr))

    def test_a_user_without_privileges_verifies_what_may_be_read(self):
        self.need_users()
        host = self.host(plugin("a", start=["net up"]), command("net.up", "true"),
                         {f"{PLUGINS}/secret.json": File("{}", 0o600)})
        end = host.shell(f"exec setpriv --reuid=65534 --clear-groups {_ANALYZE} verify")
        self.assertEqual((1, [f"{PLUGINS}/secret.json: error: cannot read: Permission denied",
                              "1 plugin: 1 error, 0 warnings"]), (end.status, end.stdout.splitlines()))

    def test_what_a_user_may_not_read_of_the_host_is_named_beside_what_is_added(self):
        self.need_users()
        added = plugin("b", requires=["x"])[f"{PLUGINS}/b.json"]
        host = self.host(plugin("a", provides=["x"]), {"/srv/b.json": added, _DEBUG: "c: :y:true\n"})
        end = host.shell(f"""verify() {{ setpriv --reuid=65534 --clear-groups {_ANALYZE} verify "$@"; }}
            chmod 600 {PLUGINS}/a.json && verify /srv/b.json
            chmod 700 {os.path.dirname(_DEBUG)} && chmod 644 {PLUGINS}/a.json && verify /srv/b.json; verify
            chmod 700 {PLUGINS} && verify /srv/b.json""")
        unknown = "warning: cannot read: Permission denied: what it holds is unknown"
        self.assertEqual([
            "/srv/b.json: warning: nobody provides the barrier 'x' that it requires",
            f"{PLUGINS}/a.json: {unknown}",
            "1 plugin: 0 errors, 2 warnings",
            f"{_DEBUG}: {unknown}",
            "1 plugin: 0 errors, 1 warning",
            f"{_DEBUG}: error: cannot read: Permission denied",
            f"{PLUGINS}/a.json: warning: nobody requires the barrier 'x' that it provides",
            "1 plugin: 1 error, 1 warning",
            f"{_DEBUG}: {unknown}",
            f"{PLUGINS}: {unknown}",
            "1 plugin: 0 errors, 2 warnings"], end.stdout.splitlines())

    def test_what_another_user_owns_is_trusted_by_no_boot(self):
        self.need_users()
        host = self.host(plugin("a", start=["net up"]), command("net.up", "true"))
        script = f"""chown 65534 {COMMANDS}/net.up {PLUGINS}/a.json
            exec setpriv --reuid=65534 --clear-groups {_ANALYZE} verify"""
        self.assertEqual([
            f"{PLUGINS}/a.json: warning: user 65534 may change it, who owns it",
            f"{PLUGINS}/a.json: error: command 'net up': net.up: not a trusted executable",
            "1 plugin: 1 error, 1 warning"], host.shell(script).stdout.splitlines())


class StatusTest(SystemTest):
    """The exit status, and colours."""

    def test_it_tells_errors_warnings_and_wrong_usage_apart(self):
        host = self.host(plugin("odd", requires=["x"]), {f"{PLUGINS}/bad.json": "{}"})
        statuses = [host.run(_ANALYZE, "verify", *words).status for words in (
            (f"{PLUGINS}/odd.json",), ("--strict", f"{PLUGINS}/odd.json"), (f"{PLUGINS}/bad.json",),
            ("/missing",), ("--stricter",))]
        self.assertEqual([0, 1, 1, 1, 2], statuses)

    def test_a_terminal_gets_colours(self):
        master, slave = pty.openpty()
        self.addCleanup(os.close, master)
        try:
            self.host(plugin("a", requires=["x"])).run("/usr/bin/env", "TERM=linux", _ANALYZE, "verify",
                                                       stdout=slave)
        finally:
            os.close(slave)
        self.assertEqual(f"{PLUGINS}/a.json: \033[33mwarning\033[0m: nobody provides the barrier 'x' that it "
                         "requires\n1 plugin: 0 errors, 1 warning\n",
                         os.read(master, 4096).decode().replace("\r\n", "\n"))

    def test_a_full_device_is_an_error(self):
        end = self.host().shell(f"exec {_ANALYZE} verify >/dev/full")
        self.assertEqual((1, "bootweave-analyze: cannot write the report\n"), (end.status, end.stderr))
