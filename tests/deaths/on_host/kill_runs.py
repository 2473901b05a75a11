#!/usr/bin/python3 -IS
# SPDX-License-Identifier: Apache-2.0
"""Kills what belongs to runs of the sample host, at random moments, and looks at what comes of it.

usage: kill_runs.py SEED FIRST LAST [KIND...]    (on a throw-away host)

The kills have numbers; what the number N kills and when follows from SEED and N alone. Without a KIND of
run, all take their turns. Prints a line for each kill, "ok" or "FAIL" in front. The first that fails is the
last one, as nothing is known of the host any more.
"""

import contextlib
import os
import random
import signal
import sys
import time
import traceback

sys.path.insert(0, os.path.dirname(os.path.realpath(__file__)))

import moments          # noqa: E402 (the path comes first)
import processes        # noqa: E402
import records          # noqa: E402
import runs             # noqa: E402
import verdicts         # noqa: E402

# How often each is chosen. Runs of init scripts take long, as some of the scripts do.
_KINDS = {"serial boot": 4, "parallel boot": 4, "invoke": 5, "daemon start": 1, "daemon stop": 3}
_VICTIMS = {"driver": 4, "executor": 3, "native executor": 2, "init script": 4}
_FIND = {"executor": processes.executor_of, "native executor": processes.native_executor_of,
         "init script": processes.script_of}


def _choose(weights, chance):
    return chance.choices(list(weights), weights.values())[0]


class TooLate(Exception):
    """The run, or what was to be killed, had ended by itself."""


def _stop(number):
    """Suspends a child of the run, so that it is known not to have ended by itself when it is killed."""
    with contextlib.suppress(ProcessLookupError):
        os.kill(number, signal.SIGSTOP)
        while (process := processes.look_at(number)) is not None and not process.has_ended:
            if process.state == "T":
                return
    raise TooLate


class Death:
    """One kill: what runs, who dies and when; and what came of it."""

    def __init__(self, chance, usual, tag):
        self._chance = chance
        self._tag = tag
        self.kind = runs.KINDS[_choose({name: _KINDS[name] for name in usual}, chance)]
        self._usual = usual[self.kind.name]
        self.victim = _choose({name: _VICTIMS[name] for name in self.kind.victims}, chance)
        self._moment = self._choose_moment()
        self._killed = None
        # A native executor and a script live but for a part of the run.
        self._delay = chance.choice((0, chance.uniform(0, 0.05)))
        self.text = f"{self.kind.name}, {self.victim} {self._moment.text}"

    def _choose_moment(self):
        if self.victim != "driver" or self._chance.random() < 0.4:
            return moments.ShareMoment(self._chance.uniform(0, 1), self._usual.length)
        # Where the old file gives way to the new one, and all over the writing of both and to the run's end.
        return self._chance.choice((
            moments.SystemCallMoment(self._chance.randint(1, 4), self._chance.randint(0, 3), in_place=True),
            moments.SystemCallMoment(self._chance.randint(1, 60), self._chance.randint(0, 3), in_place=False),
            moments.SystemCallMoment(1, self._chance.randint(0, 200), in_place=False)))

    def happen(self):
        """Lets it happen; returns what came of it, in words.

        :raises TooLate: when there was nothing left to kill; the host is then ready for the next one
        :raises Wrong: when something is not as it has to be
        """
        if self.kind.is_invoke:
            self._put_record()
        self._moment.prepare()
        run = runs.Run(self.kind, self._tag)
        try:
            victim = self._kill(run)
        except TooLate:
            verdicts.check_next_run(self.kind, self._after(run), self._usual)
            raise
        run.finish()
        processes.wait_for_rest_of(run.driver, victim.session if victim else run.driver)
        outcome = self._judge(run, victim)
        verdicts.check_next_run(self.kind, self._tag + 2, self._usual)
        return outcome

    def _after(self, run):
        """Waits for the end of a run in which nobody was killed; returns the number of the next one."""
        run.finish()
        processes.wait_for_rest_of(run.driver, run.driver)
        verdicts.check_unharmed(run, self._usual)
        return self._tag + 2

    def _put_record(self):
        """Some of the plugins that run once have run."""
        keys = [key for key in runs.RUN_ONCE.values() if self._chance.random() < 0.5]
        with open(records.RECORD, "wb") as file:
            file.write(records.pack_keys(keys))

    def _kill(self, run):
        """Kills at the moment; returns the victim, or None for the driver."""
        if self.victim == "driver":
            if not self._moment.wait(run):
                raise TooLate
            os.kill(run.driver, signal.SIGKILL)
            if run.wait(20) != -signal.SIGKILL:
                raise TooLate
            return None
        self._moment.wait(run)
        find = _FIND[self.victim]
        while (victim := find(run.driver)) is None:
            if run.has_ended():
                raise TooLate
            time.sleep(0.0005)
        if self.victim != "executor":
            time.sleep(self._delay)
        if victim.parent == run.driver:
            _stop(victim.number)
        before = time.time()        # in between, this process may have to wait for a processor
        with contextlib.suppress(ProcessLookupError):
            os.kill(victim.number, signal.SIGKILL)
        self._killed = before, time.time()
        return victim

    def _judge(self, run, victim):
        if self.victim == "driver":
            return verdicts.check_driver(run, self._usual)
        if self.victim == "executor":
            return verdicts.check_executor(run, self._usual, *self._killed)
        if self.victim == "native executor":
            return verdicts.check_native(run, self._usual, victim.words[2])
        return verdicts.check_script(run, self._usual, victim.words[1])


def _measure(kinds):
    """A whole run of each kind: what is usual."""
    usual = {}
    for number, kind in enumerate(kinds):
        with contextlib.suppress(FileNotFoundError):
            os.unlink(records.RECORD)
        verdicts.prepare()
        run = runs.Run(kind, number).finish()
        usual[kind.name] = verdicts.Usual(run)
        processes.wait_for_rest_of(run.driver, run.driver)
    return usual


def _kill(number, seed, usual):
    """One kill, with other choices as long as they come too late; what it was and what came of it."""
    for attempt in range(100):
        tag = (number * 100 + attempt) * 10
        death = Death(random.Random(f"{seed} {number} {attempt}"), usual, tag)
        try:
            verdicts.prepare()
            return f"{death.text}: {death.happen()}"
        except TooLate:
            continue
        except Exception as error:
            raise RuntimeError(f"{death.text}: {error}") from error
    raise RuntimeError("nothing was ever left to kill")


def main():
    seed, first, last = map(int, sys.argv[1:4])
    if "ASAN_OPTIONS" in os.environ:    # what looks for leaks at the end of a run cannot while it is followed
        os.environ["ASAN_OPTIONS"] += ":detect_leaks=0"
    usual = _measure([runs.KINDS[name] for name in sys.argv[4:]] or runs.KINDS.values())
    for number in range(first, last + 1):
        try:
            print(f"ok    {number}: {_kill(number, seed, usual)}", flush=True)
        except RuntimeError as error:       # whatever it was, the next host may do better
            print(f"FAIL  {number}: {error}", flush=True)
            traceback.print_exc()
            return 1
    return 0


if __name__ == "__main__":
    sys.exit(main())
