# SPDX-License-Identifier: Apache-2.0
"""The Debian packages: what lintian thinks of them, and their life on a host."""

import glob
import os
import re
import subprocess
import tempfile
import unittest

from documents_test import dead_links
from harness import UNTIL, File, SystemTest, command, plugin

PACKAGES_VARIABLE = "BOOTWEAVE_PACKAGES"

_ROOT = os.path.join(os.path.dirname(os.path.realpath(__file__)), "..", "..")
_ON_HOST = "/srv/packages"
_PACKAGES = "bootweave bootweave-dev bootweave-doc"
_SITE = "/srv/site"     # what the host's owner adds once the packages are there
_UNIT = "/usr/lib/systemd/system/bootweave.service"
_LEFT_BY_RUNS = ["/bootbank/bootweav.gz", "/var/log/bootweave-hostcli-stdout.log", "/var/log/sysboot.log"]

# Left out of the comparison: dpkg's own books, and caches of others.
_SCRIPT = UNTIL + f"""
set -e
export DEBIAN_FRONTEND=noninteractive
list() {{
    find / -maxdepth 1 -printf '%p %l\n'
    find /bootbank /etc /opt /root /run /usr /var -xdev \( -path /var/lib/dpkg -o -path /var/cache \
        -o -path /var/log/dpkg.log -o -name __pycache__ \) -prune -o -printf '%p %l %y %m %U:%G\n' |
        LC_ALL=C sort
}}
changed() {{
    list >/srv/now
    echo "== $1"; diff /srv/before /srv/now | sed -n 's/^[<>]/&/p' || :
}}
prepare() {{
    sed -n 's/^ExecStartPre=//p' {_UNIT} | sed 's/[$][$]/$/g' >/srv/prepare
    test -s /srv/prepare && sh -e /srv/prepare
}}
boot() {{
    prepare
    $(sed -n 's/^ExecStart=//p' {_UNIT})
}}
invoke() {{
    until_ sh -c '! pidof -q bootweave'
    prepare
    bootweave --invoke --method=start --plugin="$1"
}}
quietly() {{ "$@" >/srv/log 2>&1 || {{ cat /srv/log >&2; return 1; }}; }}
install() {{ quietly dpkg --install {_ON_HOST}/*.deb; }}
remove() {{ quietly dpkg --remove {_PACKAGES}; }}
purge() {{ quietly dpkg --purge {_PACKAGES}; }}
list >/srv/before
"""


# What a packager wants to know, misspelt words in the programs aside: machine code now and then has the
# letters of one.
_LINTIAN = ("lintian", "--allow-root", "--pedantic", "--display-info", "--suppress-tags",
            "spelling-error-in-binary", "--fail-on", "error,warning,info,pedantic")


def _built(pattern):
    """The one file that was built whose name matches."""
    names = glob.glob(os.path.join(os.environ[PACKAGES_VARIABLE], pattern))
    if len(names) != 1:
        raise RuntimeError(f"{len(names)} files {pattern}: run this through scripts/package --test")
    return names[0]


class FilesTest(unittest.TestCase):
    maxDiff = None

    def test_lintian_finds_nothing(self):
        self._run_lintian(_built("bootweave_*.changes"))

    def test_a_source_package_has_the_tracked_files_and_making_it_changes_none(self):
        with tempfile.TemporaryDirectory(prefix="bootweave-package-") as directory:
            source = os.path.join(directory, "checkout")
            self._output("git", "-c", "safe.directory=*", "clone", "--quiet", _ROOT, source)
            os.mkdir(os.path.join(source, "build"))
            with open(os.path.join(source, "build", "left-over"), "w", encoding="utf-8"):
                pass
            self._output("dpkg-buildpackage", "--build=source", "--unsigned-source", "--unsigned-changes",
                         "--no-check-builddeps", cwd=source)
            self.assertEqual("", self._output("git", "status", "--short", cwd=source))
            tracked = self._output("git", "ls-files", cwd=source).splitlines()
            listed = self._output("tar", "-tf", *glob.glob(os.path.join(directory, "*.tar.xz"))).splitlines()
            self.assertEqual(sorted(tracked), sorted(name.partition("/")[2] for name in listed
                                                     if not name.endswith("/")))
            self._run_lintian(*glob.glob(os.path.join(directory, "*.changes")))

    def _run_lintian(self, changes):
        result = subprocess.run([*_LINTIAN, changes], check=False, text=True, stdout=subprocess.PIPE,
                                stderr=subprocess.PIPE)
        self.assertEqual(("", 0), (result.stdout, result.returncode), result.stderr)

    @staticmethod
    def _output(*command, cwd=None):
        result = subprocess.run(command, cwd=cwd, check=False, text=True, stdout=subprocess.PIPE,
                                stderr=subprocess.PIPE)
        if result.returncode != 0:
            raise RuntimeError(f"{' '.join(command)}: {result.stderr}{result.stdout}")
        return result.stdout

    def test_every_relative_link_of_a_document_leads_to_a_file_of_its_package(self):
        with tempfile.TemporaryDirectory(prefix="bootweave-package-") as directory:
            for package in _PACKAGES.split():
                with self.subTest(package):
                    place = f"{directory}/{package}"
                    self._output("dpkg-deb", "--extract", _built(f"{package}_*.deb"), place)
                    self.assertEqual([], list(dead_links(f"{place}/usr/share/doc")))
                    self.assertEqual(package == "bootweave-doc",
                                     os.path.exists(f"{place}/usr/share/doc/bootweave/README.md"))

    def test_the_version_is_the_one_that_the_program_is_built_as(self):
        with open(os.path.join(_ROOT, "CMakeLists.txt"), encoding="utf-8") as file:
            version = re.search(r"^project\(bootweave VERSION (\S+)", file.read(), re.MULTILINE)[1]
        fields = subprocess.run(["dpkg-deb", "--field", _built("bootweave_*.deb"), "Version"], check=True,
                                text=True, stdout=subprocess.PIPE)
        self.assertEqual(version, fields.stdout.strip())


