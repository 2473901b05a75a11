# SPDX-License-Identifier: Apache-2.0
"""What happens on a host that boots again and again: the boots, what comes between, and what must hold."""

import collections
import os
import re
import signal

import hosts_plugins
import processes
from host_runs import Run, analysis, call
from records import RECORD, expect, keys_of

_PLACE = os.path.dirname(os.path.realpath(__file__))
_SOCKET = "/var/run/corvane/bootweaveExecutor.sock"
_LOG_DAEMON = "/var/run/corvane/logrelayd.pid"
_LOG_DAEMONS_LOG = "/var/log/logrelayd.log"
_START_LINKS = "/etc/rc3.d"
_STOPPED = "Executor has been Successfully Stopped"

_WAYS = ((), ("--parallel",), ("--randomize",), ("--parallel", "--randomize"))
_INVOKED = ("time-clock", "kernel-limits", "host-key")
_FAILING_SCRIPTS = {"shared-folders"}


class Host:
    """The host on which this runs, over all its boots."""

    def __init__(self):
        self._plugins = hosts_plugins.Plugins(f"{_PLACE}/native.json")
        self._usual = {}        # how it is booted -> its messages

    def live(self, number):
        """The boot of this number, from 1 on, and what an operator does before and behind some of them.

        At the end, whatever the number, just the services that outlive a boot run.

        :raises Wrong: when something is not as it has to be
        :raises Hung: when a program does not end
        """
        if number % 10 == 5:
            self.shut_down()
        # By the fifth boot everything has happened once; from then on nothing may be new.
        self._boot(_WAYS[(number - 1) % len(_WAYS)])
        if number % 10 == 2:
            self._run_daemons()
        if number % 5 == 3:
            self._invoke()

    def _boot(self, way):
        call(f"{_PLACE}/setup")
        keys = self._recorded()
        skips = bool(keys)
        reloads = _reloads()
        words = ("--init", *way, *((f"--run-once={','.join(sorted(keys))}",) if skips else ()))
        run = Run(*words)
        processes.wait_for_no_program()
        processes.until(lambda: _reloads() > reloads, "that the log daemon takes its settings anew")
        self._check_plugins(run, way, skips)
        self._check_profile(skips, way)
        self._check_messages(run, words)
        expect(self._recorded() == set(hosts_plugins.RUN_ONCE.values()),
               f"the record holds {sorted(self._recorded())}")

    @staticmethod
    def _recorded():
        if not os.path.exists(RECORD):
            return set()
        with open(RECORD, "rb") as file:
            return keys_of(file.read())

    def _check_plugins(self, run, way, skips):
        run.check_ran(self._plugins.names(skips), hosts_plugins.FAILING)
        for name, providers in self._plugins.providers(skips).items():
            early = providers - run.ended_before[name]
            expect(not early, f"{name} began before these had ended: {sorted(early)}")
        if "--parallel" not in way:
            order = self._plugins.serial_order(skips, "--randomize" in way)
            wrong = [pair for pair in zip(run.begun, order) if pair[0] != pair[1]]
            expect(not wrong, f"{len(wrong)} out of their order, first {wrong and wrong[0]}: {run.begun}")

    def _check_profile(self, skips, way):
        names = self._plugins.names(skips)
        time = analysis("time")
        idle = sorted(hosts_plugins.RUN_ONCE) if skips else []
        found = (time["blocks"], time["plugins_ran"], sorted(time["plugins_idle"]))
        expect(found == (1, len(names), idle), f"the profile's times: {time}")
        ways = ("--parallel" * time["settings"]["parallel"], "--randomize" * time["settings"]["randomize"])
        expect(tuple(filter(None, ways)) == way, f"the profile's settings: {time['settings']}")
        listed = sorted(plugin["name"] for plugin in analysis("blame")["plugins"])
        expect(listed == names, f"the profile lists {listed}, not {names}")

    def _check_messages(self, run, words):
        """That it said what the first boot of its kind has said, however the plugins took their turns."""
        expect(run.messages[-1] == _STOPPED, f"at the end it said {run.messages[-1]!r}")
        said = collections.Counter(run.messages)
        expect(hosts_plugins.BAD_INJECTION in said, f"it did not say {hosts_plugins.BAD_INJECTION!r}")
        usual = self._usual.setdefault(words, said)
        expect(said == usual, f"it said {list((said - usual).elements())} instead of "
                              f"{list((usual - said).elements())}")

    def _run_daemons(self):
        scripts = [name[3:] for name in os.listdir(_START_LINKS)]
        before = len(processes.all_running())
        run = Run("--daemon=wait", "--method=start", "--parallel")
        run.check_ran(scripts, _FAILING_SCRIPTS)
        # This one goes on in the background; behind its stop it would leave what the stop takes away.
        processes.until(lambda: not any("backup-index" in word for process in processes.all_running()
                                        for word in process.words), "that the index is built")
        run = Run("--daemon=wait", "--method=stop")
        run.check_ran(scripts, set())
        processes.until(lambda: len(processes.all_running()) <= before,
                        "that no daemon and no child of one stays")
        expect(analysis("list")["blocks"] == 3, "the profile does not hold the boot and both runs of daemons")

    def _invoke(self):
        os.unlink(_SOCKET)
        files = ",".join(f"{name}.json" for name in _INVOKED)
        run = Run("--invoke", "--method=start", f"--plugin={files}")
        run.check_ran([name for name in _INVOKED if name not in hosts_plugins.RUN_ONCE], set())
        processes.wait_for_no_program()

    @staticmethod
    def shut_down():
        """Stops the services that outlive a boot, if they run."""
        call("/etc/init.d/obsvd", "stop")
        if os.path.exists(_LOG_DAEMON):
            with open(_LOG_DAEMON, encoding="ascii") as file:
                number = int(file.read())
            os.kill(number, signal.SIGTERM)
            processes.until(lambda: processes.look_at(number) is None, "that the log daemon ends")


def _reloads():
    """How often the log daemon has taken its settings anew."""
    try:
        with open(_LOG_DAEMONS_LOG, encoding="utf-8") as file:
            return len(re.findall(": (?:not )?reloaded", file.read()))
    except FileNotFoundError:
        return 0
