# SPDX-License-Identifier: Apache-2.0
"""Many of everything: plugins of all kinds, init scripts, clients of the executor."""

import collections
import os
import random
import re

from harness import PLUGINS, PRESET_VARIABLE, File, SystemTest, command
from init_scripts import PROFILE, begun, init_scripts
from native_build import native

_STAMP = r"\d{4}-\d\d-\d\d \d\d:\d\d:\d\d\.\d{6}"

# Makes a graph of plugins on the host itself, so that its files need not travel there, and says what it is:
# lines of name, required barriers and provided barriers. Not every barrier has somebody who provides it.
_MAKE_PLUGINS = """
import json, random, shutil, sys
count, injections, objects = map(int, sys.argv[1:4])
chance = random.Random(sys.argv[4])
graph, conf = open("/run/graph", "w"), open("/etc/corvane/bootweave/debug.conf", "w")
LEVELS = count // 10     # so narrow that workers wait: whatever starts too early has its chance to do so

def barriers(level):
    return {"l%d-%d" % (level, chance.randrange(4)) for _ in range(chance.randint(1, 2))}

for number in range(count):
    level = chance.randrange(1, LEVELS)
    needed = sorted(barriers(level - 1) | barriers(chance.randrange(level)))
    given = sorted(barriers(level))
    if number < injections:
        name = "debug%d" % number
        conf.write("%s:%s:%s:exit 0\\n" % (name, ",".join(needed), ",".join(given)))
    elif number < injections + objects:
        # Three objects under many names.
        name, needed, given = "native%d" % number, ["before-natives"], ["behind-natives"]
        shutil.copyfile("/opt/native%d.so" % (number % 3), "/usr/libexec/bootweave/plugins/%s.so" % name)
    else:
        name = "json%d" % number
        given += ["before-natives"] if number % 1000 == 1 else []
        if number % 1000 == 2:
            needed, given = needed + ["behind-natives"], ["end"]
        start = ["note --n=%d" % number] if number % 100 == 0 else []
        with open("/usr/libexec/bootweave/plugins/%s.json" % name, "w") as file:
            json.dump({"metadata": {"version": 1, "requires": needed, "provides": given},
                       "operations": {"start": start}}, file)
    graph.write("%s;%s;%s\\n" % (name, ",".join(needed), ",".join(given)))
"""


class ManyPluginsTest(SystemTest):
    _COUNT = 10000

    def _boot(self, *arguments):
        # With a sanitizer, each process that is started takes many times as long.
        plain = os.environ.get(PRESET_VARIABLE, "release") == "release"
        injections, natives = (1500, 150) if plain else (150, 15)
        seed = random.SystemRandom().randrange(10**6)
        objects = {}
        for number in range(3):
            files = native(f"n{number}", requires=["before-natives"], provides=["behind-natives"],
                           more=f"int number = {number};")
            objects[f"/opt/native{number}.so"] = files[f"{PLUGINS}/n{number}.so"]
        host = self.host(objects, {"/opt/make.py": _MAKE_PLUGINS, "/etc/corvane/bootweave/debug.conf": ""},
                         command("note", 'echo "$1"'))
        end = host.shell(f"python3 -IS /opt/make.py {self._COUNT} {injections} {natives} {seed} && "
                         f"exec bootweave --init {' '.join(arguments)} >/run/out", timeout=200)
        self.assertEqual(0, end.status)
        return end, seed

    def _check(self, end, seed):
        graph = [line.split(";") for line in end.read("/run/graph").splitlines()]
        names = sorted(name for name, _, _ in graph)
        self.assertEqual(self._COUNT, len(names))
        self.assertEqual(names, sorted(end.activated))
        self.assertEqual(names, sorted(end.succeeded))
        self._check_order(end, graph, seed)
        self._check_barriers(end, graph)
        self._check_profile(end.read(PROFILE), names)
        noted = [f"--n={name[4:]}" for name in names if re.fullmatch(r"json\d*00", name)]
        self.assertEqual(sorted(noted), sorted(end.command_output))

    def _check_order(self, end, graph, seed):
        """No plugin is begun before all have ended that provide what it requires."""
        unfinished = collections.Counter(barrier for _, _, given in graph for barrier in given.split(","))
        required = {name: needed.split(",") for name, needed, _ in graph}
        provided = {name: given.split(",") for name, _, given in graph}
        for record in end.kernel:
            if found := re.fullmatch(r"bootweave: Activating Bootweave plugin (.*)\.", record.text):
                early = [barrier for barrier in required[found[1]] if unfinished[barrier]]
                self.assertEqual([], early, f"seed {seed}: {found[1]} has not waited")
            elif found := re.fullmatch(r"bootweave: Bootweave plugin (.*) activated\.", record.text):
                unfinished.subtract(provided[found[1]])
        self.assertEqual({0}, set(unfinished.values()))

    def _check_barriers(self, end, graph):
        """Each that nobody provides is told once, with all that require it."""
        given = {barrier for _, _, barriers in graph for barrier in barriers.split(",")}
        missing = collections.defaultdict(list)
        for name, needed, _ in graph:
            for barrier in set(needed.split(",")) - given:
                missing[barrier].append(name)
        told = re.findall(r'Initialization barrier "([^"]*)" is not provided by any plugin '
                          r'but the following plugins require it: (.*)\n', end.read("/run/out"))
        self.assertEqual(sorted((barrier, sorted(names)) for barrier, names in missing.items()),
                         sorted((barrier, sorted(names.strip('"').split('", "'))) for barrier, names in told))

    def _check_profile(self, profile, names):
        block = re.fullmatch(r"Mantle Initialization Time: \d+000000\n"
                             rf"((?:\[{_STAMP} - {_STAMP}\] sysboot: .*\n)*)"
                             rf"=== Bootweave configuration info ===\n Start: {_STAMP}\n End: {_STAMP}\n"
                             r" Verbose: 0\n Parallel: [01]\n Randomize: 0\n Interactive Mode: 0\n"
                             r" Random Seed: \d+\n", profile)
        self.assertIsNotNone(block)
        self.assertEqual(names, sorted(re.findall(r"sysboot: (.*)\n", block[1])))
        self.assertNotIn("1970-01-01", block[1])

    def test_ten_thousand_plugins_of_all_kinds_run_once_each_and_in_order(self):
        self._check(*self._boot())

    def test_in_parallel_ten_thousand_plugins_run_once_each_and_in_order(self):
        self._check(*self._boot("--parallel"))