class LifeTest(SystemTest):
    def _run(self, script, *files):
        self.need_users()
        packages = {}
        for pattern in [f"{name}_*.deb" for name in _PACKAGES.split()]:
            path = _built(pattern)
            with open(path, "rb") as file:
                packages[f"{_ON_HOST}/{os.path.basename(path)}"] = file.read()
        site = {_SITE + path: entry for mapping in files for path, entry in mapping.items()}
        # A host that has never seen the packages, nor anything for them; and one on which man's index, which
        # takes longer than all else, is left as it is.
        host = self.host(packages, site, setup="rm -rf /usr/libexec/bootweave /usr/lib/corvane /run/corvane\n"
                                               "rm -f /var/lib/man-db/auto-update")
        return host.shell(_SCRIPT + script, timeout=300)

    def _changes(self, end, title):
        """Paths that the host has more than before, those that it lacks, at the moment of that title."""
        self.assertIn(f"== {title}\n", end.stdout)
        text = end.stdout.split(f"== {title}\n")[1].split("== ")[0]
        found = re.findall(r"^([<>]) (\S+)", text, re.MULTILINE)
        return [path for sign, path in found if sign == ">"], [path for sign, path in found if sign == "<"]

    def test_installing_starts_nothing_and_is_what_the_next_boot_needs(self):
        end = self._run("""
            install
            pidof bootweave || :
            ls /var/log/sysboot.log /var/log/bootweave-hostcli-stdout.log /run/corvane/* 2>/srv/errors || :
            test "$(grep -c 'No such file' /srv/errors)" = 3
            stat -c '%a %U %n' /run/corvane
            readlink /etc/systemd/system/multi-user.target.wants/bootweave.service
            boot >/srv/log
            systemd-analyze verify --man=no bootweave.service
            """)
        self.assertEqual(0, end.status, end.stderr)
        self.assertEqual(["755 root /run/corvane", "/lib/systemd/system/bootweave.service"],
                         end.stdout.splitlines())
        # What the package has no part in; anything else would be a directory that it has forgotten.
        self.assertEqual(
            ["execve(/usr/lib/corvane/logrelay/bin/logrelayd) failure: No such file or directory",
             "execve(/etc/init.d/obsvd) failure: No such file or directory",
             "unable to open mantlesyslogd pid file."],
            [message for _, message in end.complaints])
        self.assertEqual("", end.stderr)

    def test_an_installed_host_boots_invokes_a_method_and_runs_a_native_plugin_built_there(self):
        end = self._run(f"""
            install
            cp -r {_SITE}/. /
            boot >/dev/null
            invoke site.json >/dev/null
            cp -r /usr/share/doc/bootweave/examples/plugins/native-c /srv/native
            make --silent -C /srv/native
            make --silent -C /srv/native install
            invoke random-seed.so >/dev/null
            bootweave-analyze blame | cut -f 3
            for page in 8/bootweave 1/bootweave-analyze 8/bootweave-chkconfig; do
                man --path $(basename $page) >/dev/null
            done
            """, plugin("site", ["site mark --text='it runs'"]), command("site.mark", 'echo "$1"'))
        self.assertEqual((0, ""), (end.status, end.stderr))
        self.assertEqual(["--text=it runs"] * 2, end.command_output)
        self.assertEqual(["site", "site", "random-seed"], end.succeeded)
        self.assertEqual("site\n", end.stdout)

    def test_removing_leaves_what_runs_have_written_and_purging_leaves_nothing(self):
        end = self._run(f"""
            install
            cp -r {_SITE}/. /
            boot >/dev/null
            touch /var/log/sysboot.log.Ab12Cd /bootbank/bootweav.gz.Ab12Cd
            rm /usr/libexec/bootweave/plugins/site.json /usr/lib/corvane/hostcli/site.mark
            remove
            changed removed
            purge
            changed purged
            dpkg --status {_PACKAGES} 2>&1 || :
            """, plugin("site", ["site mark"]), command("site.mark", "echo $1"),
                        {"/etc/corvane/bootweave/debug.conf": File("d:a:b:/bin/true\n")})
        self.assertEqual((0, ""), (end.status, end.stderr))
        kept, lost = self._changes(end, "removed")
        self.assertEqual([], lost)
        self.assertEqual(
            sorted([*_LEFT_BY_RUNS, "/bootbank/bootweav.gz.Ab12Cd", "/var/log/sysboot.log.Ab12Cd",
                    "/etc/corvane", "/etc/corvane/bootweave", "/etc/corvane/bootweave/debug.conf"]),
            sorted(path for path in kept if "systemd" not in path))     # which knows what was enabled
        self.assertEqual(([], []), self._changes(end, "purged"))
        self.assertIn("package 'bootweave' is not installed", end.stdout)

    def test_purging_leaves_the_files_of_others(self):
        end = self._run(f"""
            install
            cp -r {_SITE}/. /
            purge
            changed purged
            """, plugin("site", []), {"/etc/corvane/other": "theirs\n", "/run/corvane/other": "theirs\n"})
        self.assertEqual((0, ""), (end.status, end.stderr))
        self.assertEqual((["/etc/corvane", "/etc/corvane/other", "/run/corvane", "/run/corvane/other",
                           "/usr/libexec/bootweave", "/usr/libexec/bootweave/plugins",
                           "/usr/libexec/bootweave/plugins/site.json"], []), self._changes(end, "purged"))
