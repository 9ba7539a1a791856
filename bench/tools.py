"""The programs that are measured beside each other, a class each: how it is started, and when a receiver has
everything. The settings of the others are the fastest that were found for a cell and that deliver in it."""
import os
import re
import subprocess
import time
from collections import namedtuple
from dataclasses import dataclass
from pathlib import Path

from room import BUILD, QUORL, Command
from testbed import SENDER_ADDRESS, Testbed

# What one run has cost: bytes that every receiver got and the seconds for them; then, of the sender and of one
# receiver, the seconds of a processor (their mean) and the peak memory in bytes (the largest).
Run = namedtuple("Run", "byte_count seconds sender_cpu receiver_cpu sender_memory receiver_memory")


class Failed(Exception):
    """Why a run counts for nothing."""


@dataclass(frozen=True)
class Work:
    """One cell's transfer: from where, into which directory with one for each receiver, on which machines."""
    source: Path
    byte_count: int
    into: Path
    bed: Testbed
    mtu: int
    loss: float
    longest: float

    def target(self, number):
        return self.into / str(number)


class Memory:
    """The peak memory of a process and of its children, the sum of all that were seen."""

    def __init__(self, pid):
        self.pid, self.peaks = pid, {}

    def look(self):
        try:
            children = Path(f"/proc/{self.pid}/task/{self.pid}/children").read_text().split()
            for pid in (self.pid, *children):
                peak = re.search(r"VmHWM:\s+(\d+) kB", Path(f"/proc/{pid}/status").read_text())
                if peak:
                    self.peaks[pid] = int(peak.group(1)) * 1024
        except (FileNotFoundError, ProcessLookupError):
            pass

    def peak(self):
        return sum(self.peaks.values())


class Tool:
    """One run of a program: a receiver on each machine, then the sender, from whose start the time counts."""
    greeting = ""  # what a receiver says when it listens
    limit = "limit-frames"  # what it is compared with
    profile = None  # the directory for what perf records of the sender and of the first receiver

    def __init__(self, work):
        self.work = work

    @staticmethod
    def suits(work):
        """Whether that is worth a row of its own."""
        return True

    def receiver(self, number):
        """The command line of a receiver."""
        raise NotImplementedError

    def sender(self):
        """The command line of the sender."""
        raise NotImplementedError

    def has_all(self, number, receiver):
        """Whether that receiver has everything, asked until it does. Most end then."""
        return receiver.poll() == 0

    def measure(self):
        """The run. Raises Failed."""
        commands = []
        try:
            return self.run(commands)
        except AssertionError as never:
            said = str(never).splitlines()[0].rsplit("]", 1)[-1]
            raise Failed(f"a receiver{said.rstrip(':')}") from never
        finally:
            self.work.bed.end_all()
            for command in commands:
                command.end()
                command.output_file.close()

    def run(self, commands):
        bed = self.work.bed
        for number, name in enumerate(bed.receivers):
            self.work.target(number).mkdir(exist_ok=True)
            commands.append(self.start(name, self.receiver(number), "receiver" if number == 0 else None))
        for receiver in commands:
            receiver.wait_for(self.greeting)
        sender = self.start(bed.sender, self.sender(), "sender")
        receivers = list(commands)
        commands.append(sender)
        memories = [Memory(command.process.pid) for command in commands]
        seconds = self.wait(receivers, sender, memories)
        self.compare()
        for command in commands:
            command.end()
        return Run(self.work.byte_count, seconds, sender.cpu_seconds, mean(each.cpu_seconds for each in receivers),
                   memories[-1].peak(), max(memory.peak() for memory in memories[:-1]))

    def start(self, machine, command, role):
        """A process on one of the machines."""
        if self.profile and role:
            recorder = ["perf", "record", "--quiet", "--freq", 1999, "--call-graph", "fp",
                        "--output", self.profile / f"{role}.data", "--"]
            command = [*recorder, *command]
        # Old programs say nothing that can be read in some languages.
        return Command(prefix=self.work.bed.inside(machine), program=command, environment={**os.environ, "LC_ALL": "C"})

    def wait(self, receivers, sender, memories):
        """Until every receiver has everything: how long that took. Then until the sender has ended, too."""
        waiting = dict(enumerate(receivers))
        looked, done = 0, None
        while waiting or sender.poll() is None:
            now = time.monotonic()
            waiting = {number: each for number, each in waiting.items() if not self.has_all(number, each)}
            if not waiting and done is None:
                done = now
            if waiting and now > sender.started + self.work.longest:
                raise Failed(f"not done in {self.work.longest:g} s")
            if waiting and (sender.poll() or any(each.poll() for each in waiting.values())):
                raise Failed(f"given up with {sender.code or max(each.code or 0 for each in receivers)}")
            if done and now > done + self.work.longest:
                raise Failed("the sender does not end")
            if now > looked + 0.05:
                looked = now
                for memory in memories:
                    memory.look()
            time.sleep(0.005)
        if sender.code != 0:
            raise Failed(f"the sender ended with {sender.code}")
        return done - sender.started

    def compare(self):
        for number in range(len(self.work.bed.receivers)):
            copy = self.work.target(number) / self.work.source.name
            if subprocess.run(["diff", "-rq", self.work.source, copy], capture_output=True).returncode != 0:
                raise Failed(f"receiver {number} has something else")


