# SPDX-License-Identifier: Apache-2.0
"""Measures what a run costs; scripts/bench builds what it needs and starts it."""

import argparse
import datetime
import json
import os
import platform
import shutil
import statistics
import subprocess
import sys
import tempfile

import charts

_ROOT = os.path.join(os.path.dirname(os.path.realpath(__file__)), "..", "..")
_HOST = os.path.join(_ROOT, "scripts/lib/throwaway-host")
_TOOLS = "/opt/bench"
_PEERS = ("make", "ninja", "startpar")
_SCRIPT_PEERS = ("startpar",)  # run init scripts and nothing else

# The most that a path may cost, relative to its floor: wall, CPU.
_BOUNDS = {"json": (1.15, 1.20), "debug": (1.15, 1.15), "native": (1.15, 1.20), "daemon": (1.15, 1.20)}
_MODES = {"json": ("serial",), "debug": ("serial", "parallel"), "native": ("serial", "parallel"),
          "daemon": ("serial", "parallel")}
_SHAPES = ("wide", "chain", "layers")


class Bench:
    """One series of measurements, and what comes out of it."""

    def __init__(self, build, out, pairs, sizes, peers):
        self._build = build
        self._out = out
        self._pairs = pairs
        self._sizes = sizes
        self._contenders = ["bootweave"] + [peer for peer in peers if shutil.which(peer)]
        self.results = {"machine": _machine(), "absent": [peer for peer in peers if not shutil.which(peer)]}
        self.tables = []
        os.makedirs(out, exist_ok=True)

    def _on_host(self, **wanted):
        """What on_host.py measures on a new throw-away host."""
        with tempfile.TemporaryDirectory(prefix="bootweave-bench-") as tree:
            tools = tree + _TOOLS
            os.makedirs(tools)
            for entry in os.scandir(os.path.join(self._build, "tests/bench")):
                if entry.is_file() and (os.access(entry.path, os.X_OK) or entry.name.endswith(".so")):
                    shutil.copy(entry.path, tools)
            for name in "on_host.py", "paths.py", "peers.py", "shapes.py":
                shutil.copy(os.path.join(_ROOT, "tests/bench", name), tools)
            words = [_HOST, "--die-with-parent", "--install", os.path.join(self._build, "stage"),
                     "--tree", tree, "--", sys.executable, "-S", f"{_TOOLS}/on_host.py", json.dumps(wanted)]
            process = subprocess.Popen(words, stdout=subprocess.PIPE, stdin=subprocess.DEVNULL, text=True)
            for line in process.stdout:
                yield json.loads(line)
            if process.wait() != 0:
                raise SystemExit(f"scripts/bench: measuring {wanted} failed")

    def _table(self, title, head, rows):
        lines = ["| " + " | ".join(head) + " |", "|---" * len(head) + "|"]
        lines += ["| " + " | ".join(str(cell) for cell in row) + " |" for row in rows]
        self.tables.append(f"### {title}\n\n" + "\n".join(lines) + "\n")
        print(f"\n{title}\n" + "\n".join(lines), flush=True)
        with open(os.path.join(self._out, "tables.md"), "w", encoding="utf-8") as file:
            file.write("\n".join(self.tables))
        with open(os.path.join(self._out, "results.json"), "w", encoding="utf-8") as file:
            json.dump(self.results, file, indent=1)

    def _chart(self, name, title, note, series, rows):
        with open(os.path.join(self._out, f"{name}.svg"), "w", encoding="utf-8") as file:
            file.write(charts.bars(title, note, series, rows))

    def orchestration(self):
        """Units through each path, beside the floor and the peers."""
        found = self.results["orchestration"] = []
        for path, modes in _MODES.items():
            rows, chart = [], []
            for mode in modes:
                for shape in _SHAPES:
                    for units in self._sizes:
                        row, bar = self._orchestrate(found, path, mode, shape, units)
                        rows.append(row)
                        chart.append(bar)
            bounds = _BOUNDS[path]
            title = f"{path}: cost relative to the floor (at most {bounds[0]} wall, {bounds[1]} CPU)"
            head = ["mode", "shape", "units", "wall", "its spread", "CPU"]
            head += [f"{peer} {what}" for peer in self._contenders[1:] for what in ("wall", "CPU")]
            self._table(title, head, rows)
            self._chart(path, f"{path}: CPU relative to the floor",
                        "1 is a loop that spawns and waits; the line is the bound", self._contenders, chart)

    def _orchestrate(self, found, path, mode, shape, units):
        cells, cpus = {peer: ["", ""] for peer in self._contenders}, dict.fromkeys(self._contenders)
        for result in self._on_host(kind="orchestration", path=path, shape=shape, units=units, mode=mode,
                                    pairs=self._pairs, contenders=self._contenders):
            found.append({"path": path, "mode": mode, "shape": shape, "units": units, **result})
            contender = result["contender"]
            if "failure" in result:
                cells[contender][0] = result["failure"]
                continue
            walls = [pair[0] / pair[2] for pair in result["pairs"]]
            cpus[contender] = statistics.median(pair[1] / pair[3] for pair in result["pairs"])
            cells[contender] = [f"{statistics.median(walls):.2f}", f"{cpus[contender]:.2f}"]
            if contender == "bootweave":
                cells[contender].insert(1, f"{min(walls):.2f} to {max(walls):.2f}")
        return ([mode, shape, units, *(cell for peer in self._contenders for cell in cells[peer])],
                (f"{mode}, {shape}, {units}", list(cpus.values()), _BOUNDS[path][1]))

    def schedule(self):
        """How near the best possible schedule sleeping units come."""
        found, rows, chart = [], [], []
        self.results["schedule"] = found
        contenders = [each for each in self._contenders if each not in _SCRIPT_PEERS]
        titles = {"layers": "1,000 units in layers, 16 workers",
                  "skewed": "75 units, then a chain of 25; 4 jobs"}
        for shape, title in titles.items():
            values = []
            for result in self._on_host(kind="schedule", shape=shape, pairs=self._pairs,
                                        contenders=contenders):
                found.append({"shape": shape, **result})
                ratios = [pair[0] / (result["bound"] + pair[2]) for pair in result["pairs"]]
                values.append(statistics.median(ratios))
                walls = [pair[0] for pair in result["pairs"]]
                rows.append([title, result["contender"], f"{result['bound']:.2f}",
                             f"{statistics.median(walls):.2f}", f"{values[-1]:.2f}",
                             f"{min(ratios):.2f} to {max(ratios):.2f}"])
            chart.append((title, values, 1.05))
        self._table("Schedules of units that sleep 20 ms (at most 1.05)",
                    ["graph", "by", "bound, s", "wall, s", "wall / (bound + floor)", "its spread"], rows)
        self._chart("schedule", "Schedules: wall time relative to the bound",
                    "bound: the longest chain or work / jobs, plus what the programs cost",
                    contenders, chart)

    def scheduler(self):
        """Nodes that do nothing, beside oneTBB's flow graph."""
        words = [os.path.join(self._build, "tests/bench/scheduler_bench"), "--benchmark_format=json",
                 f"--benchmark_repetitions={self._pairs}", "--benchmark_enable_random_interleaving=true",
                 "--benchmark_report_aggregates_only=true", "--benchmark_min_time=0.05"]
        output = subprocess.run(words, stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, check=True).stdout
        found = self.results["scheduler"] = json.loads(output)["benchmarks"]
        medians = {entry["run_name"]: entry for entry in found if entry["aggregate_name"] == "median"}
        rows, chart = [], []
        for shape, label in enumerate(_SHAPES):
            for workers in 1, 2:
                for nodes in 10_000, 100_000, 1_000_000:
                    name = f"_Run/shape:{shape}/nodes:{nodes}/workers:{workers}/process_time/real_time"
                    rates = [medians[product + name]["items_per_second"] / 1e6
                             for product in ("Bootweave", "Tbb")]
                    rows.append([label, workers, nodes, f"{rates[0]:.1f}", f"{1000 / rates[0]:.0f}",
                                 f"{rates[1]:.1f}"])
                    chart.append((f"{label}, {workers} workers, {nodes}", rates, None))
        self._table("The scheduler alone: million nodes a second",
                    ["shape", "workers", "nodes", "bootweave", "ns a node", "oneTBB"], rows)
        self._chart("scheduler", "The scheduler alone: million nodes a second",
                    "more is better; nodes that do nothing", ["bootweave", "oneTBB flow graph"], chart)
        rows, chart = [], []
        for shape, label in enumerate(_SHAPES):
            for nodes in 10_000, 100_000, 1_000_000:
                name = f"_Construct/shape:{shape}/nodes:{nodes}/workers:1/real_time"
                both = [medians[product + name] for product in ("Bootweave", "Tbb")]
                rows.append([label, nodes, *(f"{1e9 / entry['items_per_second']:.0f}" for entry in both),
                             *(f"{entry['bytes']:.0f}" for entry in both)])
                chart.append((f"{label}, {nodes}", [1e9 / entry["items_per_second"] for entry in both], None))
        self._table("Construction: time and memory of a node with its edges (at most 300 bytes)",
                    ["shape", "nodes", "ns", "oneTBB ns", "bytes", "oneTBB bytes"], rows)
        self._chart("construction", "Construction: nanoseconds a node with its edges", "less is better",
                    ["bootweave", "oneTBB flow graph"], chart)

    def fixed(self):
        """What a run costs before its first plugin."""
        found = self.results["fixed"] = list(self._on_host(kind="fixed", pairs=self._pairs))
        names = {"memory": "peak memory, 1,000 plugins", "help": "--help",
                 "empty": "a plain run without plugins",
                 "discovery": "10,000 files discovered, loaded, dumped"}
        against = {"memory": "/bin/true", "help": "/bin/true", "empty": "/bin/true",
                   "discovery": "a loop that reads and parses them"}
        rows, chart = [], []
        for entry in found:
            pairs, what = entry["pairs"], entry["what"]
            if what == "memory":
                more = statistics.median(pair[0] - pair[1] for pair in pairs) / 1024
                rows.append([names[what], against[what], "", f"{more:.1f} MiB more"])
                continue
            ratios = [statistics.median(pair[i] / pair[i + 2] for pair in pairs) for i in (0, 1)]
            rows.append([names[what], against[what], *(f"{ratio:.2f}" for ratio in ratios)])
            chart.append((names[what], ratios, 2.0 if what != "empty" else None))
        for program in "sbin/bootweave", "nativeReader", "nativeExecutor":
            folder = "" if "/" in program else "lib/corvane/bootweave"
            path = os.path.join(self._build, "stage/usr", folder, program)
            with tempfile.NamedTemporaryFile() as stripped:
                subprocess.run(["strip", "-o", stripped.name, path], check=True)
                size = os.path.getsize(stripped.name)
            rows.append([f"{os.path.basename(program)}, stripped", "", "", f"{size / 1024:.0f} KiB"])
        self._table("Fixed costs", ["what", "against", "wall", "CPU or size"], rows)
        self._chart("fixed", "Fixed costs relative to the floor",
                    "help and plain run: /bin/true; discovery: reading and parsing the same files",
                    ["wall", "CPU"], chart)

    def growth(self):
        """What a plugin costs in larger and larger runs."""
        found, rows, chart = [], [], []
        self.results["growth"] = found
        for shape, sizes in (("wide", (100, 1000, 10_000, 100_000)), ("chain", (1000, 10_000, 100_000)),
                             ("layers", (1000, 10_000, 100_000)), ("barrier", (2000, 20_000, 200_000))):
            for units in sizes:
                [result] = self._on_host(kind="growth", shape=shape, units=units, pairs=self._pairs)
                found.append({"shape": shape, "units": units, **result})
                run, dump = (statistics.median(turn[1] for turn in result[what]) / units * 1e6
                             for what in ("run", "dump"))
                rows.append([shape, units, f"{run:.1f}", f"{dump:.1f}", f"{result['log_bytes'] / units:.0f}",
                             f"{result['dot_bytes'] / units:.0f}"])
                chart.append((f"{shape}, {units}", [run, dump], None))
        self._table("Growth: CPU microseconds a plugin that does nothing, bytes a plugin",
                    ["shape", "plugins", "boot", "dump", "profile", "DOT"], rows)
        self._chart("growth", "Growth: CPU microseconds a plugin",
                    "plugins that do nothing, from their files to the end", ["boot", "dump"], chart)


