#!/usr/bin/env python3
"""Records the session that README shows: four machines on a network that loses one datagram in a hundred, one of them
unplugged in the middle and served again afterwards. The machines are network namespaces, so it has to run as root.

usage: record_session.py            prints it
       record_session.py README.md  puts it between the two marks there
"""
import contextlib
import os
import shutil
import signal
import subprocess
import sys
import tempfile
from pathlib import Path

HOME = Path(__file__).resolve().parents[1]
os.environ.setdefault("QUORL_BUILD", str(HOME / "build" / "release"))
sys.path.insert(0, str(HOME / "tools" / "room"))

from room import QUORL, differences, write  # noqa: E402
from terminal import Terminal  # noqa: E402
from testbed import Testbed, missing, run  # noqa: E402

LOSS_PERCENT, WIDTH, UNPLUGGED = 1, 100, 2
FIRST, LAST = "<!-- recorded by tools/record_session.py -->\n", "<!-- end of the recording -->\n"


def at(namespace, directory, *arguments):
    """The command on one machine, before a terminal of its own, in the machine's own /srv."""
    enter = 'mount --bind "$1" /srv && cd /srv && shift && exec "$@"'
    terminal = Terminal(*arguments, columns=WIDTH,
                        prefix=(*Testbed.inside(namespace), "sh", "-c", enter, "sh", directory))
    terminal.line = " ".join(["quorl", *arguments])
    return terminal


class Session:
    def __init__(self, room, testbed):
        self.room, self.testbed, self.shown = room, testbed, []

    def show(self, machine, terminal):
        code = terminal.end(90)
        self.shown.append(f"{machine}$ {terminal.line}\n{terminal.screen()}")
        if code:
            self.shown.append(f"{machine}$ echo $?\n{code}")

    def at_sender(self, *arguments):
        return at(self.testbed.sender, self.room / "server", *arguments)

    def at_receiver(self, number, *arguments):
        terminal = at(self.testbed.receivers[number], self.room / f"lab-{number + 1}", *arguments)
        terminal.wait_for("Waiting")
        return terminal

    def plug(self, number, state):
        run("ip", "-n", self.testbed.switch, "link", "set", f"port-rx{number}", state)

    def record(self):
        doctor = self.at_sender("doctor")
        self.show("server", doctor)
        receivers = [self.at_receiver(number, "receive") for number in range(3)]
        sender = self.at_sender("send", "images/")
        sender.wait_for(r"\[Enter\]")
        sender.press("\n")
        sender.wait_for(r"Sending[^\n]* [3-6]\d %")
        self.plug(UNPLUGGED, "down")
        self.show("server", sender)
        self.show("lab-1", receivers[0])
        receivers[1].end(90)
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
    with contextlib.ExitStack() as stack:
        room = Path(stack.enter_context(tempfile.TemporaryDirectory(prefix="quorl-session-")))
        for machine in ("server", "lab-1", "lab-2", "lab-3"):
            (room / machine).mkdir()
        images = room / "server" / "images"
        for number in range(40):
            write(images / f"set-{number // 10}" / f"scan-{number:03}.tif", 15_000_000 + number * 977)
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