class Quorl(Tool):
    """This program; as people use it, with its manifest, in coded symbols and at the rate that it finds itself."""
    greeting = "Waiting for a sender"
    limit = "limit-frames"

    def receiver(self, number):
        return [QUORL, "receive", self.work.target(number), "--interface", "eth0"]

    def sender(self):
        return [QUORL, "send", self.work.source, "--interface", "eth0", "--wait-for", len(self.work.bed.receivers)]


class QuorlBlocks(Quorl):
    """The same in blocks, at a rate that is named."""
    rate = ""
    limit = "limit"

    def receiver(self, number):
        return [*super().receiver(number), "--no-coded"]

    def sender(self):
        return [*super().sender(), "--no-coded", "--rate", self.rate]


class Uftp(Tool):
    """uftp without encryption, at a rate of its own choice (-R -1). With the short times that are best without loss it
    gives up on lossy receivers."""
    greeting = "Loaded"
    BUFFER = 64 << 20

    def __init__(self, work):
        super().__init__(work)
        self.files = sum(path.is_file() for path in (work.source, *work.source.rglob("*")))
        self.results = {}

    def receiver(self, number):
        status = self.work.into / f"{number}.status"
        status.touch()
        self.results[number] = [open(status, "rb"), 0]
        return ["uftpd", "-d", "-D", self.work.target(number), "-I", "eth0", "-F", status, "-B", self.BUFFER,
                "-c", 20 << 20]

    def block(self):
        return 8800 if self.work.mtu >= 9000 else 1400

    def sender(self):
        times = ["-r", "0.5:0.1:15", "-s", 50] if self.work.loss else ["-r", "0.05:0.01:1"]
        machines = (self.work.bed.address(number).split(".") for number in range(len(self.work.bed.receivers)))
        names = ",".join("0x" + "".join(f"{int(part):02X}" for part in address) for address in machines)
        return ["uftp", "-I", "eth0", "-Y", "none", "-b", self.block(), "-B", self.BUFFER, "-R", -1, *times,
                "-H", names, self.work.source]

    def has_all(self, number, receiver):
        """A receiver goes on for ever; it writes a line for each file."""
        status = self.results[number]
        status[1] += status[0].read().count(b"RESULT;")
        return status[1] >= self.files


class UftpFragments(Uftp):
    """uftp with blocks above an Ethernet's MTU, which are sent in fragments: faster without loss."""

    @staticmethod
    def suits(work):
        return work.mtu < 9000 and not work.source.is_dir()

    def block(self):
        return 8800


class Udpcast(Tool):
    """udpcast, a tree through tar; with forward error correction where that is faster than asking again."""
    greeting = "UDP receiver for"

    def receiver(self, number):
        command = ["udp-receiver", "--nokbd", "--interface", "eth0", "--no-progress", "--rcvbuf", 4 << 20]
        target = self.work.target(number)
        if self.work.source.is_dir():
            return ["sh", "-c", f"{joined(command)} | tar -xf - -C {target}"]
        return [*command, "--file", target / self.work.source.name]

    def sender(self):
        # A greeting that is lost would hold the start up for ever.
        command = ["udp-sender", "--nokbd", "--interface", "eth0", "--no-progress", "--full-duplex",
                   "--rexmit-hello-interval", 500, "--min-receivers", len(self.work.bed.receivers)]
        if self.work.loss >= 3:
            command += ["--fec", "8x8/64"]
        if self.work.source.is_dir():
            return ["sh", "-c", f"tar -cf - -C {self.work.source.parent} {self.work.source.name} | {joined(command)}"]
        return [*command, "--file", self.work.source]


class Limit(Tool):
    """What the machine carries without any protocol: datagrams of the size of this program's blocks, no file at either
    end, nothing repeated. The fastest of three ways to send."""
    greeting = "listening"
    PROGRAM = BUILD / "bench" / "limit"
    GROUP, PORT, DATAGRAM = "235.9.2.9", 27001, 4796
    WAYS = ("single", "batch", "segments")
    HEADERS = 28  # of IP and UDP
    SECONDS = 1

    def __init__(self, work, way="single"):
        super().__init__(work)
        self.way = way

    def receiver(self, number):
        return [self.PROGRAM, "receive", self.work.bed.address(number), self.GROUP, self.PORT, self.DATAGRAM]

    def sender(self):
        return [self.PROGRAM, "send", SENDER_ADDRESS, self.GROUP, self.PORT, self.DATAGRAM, self.SECONDS, self.way]

    def measure(self):
        # The system cuts into what fits the link, or not at all.
        ways = [way for way in self.WAYS if way != "segments" or self.DATAGRAM + self.HEADERS <= self.work.mtu]
        runs = [Tool.measure(type(self)(self.work, way)) for way in ways]
        return max(runs, key=lambda run: run.byte_count / run.seconds)

    def run(self, commands):
        run = super().run(commands)
        counts = [re.search(r"(\d+) bytes in (\S+) s", each.output()) for each in commands[:-1]]
        return run._replace(byte_count=min(int(count.group(1)) for count in counts),
                            seconds=max(float(count.group(2)) for count in counts))

    def compare(self):
        """Nothing is kept."""


class LimitFrames(Limit):
    """The same with datagrams of the size of this program's symbols, which fit a frame of any link."""
    DATAGRAM = 1472


TOOLS = {"quorl": Quorl, "quorl-blocks": QuorlBlocks, "uftp": Uftp, "uftp-fragments": UftpFragments,
         "udpcast": Udpcast, "limit": Limit, "limit-frames": LimitFrames}
PEERS = {"uftp", "uftp-fragments", "udpcast"}


def joined(command):
    return " ".join(map(str, command))


def mean(values):
    values = list(values)
    return sum(values) / len(values)