class ManyScriptsTest(SystemTest):
    _SCRIPTS = {f"s{number:03}": 10 + number % 7 * 10 for number in range(500)}

    def _check(self, end, action):
        self.assertEqual((0, []), (end.status, end.complaints))
        order = [line.split() for line in begun(end)]
        self.assertEqual(sorted([action, name] for name in self._SCRIPTS), sorted(order))
        priorities = [self._SCRIPTS[name] for _, name in order]
        self.assertEqual(sorted(priorities, reverse=action == "stop"), priorities)
        self.assertEqual(sorted(self._SCRIPTS), sorted(re.findall(r"\] daemon: (.*)\n", end.read(PROFILE))))

    def test_five_hundred_scripts_start_in_parallel_by_their_priorities(self):
        end = self.host(init_scripts(**self._SCRIPTS)).boot("--daemon=wait", "--method=start", "--parallel")
        self._check(end, "start")
        self.assertEqual(sorted(self._SCRIPTS), sorted(end.succeeded))

    def test_five_hundred_scripts_stop_by_their_priorities(self):
        end = self.host(init_scripts(**self._SCRIPTS)).boot("--daemon=wait", "--method=stop")
        self._check(end, "stop")


# A thousand threads with a connection each. The first command lasts until the backlog is full.
_CLIENTS = File("""#!/usr/bin/python3 -IS
import socket, struct, threading, time
PATH = "/run/corvane/bootweaveExecutor.sock"
answers = {}

def ask(number, request):
    with socket.socket(socket.AF_UNIX) as client:
        client.connect(PATH)        # sleeps while the backlog is full
        client.sendall(request)
        client.shutdown(socket.SHUT_WR)
        reply = client.recv(100)
        answers[number] = struct.unpack("=i", reply)[0] if len(reply) == 4 else repr(reply)

def backlog_is_full():
    with socket.socket(socket.AF_UNIX) as client:
        client.setblocking(False)
        try:
            client.connect(PATH)
        except BlockingIOError:
            return True
        return False

def until(condition):
    deadline = time.monotonic() + 30
    while not condition():
        assert time.monotonic() < deadline, condition
        time.sleep(0.01)

def exists(path):
    try:
        open(path).close()
        return True
    except FileNotFoundError:
        return False

threading.stack_size(1 << 18)
threads = [threading.Thread(target=ask, args=(0, b"hold"))]
threads[0].start()
until(lambda: exists("/run/held"))
for number in range(1, 1001):
    request = b"note --n=%d" % number if number % 10 else b"no such"
    threads.append(threading.Thread(target=ask, args=(number, request)))
for thread in threads[1:]:
    thread.start()
until(backlog_is_full)
open("/run/go", "w").close()
for thread in threads:
    thread.join()
for number in sorted(answers):
    print(number, answers[number])
""", 0o755)


class ManyClientsTest(SystemTest):
    def test_a_thousand_clients_at_once_each_get_their_own_answer(self):
        hold = command("hold", ": >/run/held; while [ ! -e /run/go ]; do sleep 0.01; done")
        end = self.host({"/opt/clients": _CLIENTS}, command("note", 'echo "$1"'), hold).shell(
            "bootweave --plugin-directory=/no/where >/dev/null; exec /opt/clients", timeout=100)
        self.assertEqual(("", 0), (end.stderr, end.status))
        answers = [tuple(map(int, line.split())) for line in end.stdout.splitlines()]
        self.assertEqual([(number, int(number > 0 and number % 10 == 0)) for number in range(1001)], answers)
        noted = [f"--n={number}" for number in range(1001) if number % 10]
        self.assertEqual(sorted(noted), sorted(end.command_output))
