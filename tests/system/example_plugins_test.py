# SPDX-License-Identifier: Apache-2.0
"""The plugins of examples/plugins build as their README says, nothing is wrong with them, and they work."""

import os

from harness import COMMANDS, PLUGINS, SystemTest

_EXAMPLES = os.path.join(os.path.dirname(os.path.realpath(__file__)), "..", "..", "examples", "plugins")
_STATE = "/var/lib/corvane"
_BUILD = "cp -r /examples /root/plugins && cd /root/plugins && make -s -C native-c && make -s -C native-cpp"
_INSTALL = f"""make -s -C native-c install && make -s -C native-cpp install &&
    install -m 644 json/*.json {PLUGINS} && install -m 755 json/hostcli/* {COMMANDS} &&
    mkdir -p /etc/corvane/bootweave && install -m 644 debug/debug.conf /etc/corvane/bootweave &&
    mkdir -p {_STATE} && echo seed >{_STATE}/random-seed"""


class ExamplePluginsTest(SystemTest):
    """All of them, on one host."""

    def _run(self, script):
        files = {}
        for place, _, names in os.walk(_EXAMPLES):
            for name in names:
                path = os.path.join(place, name)
                with open(path, "rb") as file:
                    files["/examples/" + os.path.relpath(path, _EXAMPLES)] = file.read()
        host = self.host(files, keep=[_STATE])
        return host.shell(f"export PKG_CONFIG_PATH=/usr/share/pkgconfig; set -e; {_BUILD}\n{script}")

    def test_nothing_is_wrong_with_any_of_them(self):
        end = self._run(f"""install -m 755 json/hostcli/* {COMMANDS}; chmod 755 init-script/greeter
            bootweave-analyze verify --strict json/*.json native-c/random-seed.so native-cpp/rack-label.so \\
                debug/debug.conf init-script/greeter""")
        self.assertEqual((0, "8 plugins: nothing is wrong\n", ""), (end.status, end.stdout, end.stderr))

    def test_a_boot_runs_them_in_the_order_of_their_barriers(self):
        end = self._run(f"{_INSTALL}; exec bootweave --plugin-flags=lab")
        self.assertEqual((0, []), (end.status, end.complaints))
        names = ["scratch-space", "random-seed", "asset-tag", "host-name", "rack-label", "lab-banner",
                 "seed-check"]
        self.assertEqual(sorted(names), sorted(end.succeeded))
        before = [("scratch-space", "random-seed"), ("scratch-space", "host-name"),
                  ("random-seed", "asset-tag"), ("host-name", "rack-label"), ("rack-label", "lab-banner"),
                  ("asset-tag", "lab-banner"), ("random-seed", "seed-check")]
        self.assertEqual([], [(first, second) for first, second in before
                              if end.activated.index(first) > end.activated.index(second)])
        self.assertEqual("unnamed\n", end.read(f"{_STATE}/host-name"))
        self.assertRegex(end.read(f"{_STATE}/asset-tag"), r"\A[0-9]{8}\Z")
        self.assertEqual(" " * 25 + "This host belongs to the lab.\n", end.read(f"{_STATE}/banner"))

    def test_flags_and_host_profiles_change_what_runs(self):
        end = self._run(f"""{_INSTALL}; touch /etc/corvane/hostprofile.xml
            exec bootweave --plugin-flags=maintenance""")
        self.assertEqual(0, end.status)
        self.assertEqual(["asset-tag", "host-name", "random-seed", "scratch-space", "seed-check"],
                         sorted(end.succeeded))
        self.assertEqual("from the profile\n", end.read(f"{_STATE}/host-name"))

    def test_the_init_script_starts_and_stops_with_the_others(self):
        end = self._run("""rm -f /etc/rc[2-5].d/S*; ln -sf /usr/libexec/bootweave/chkconfig /bin/chkconfig
            install -m 755 init-script/greeter /etc/init.d; ln -s ../init.d/greeter /etc/rc2.d/S50greeter
            bootweave >/dev/null
            bootweave --daemon=wait --method=start; cat /run/greeter
            bootweave --daemon=wait --method=stop; test ! -e /run/greeter""")
        self.assertEqual((0, []), (end.status, end.complaints))
        self.assertIn("hello", end.stdout.splitlines())