def _machine():
    with open("/proc/cpuinfo", encoding="utf-8") as file:
        names = {line.split(":", 1)[1].strip() for line in file if line.startswith("model name")}
    return {"date": datetime.date.today().isoformat(), "processors": os.cpu_count(),
            "processor": " / ".join(sorted(names)) or platform.machine(), "kernel": platform.release()}


def main():
    parser = argparse.ArgumentParser(prog="scripts/bench", allow_abbrev=False)
    parts = ("orchestration", "schedule", "scheduler", "fixed", "growth")
    parser.add_argument("--build", required=True, help=argparse.SUPPRESS)
    parser.add_argument("--out", required=True, metavar="DIR", help="where tables, charts and numbers go")
    parser.add_argument("--pairs", type=int, default=5, metavar="N", help="turns of each contender (5)")
    parser.add_argument("--no-peers", action="store_true", help="measure bootweave and the floor alone")
    parser.add_argument("--sizes", default="100,1000,10000", help="numbers of units to orchestrate")
    parser.add_argument("part", nargs="*", metavar="PART", help=f"what to measure (all): {', '.join(parts)}")
    given = parser.parse_args()
    for part in given.part:
        if part not in parts:
            parser.error(f"there is no part '{part}'")
    bench = Bench(given.build, given.out, given.pairs, [int(size) for size in given.sizes.split(",")],
                  () if given.no_peers else _PEERS)
    machine = bench.results["machine"]
    print(", ".join(str(fact) for fact in machine.values()))
    for peer in bench.results["absent"]:
        print(f"absent, so not measured: {peer}")
    for part in given.part or parts:
        getattr(bench, part)()


main()
