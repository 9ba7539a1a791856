#!/usr/bin/env python3
"""This program beside others, and beside what the machine carries at all: one sender and some receivers in namespaces
of their own. A cell is one kind of transfer; its programs take turns, run by run, because a machine drifts. A run
counts when every receiver has the same bytes as the sender.

Figures are medians; only those of one run of this program may be compared.
"""
import argparse
import itertools
import os
import random
import shutil
import signal
import statistics
import subprocess
import sys
import tempfile
from pathlib import Path

import testbed
from root import continue_as_root
from room import QUORL, write
from tools import PEERS, TOOLS, Failed, Work

SKIPPED = 77
TREE_FILES, TREE_SIZES = 2000, (4096, 65536)
TINY_FILES, TINY_SIZE = 100_000, 1024
SPARSE_SIZE = 4 << 30
# The others ask for buffers up to these; this program, as root, is not bound by them.
BUFFER_LIMITS = ("/proc/sys/net/core/rmem_max", "/proc/sys/net/core/wmem_max")
BUFFER = 64 << 20
COLUMNS = ("data", "receivers", "MTU", "loss %", "program", "s", "MB/s", "from", "to", "/ best peer", "/ limit",
           "sender CPU s/GB", "receiver CPU s/GB", "sender MiB", "receiver MiB", "runs")


