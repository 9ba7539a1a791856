#!/usr/bin/env python3
"""Records the session that README shows: four machines on a network that loses one datagram in a hundred, one of them
unplugged in the middle and served again afterwards. The machines are network namespaces, so it has to run as root.

usage: record_session.py            prints it
       record_session.py README.md  puts it between the two marks there
"""
import contextlib
import fcntl
import os
import pty
import re
import select
import shutil
import signal
import struct
import subprocess
import sys
import tempfile
import termios
import time
from pathlib import Path

HOME = Path(__file__).resolve().parents[1]
os.environ.setdefault("QUORL_BUILD", str(HOME / "build" / "release"))
sys.path.insert(0, str(HOME / "tests" / "real"))

from room import QUORL, differences, write  # noqa: E402
from testbed import Testbed, missing, run  # noqa: E402

LOSS_PERCENT, WIDTH, UNPLUGGED = 1, 96, 2
FIRST, LAST = "<!-- recorded by tools/record_session.py -->\n", "<!-- end of the recording -->\n"


def shown(text):
    """What a terminal shows in the end of text that moves up, returns and erases."""
    lines, row, column = [""], 0, 0
    for piece in re.findall(r"\x1b\[[?0-9;]*[A-Za-z]|[\r\n]|[^\x1b\r\n]+", text):
        if piece == "\n":
            row += 1
            lines += [""] * (row + 1 - len(lines))
        elif piece == "\r":
            column = 0
        elif not piece.startswith("\x1b["):
            line = lines[row].ljust(column)
            lines[row] = line[:column] + piece + line[column + len(piece):]
            column += len(piece)
        elif piece[-1] == "A":
            row -= int(piece[2:-1] or 1)
        elif piece[-1] in "KJ":
            lines[row] = lines[row][:column]
            if piece[-1] == "J":
                del lines[row + 1:]
    return "\n".join(line.rstrip() for line in lines).rstrip("\n")


class Terminal:
    """The command on one machine, before a terminal of its own, in the machine's own /srv."""

    def __init__(self, machine, directory, *arguments):
        self.raw = b""
        self.line = " ".join(["quorl", *arguments])
        process, self.terminal = pty.fork()
        if process == 0:
            enter = 'mount --bind "$1" /srv && cd /srv && shift && exec "$@"'
            os.execvp("ip", [*Testbed.inside(machine), "sh", "-c", enter, "sh", str(directory), str(QUORL), *arguments])
        fcntl.ioctl(self.terminal, termios.TIOCSWINSZ, struct.pack("HHHH", 40, WIDTH, 0, 0))
        self.process = process

    def read(self, seconds):
        """False at the end of the output."""
        if select.select([self.terminal], [], [], seconds)[0]:
            try:
                piece = os.read(self.terminal, 65536)
            except OSError:
                return False
            self.raw += piece
            return piece != b""
        return True

    def text(self):
        return self.raw.decode("utf-8", "replace")

    def until(self, pattern, limit=30):
        deadline = time.monotonic() + limit
        while not re.search(pattern, self.text()):
            if not self.read(0.05) or time.monotonic() > deadline:
                raise RuntimeError(f"{self.line} never showed {pattern!r}:\n{self.text()}")

    def press(self, key):
        os.write(self.terminal, key.encode())

    def end(self, limit=90):
        """Its exit code."""
        deadline = time.monotonic() + limit
        while self.read(1):
            if time.monotonic() > deadline:
                raise RuntimeError(f"{self.line} does not end:\n{self.text()}")
        os.close(self.terminal)
        return os.waitstatus_to_exitcode(os.waitpid(self.process, 0)[1])


class Session:
    def __init__(self, room, testbed):
        self.room, self.testbed, self.shown = room, testbed, []

    def show(self, machine, terminal):
        code = terminal.end()
        self.shown.append(f"{machine}$ {terminal.line}\n{shown(terminal.text())}")
        if code:
            self.shown.append(f"{machine}$ echo $?\n{code}")

    def at_sender(self, *arguments):
        return Terminal(self.testbed.sender, self.room / "server", *arguments)

    def at_receiver(self, number, *arguments):
        terminal = Terminal(self.testbed.receivers[number], self.room / f"lab-{number + 1}", *arguments)
        terminal.until("Waiting")
        return terminal

    def plug(self, number, state):
        run("ip", "-n", self.testbed.switch, "link", "set", f"port-rx{number}", state)

    def record(self):
        doctor = self.at_sender("doctor")
        self.show("server", doctor)
        receivers = [self.at_receiver(number, "receive") for number in range(3)]
        sender = self.at_sender("send", "images/")
        sender.until(r"\[Enter\]")
        sender.press("\n")
        sender.until(r"Sending[^\n]* [3-6]\d %")
        self.plug(UNPLUGGED, "down")
        self.show("server", sender)
        self.show("lab-1", receivers[0])
        receivers[1].end()
        self.show("lab-3", receivers[UNPLUGGED])
        self.plug(UNPLUGGED, "up")
        again = self.at_receiver(UNPLUGGED, "receive")
        self.show("server", self.at_sender("send", "images/", "--only", Testbed.address(UNPLUGGED)))
        self.show("lab-3", again)
        for number in range(3):
            wrong = differences(self.room / "server", self.room / f"lab-{number + 1}")
            if wrong:
                raise RuntimeError(f"lab-{number + 1} differs: {wrong}")


@contextlib.contextmanager
def names_for(testbed):
    """Lets the machines know each other by name, as a network with a name server would."""
    hosts = "127.0.0.1 localhost\n" + "".join(f"{Testbed.address(i)} lab-{i + 1}\n" for i in range(3))
    folder = Path("/etc/netns") / testbed.sender
    folder.mkdir(parents=True)
    (folder / "hosts").write_text(hosts)
    try:
        yield
    finally:
        shutil.rmtree(folder)


def record():
    reason = missing()
    if reason:
        sys.exit(f"cannot record: {reason}")
    os.environ["TERM"] = "xterm"
    with contextlib.ExitStack() as stack:
        room = Path(stack.enter_context(tempfile.TemporaryDirectory(prefix="quorl-session-")))
        for machine in ("server", "lab-1", "lab-2", "lab-3"):
            (room / machine).mkdir()
        images = room / "server" / "images"
        for number in range(40):
            write(images / f"set-{number // 10}" / f"scan-{number:03}.tif", 1_500_000 + number * 977)
        testbed = Testbed()
        stack.callback(testbed.close)
        testbed.build(3)
        testbed.lose(LOSS_PERCENT)
        stack.enter_context(names_for(testbed))
        session = Session(room, testbed)
        session.record()
        return "\n".join(session.shown)


def main():
    text = FIRST + "```console\n" + record() + "\n```\n" + LAST
    if len(sys.argv) == 1:
        print(text)
        return
    page = Path(sys.argv[1])
    before, _, after = page.read_text().partition(FIRST)
    page.write_text(before + text + after.partition(LAST)[2])


if __name__ == "__main__":
    signal.signal(signal.SIGTERM, lambda *_: sys.exit(1))
    main()
