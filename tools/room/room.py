"""A room on this machine: processes of the command, trees, ports."""
import filecmp
import json
import os
import random
import shutil
import signal
import socket
import subprocess
import tempfile
import time
import unittest
from pathlib import Path

BUILD = Path(os.environ["QUORL_BUILD"])
QUORL = BUILD / "quorl"


def free_port():
    """A port for one test: it and the one two above are not in use."""
    while True:
        port = random.randrange(30000, 60000, 4)
        try:
            for number in (port, port + 2):
                with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as probe:
                    probe.bind(("", number))
            return port
        except OSError:
            continue


def works(*words):
    """Whether a program is there and does what it is told."""
    return bool(shutil.which(words[0])) and subprocess.run(words, capture_output=True).returncode == 0


class Command:
    """One process of the command, or of another program. Its output goes to a file, so that no pipe can hold it up."""

    def __init__(self, *arguments, prefix=(), cwd=None, error=subprocess.STDOUT, program=(QUORL,), environment=None):
        self.output_file = tempfile.TemporaryFile()
        self.arguments = [*prefix, *map(str, program), *map(str, arguments)]
        self.started = time.monotonic()
        self.process = subprocess.Popen(self.arguments, stdin=subprocess.DEVNULL, stdout=self.output_file,
                                        stderr=error, cwd=cwd, env=environment)
        self.code = None
        self.peak_memory = 0

    def output(self):
        self.output_file.flush()
        return os.pread(self.output_file.fileno(), 1 << 20, 0).decode("utf-8", "backslashreplace")

    def wait_for(self, text, limit=10):
        """Until `text` is in the output."""
        deadline = time.monotonic() + limit
        while text not in self.output():
            if time.monotonic() > deadline or self.poll() is not None:
                raise AssertionError(f"{self.arguments} never said {text!r}:\n{self.output()}")
            time.sleep(0.02)

    def poll(self):
        if self.code is None:
            pid, status, usage = os.wait4(self.process.pid, os.WNOHANG)
            if pid:
                self.code = self.process.returncode = os.waitstatus_to_exitcode(status)
                self.peak_memory = usage.ru_maxrss * 1024
                self.cpu_seconds = usage.ru_utime + usage.ru_stime
                self.seconds = time.monotonic() - self.started
        return self.code

    def wait(self, limit=60):
        """Its exit code; negative: the signal that ended it."""
        deadline = time.monotonic() + limit
        while self.poll() is None:
            if time.monotonic() > deadline:
                said = self.output()
                self.end()
                raise AssertionError(f"{self.arguments} did not end within {limit} s:\n{said}")
            time.sleep(0.01)
        return self.code

    def signal(self, number):
        self.process.send_signal(number)

    def end(self):
        if self.poll() is None:
            self.process.send_signal(signal.SIGKILL)
            self.wait(10)


class Room:
    """A temporary directory, a port, and the processes started with them; all gone at the end."""

    def __init__(self):
        self.path = Path(tempfile.mkdtemp(prefix="quorl-test-"))
        self.port = free_port()
        self.commands = []

    def start(self, *arguments, **options):
        command = Command(*arguments, **options)
        self.commands.append(command)
        return command

    def receiver(self, number, *arguments, directory=None, **options):
        """A receiver at 127.0.0.(number + 1), already listening."""
        target = Path(directory or self.target(number))
        target.mkdir(exist_ok=True)
        command = self.start("receive", target, "--interface", f"127.0.0.{number + 1}", "--port", self.port, *arguments,
                             **options)
        command.wait_for('"type":"waiting"' if "--json" in arguments else "Waiting for a sender")
        return command

    def sender(self, *arguments, **options):
        """A sender that starts without being asked to."""
        if not {"--wait-for", "--only", "--dry-run"} & set(arguments):
            arguments = (*arguments, "--yes")
        return self.start("send", *arguments, "--interface", "127.0.0.1", "--port", self.port, **options)

    def target(self, number):
        return self.path / f"receiver-{number}"

    def close(self):
        for command in self.commands:
            command.end()
            command.output_file.close()
        shutil.rmtree(self.path, ignore_errors=True)


class RoomTest(unittest.TestCase):
    """A test in a room of its own, with a tree of files of these sizes to send."""
    sizes = {}

    def setUp(self):
        self.room = Room()
        self.addCleanup(self.room.close)
        self.tree = self.room.path / "source" / "tree"
        for name, size in self.sizes.items():
            write(self.tree / name, size)

    def expect(self, command, code, *texts, limit=60):
        """How a command ends and what it has said, to the letter or as a pattern."""
        self.assertEqual(command.wait(limit), code, command.output())
        for text in texts:
            if text not in command.output():
                self.assertRegex(command.output(), text)

    def same(self, *numbers):
        """These receivers have what was sent, and nothing else."""
        for number in numbers:
            self.assertEqual(differences(self.tree.parent, self.room.target(number)), [])

    def inside(self, number):
        """Everything in a receiver's directory, hidden or not."""
        target = self.room.target(number)
        return sorted(str(path.relative_to(target)) for path in target.rglob("*"))

    @staticmethod
    def facts(command):
        """What it said for programs."""
        return [json.loads(line) for line in command.output().splitlines() if line.startswith("{")]


class PartLoader(unittest.TestLoader):
    """Every n-th test, from one of the first n on: parts of one file can run beside each other."""

    def __init__(self, part):
        super().__init__()
        self.first, self.step = (int(number) for number in part.split("/"))

    def getTestCaseNames(self, test_class):
        return super().getTestCaseNames(test_class)[self.first - 1::self.step]


def run_tests():
    """All tests of the program that was started; with QUORL_PART=2/3 every third of them, from the second on."""
    unittest.main(verbosity=2, testLoader=PartLoader(os.environ.get("QUORL_PART", "1/1")))


# Trees are written and compared in pieces: a process starts with the peak memory of the one that started it.
def write(path, size):
    path.parent.mkdir(parents=True, exist_ok=True)
    source = random.Random(str(path))
    with open(path, "wb") as file:
        for start in range(0, size, 1_000_000):
            file.write(source.randbytes(min(1_000_000, size - start)))


def differences(expected, actual):
    """What differs between two trees, empty directories included."""
    wanted, got = ({str(path.relative_to(root)) for path in Path(root).rglob("*")} for root in (expected, actual))
    unequal = []
    for name in wanted & got:
        left, right = Path(expected) / name, Path(actual) / name
        if left.is_dir() != right.is_dir() or (left.is_file() and not filecmp.cmp(left, right, shallow=False)):
            unequal.append(f"not equal: {name}")
    return [f"missing: {name}" for name in wanted - got] + [f"never sent: {name}" for name in got - wanted] + unequal