def parsed():
    def several(kind):
        return lambda text: [kind(part) for part in text.split(",")]
    parser = argparse.ArgumentParser(prog="./dev bench", description=__doc__,
                                     formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--receivers", type=several(int), metavar="1,4", help="how many (1,4)")
    parser.add_argument("--mtu", type=several(int), metavar="1500,9000", help="of the link (1500,9000)")
    parser.add_argument("--loss", type=several(float), metavar="0,5", help="percent at each receiver (0,5)")
    parser.add_argument("--lose", choices=("datagrams", "fragments"), default="datagrams", help="of what (datagrams)")
    parser.add_argument("--data", type=several(str), metavar="file,tree,tiny,sparse",
                        help=f"one file, {TREE_FILES} small ones, {TINY_FILES} of {TINY_SIZE} bytes, or one of "
                             f"{SPARSE_SIZE >> 30} GiB without contents (file; and a tree to four receivers)")
    parser.add_argument("--size", type=int, metavar="MIB", help="of the file (128; 256 with --full)")
    parser.add_argument("--tool", type=several(str), default=list(TOOLS), metavar=",".join(TOOLS), help="(all)")
    parser.add_argument("--rate", default="10G", help="what the sender of quorl-blocks is told (10G)")
    parser.add_argument("--runs", type=int, default=3, help="of each program in each cell (3)")
    parser.add_argument("--longest", type=float, metavar="SECONDS",
                        help="a run that takes longer is ended; after two the program has no others in that cell "
                             "(30; 120 with --full)")
    parser.add_argument("--profile", type=Path, metavar="DIRECTORY",
                        help="leave there what perf records of quorl's sender and first receiver")
    parser.add_argument("--full", action="store_true", help="every cell; takes hours")
    options = parser.parse_args()
    if options.full:
        options.receivers, options.mtu, options.loss = [1, 4, 8, 16], [1500, 9000], [0, 1, 5]
        options.data = ["file", "tree"]
    options.size = options.size or (256 if options.full else 128)
    options.longest = options.longest or (120 if options.full else 30)
    return options


def cells(options):
    """(data, receivers, MTU, loss) of each; neighbours share a room."""
    if any((options.data, options.receivers, options.mtu, options.loss)):
        trees = []
    else:
        trees = [("tree", 4, 1500, 0)]
    chosen = itertools.product(options.receivers or [1, 4], options.mtu or [1500, 9000], options.data or ["file"],
                               options.loss or [0, 5])
    return [(data, receivers, mtu, loss) for receivers, mtu, data, loss in chosen] + trees


def make_source(directory, data, size):
    if data == "file":
        path = directory / "large.bin"
        write(path, size << 20)
        return path
    if data == "sparse":
        directory.mkdir(exist_ok=True)
        path = directory / "sparse.bin"
        with open(path, "wb") as file:
            file.truncate(SPARSE_SIZE)
        return path
    if data == "tiny":
        path = directory / "tiny"
        for number in range(TINY_FILES):
            write(path / f"{number // 1000:03}" / f"{number:06}.bin", TINY_SIZE)
        return path
    path, sizes = directory / "tree", random.Random(1)
    for number in range(TREE_FILES):
        write(path / f"{number % 40:02}" / f"{number:04}.bin", sizes.randint(*TREE_SIZES))
    return path


def size_of(path):
    return sum(file.stat().st_size for file in (path, *path.rglob("*")) if file.is_file())


class Outcome:
    """The runs of one program in one cell."""

    def __init__(self):
        self.runs, self.failures = [], []

    def add(self, tool, work):
        shutil.rmtree(work.into, ignore_errors=True)
        work.into.mkdir()
        try:
            self.runs.append(tool(work).measure())
        except Failed as failed:
            self.failures.append(str(failed))

    def gives_up(self):
        return sum(text.startswith("not done") for text in self.failures) >= 2

    def speeds(self):
        return [run.byte_count / run.seconds / 1e6 for run in self.runs]

    def speed(self):
        return statistics.median(self.speeds()) if self.runs else 0

    def seconds(self):
        return statistics.median(run.seconds for run in self.runs)

    def row(self, best_peer, limit):
        """From "s" to the end of the table's row."""
        def median(value):
            return statistics.median(map(value, self.runs))
        told = f"{len(self.runs)} of {len(self.runs) + len(self.failures)}"
        told = ": ".join([told, *sorted(set(self.failures))[:1]])
        if not self.runs:
            return ["-"] * 10 + [told]
        return [f"{self.seconds():.2f}", f"{self.speed():.1f}",
                f"{min(self.speeds()):.1f}", f"{max(self.speeds()):.1f}",
                ratio(self.speed(), best_peer), ratio(self.speed(), limit),
                f"{median(lambda run: run.sender_cpu / run.byte_count) * 1e9:.2f}",
                f"{median(lambda run: run.receiver_cpu / run.byte_count) * 1e9:.2f}",
                f"{median(lambda run: run.sender_memory) / 2**20:.0f}",
                f"{median(lambda run: run.receiver_memory) / 2**20:.0f}", told]


def ratio(speed, other):
    return f"{speed / other:.2f}" if other else "-"


def measure(cell, names, runs, work):
    """The speeds of one cell by program, with its rows printed."""
    names = [name for name in names if TOOLS[name].suits(work)]
    outcomes = {name: Outcome() for name in names}
    for _ in range(runs):
        for name in names:
            if not outcomes[name].gives_up():
                outcomes[name].add(TOOLS[name], work)
    best_peer = max((outcomes[name].speed() for name in PEERS & set(names)), default=0)
    for name in names:
        limit = outcomes[TOOLS[name].limit].speed() if TOOLS[name].limit in names else 0
        print(as_row([*named(cell), name, *outcomes[name].row(best_peer, limit)]), flush=True)
    return {name: outcome.speed() for name, outcome in outcomes.items()}


def named(cell):
    return [f"{part:g}" if isinstance(part, float) else str(part) for part in cell]


def as_row(columns):
    return f"| {' | '.join(columns)} |"


def shortfalls(speeds):
    """One line for each cell in which this program is not what it means to be: 2.5 times as fast as the best of the
    others, 1.5 times with one receiver; without loss at 0.6 of the limit; with loss at most 1.1 and, from 5 % on, 1.25
    times the time without."""
    for cell, of in speeds.items():
        data, receivers, mtu, loss = named(cell)
        peers = {name: speed for name, speed in of.items() if name in PEERS}
        best = max(peers, key=peers.get, default=None)
        lossless = speeds.get((*cell[:3], 0), {}).get("quorl", 0)
        wanted = [(peers[best], 2.5 if cell[1] >= 4 else 1.5, best)] if best else []
        if cell[3] == 0:
            wanted.append((of.get(TOOLS["quorl"].limit, 0), 0.6, "the limit"))
        else:
            wanted.append((lossless, 1 / (1.25 if cell[3] >= 5 else 1.1), "itself without loss"))
        for other, share, name in wanted:
            if of["quorl"] < share * other:
                yield f"{data}, {receivers} receivers, MTU {mtu}, {loss} %: {of['quorl'] / other:.2f} of {name}"


def describe_machine():
    cpu = next(line.split(":")[1].strip() for line in open("/proc/cpuinfo") if line.startswith("model name"))
    packages = subprocess.run(["dpkg-query", "-W", "-f", "${Package} ${Version}, ", "uftp", "udpcast"],
                              stdout=subprocess.PIPE, text=True).stdout
    version = subprocess.run([QUORL, "--version"], stdout=subprocess.PIPE, text=True).stdout.split("\n")[0]
    print(f"{os.cpu_count()} x {cpu}, Linux {os.uname().release}; {packages}{version}\n"
          f"load of the machine before: {os.getloadavg()[0]:.1f} (figures are worth something below 0.3)\n", flush=True)


def measure_all(options, directory):
    speeds, sources = {}, {}
    print(as_row(COLUMNS), as_row(["---"] * len(COLUMNS)), sep="\n", flush=True)
    for (receivers, mtu), group in itertools.groupby(cells(options), key=lambda cell: cell[1:3]):
        bed = testbed.Testbed()
        try:
            bed.build(receivers, mtu)
            for cell in group:
                data, loss = cell[0], cell[3]
                bed.lose(loss, options.lose)
                if data not in sources:
                    sources[data] = make_source(directory / "source", data, options.size)
                work = Work(sources[data], size_of(sources[data]), directory / "received", bed, mtu, loss,
                            options.longest)
                speeds[cell] = measure(cell, options.tool, options.runs, work)
        finally:
            bed.end_all()
            bed.close()
    if {"quorl"} < set(options.tool):
        print("", *(list(shortfalls(speeds)) or ["nothing falls short"]), sep="\n")


def main():
    options = parsed()
    why = testbed.missing()
    if why:
        print(f"skipped: {why}")
        return SKIPPED
    continue_as_root()
    TOOLS["quorl-blocks"].rate, TOOLS["quorl"].profile = options.rate, options.profile
    # What is begun is ended and put back.
    signal.signal(signal.SIGTERM, lambda *_: sys.exit(143))
    before = {path: Path(path).read_text() for path in BUFFER_LIMITS}
    try:
        for path in BUFFER_LIMITS:
            Path(path).write_text(str(BUFFER))
        describe_machine()
        # In memory, so that no disk is measured.
        with tempfile.TemporaryDirectory(dir="/dev/shm", prefix="quorl-bench-") as directory:
            measure_all(options, Path(directory))
    finally:
        for path, value in before.items():
            Path(path).write_text(value)
    return 0


if __name__ == "__main__":
    sys.exit(main())
